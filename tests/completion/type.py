#!/usr/bin/env python3
"""Types into an interactive shell and prints the command line that results.

type.py SHELL reads lines "KEY<tab>TEXT". For each it types TEXT and then the key: "tab" completes the last word, "all"
inserts every match. It then prints the command line of the shell. The shell itself loads the installed completion.
"""
import sys

import pexpect

KEYS = {"tab": "\t", "all": "\x14"}  # C-t
SHOW, CLEAR = "\x07", "\x15"  # C-g prints the line between marks, C-u empties it

SHELLS = {
    "bash": (
        ["bash", "--noprofile", "--norc", "-i"],
        r"""
PS1= PS2= HISTFILE=
. /usr/share/bash-completion/bash_completion
bind 'set enable-bracketed-paste off'
bind 'set bell-style none'
bind '"\C-t": insert-completions'
bind '"\C-u": kill-whole-line'
show() { printf '\n<<%s>>\n' "$READLINE_LINE"; }
bind -x '"\C-g": show'
""",
    ),
    "zsh": (
        ["zsh", "-f", "-i"],
        r"""
PS1= PS2= RPS1= PROMPT_EOL_MARK=
unsetopt zle_bracketed_paste prompt_cr
unset zle_bracketed_paste
setopt no_beep no_list_beep no_auto_menu no_auto_list
autoload -Uz compinit && compinit -u -D
bindkey -e
all() { _main_complete; compstate[insert]=all compstate[list]= }
zle -C all complete-word all
bindkey '^T' all
show() { printf '\n<<%s>>\n' "$BUFFER" }
zle -N show
bindkey '^G' show
bindkey '^U' kill-whole-line
""",
    ),
}


def main():
    words, setup = SHELLS[sys.argv[1]]
    shell = pexpect.spawn(words[0], words[1:], encoding="utf-8", timeout=60, dimensions=(200, 2000), echo=False)
    for line in setup.strip().splitlines():
        shell.sendline(line)
    shell.sendline("printf '%s%s\\n' rea dy")
    shell.expect("ready")
    for case in sys.stdin.read().splitlines():
        key, text = case.split("\t", 1)
        shell.send(text + KEYS[key] + SHOW)
        shell.expect("<<(.*)>>\r*\n")
        print(shell.match.group(1), flush=True)
        shell.send(CLEAR)
    shell.close(force=True)


main()
