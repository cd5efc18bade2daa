#!/bin/sh
# The prompt that `./dev shell` opens on a private host. The store of that host has only a factory template. The script
# sets the host up, prints the first commands to type and the missing tools, and becomes a shell. It takes no words.
set -eu
cd "$(dirname "$0")/.."
. tools/furnish.sh
sources=$(pwd)

furnish_init_script
furnish_scripts
furnish_bundle_script
furnish_examples
furnish_manuals

cat <<'TEXT'

A private host with a stand-in for the daemon. Nothing here changes the machine,
and "exit" removes it all. Three commands to begin with:

  ravctl profile create lab helmsor=h:443 activate   # starts the daemon, too
  ravctl service status              # after a few seconds it is connected
  man ravctl                         # every command; the Tab key completes them

TEXT

# say_missing CONSEQUENCE TOOL:PACKAGE...: prints the missing tools and the consequence, if a tool is missing.
say_missing() {
  what=$1
  shift
  missing=$(missing_of "$@")
  [ -z "$missing" ] || printf 'Missing here: %s. %s\n\n' "$missing" "$what"
}

say_missing 'The daemon can be neither started nor stopped.' killall:psmisc start-stop-daemon:dpkg
say_missing 'There are no manuals.' man:man-db

# The caller may have set these variables to paths and programs of the machine that do not exist on this host.
unset MANOPT MANPAGER MANPATH PROMPT_COMMAND TMPDIR
if command -v less >/dev/null; then export PAGER=less; else export PAGER=cat; fi
# Almost every terminal understands the control sequences of xterm.
infocmp >/dev/null 2>&1 || export TERM=xterm
cd /root
exec bash --noprofile --rcfile "$sources/tools/shell.rc" -i
