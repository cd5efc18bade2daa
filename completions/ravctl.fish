# fish completion for ravctl(8), and for the scripts that take the same words.
#
# The completion reads the profile store itself. It never runs ravctl, because a listing may repair names on the disk.

# A line WORDS:THIRD:KEYS for each command. WORDS are the words of the command. THIRD is the kind of the word behind
# them: new is any text, named a profile, any a profile or the factory template, and help a subject of help. KEYS are
# the words that may follow.
set -g _ravctl_commands '
profile create:new:allow_rename= helmsor= network= invitation= log_level= sys= activate
profile modify:named:new_name= helmsor= network= invitation= log_level= sys= activate
profile details:any:
profile activate:named:sys=
profile delete:named:
profile rename:named:new_name=
support reset:any:
list log:any:max_lines= log_level=
list interfaces::
list versions::
list profiles::
service start::sys=
service stop::sys=
service restart::sys= full
service status::
support bundle::
show log:any:max_lines= log_level=
service bounce::sys= full
show interfaces::
show profiles::
show versions::
json:new:
usage::
help:help:
reference::
'
set -g _ravctl_modes --quiet --verbose --json --text
set -g _ravctl_subjects profile service list log support json internal
set -g _ravctl_store /etc/zuv/profiles

# Prints the first non-empty line of a file. Bytes outside 33..126 are removed from both ends of each line first.
function _ravctl_first_line
    test -f $argv[1] -a -r $argv[1]; or return 0
    begin
        for count in (seq 16)
            read -l -n 1024 line; or return 0
            set line (string replace -r '^[^!-~]+' '' -- $line | string replace -r '[^!-~]+$' '')
            if test -n "$line"
                string join \n -- $line
                return 0
            end
        end
    end <$argv[1]
end

# Prints the words that select a profile: the names in the store, the directories, and the words for the active profile;
# with "any" also the template. A user who may not read the names gets the directories.
function _ravctl_profiles
    for dir in $_ravctl_store/*/
        set dir (string trim -r -c / -- $dir)
        test -L $dir; and continue
        _ravctl_first_line $dir/profile_name
        printf 'dir=%s\n' (string replace -r '.*/' '' -- $dir)
    end
    printf '%s\n' .current --active
    test $argv[1] = any; and echo .factory
end

# Prints the values of a key. Keys that take any text have no values.
function _ravctl_values
    switch $argv[1]
        case allow_rename=
            printf "$argv[1]%s\n" true false
        case log_level=
            printf "$argv[1]%s\n" info warn error debug trace
        case sys=
            printf "$argv[1]%s\n" systemd initd upstart launchd null
        case network=
            echo $argv[1]auto
            for interface in /sys/class/net/*
                set interface (string replace -r '.*/' '' -- $interface)
                test $interface = lo; or echo $argv[1]$interface
            end
    end
end

# Prints the subjects of help: a category, or the words of a command.
function _ravctl_help
    test $argv[1] -eq 2; and printf '%s\n' $_ravctl_subjects
    for row in (string split -n \n -- $_ravctl_commands)
        set -l parts (string split ' ' -- (string split -f 1 : -- $row))
        if test $argv[1] -eq 2
            echo $parts[1]
        else if test $argv[1] -eq 3 -a "$parts[1]" = "$argv[2]" -a (count $parts) -eq 2
            echo $parts[2]
        end
    end
end

function _ravctl_complete
    set -l typed (commandline -opc)[2..]
    set -l last (commandline -ct)
    set -l count (count $typed)
    for row in (string split -n \n -- $_ravctl_commands)
        set -l fields (string split : -- $row)
        set -l parts (string split ' ' -- $fields[1])
        if test $count -eq 0
            echo $parts[1]
            continue
        end
        test "$typed[1]" = $parts[1]; or continue
        if test (count $parts) -eq 2
            if test $count -eq 1
                echo $parts[2]
                continue
            end
            test "$typed[2]" = $parts[2]; or continue
        end
        set -l keys (string split -n ' ' -- $fields[3])
        set -l key (string replace -r '=.*' = -- $last)
        if test $fields[2] = help
            _ravctl_help (math $count + 1) "$typed[2]"
        else if test -n "$fields[2]" -a $count -eq (count $parts)
            test $fields[2] = new; or _ravctl_profiles $fields[2]
        else if contains -- $key $keys; and string match -q '*=*' -- $last
            _ravctl_values $key
        else
            set -l given (string replace -r '=.*' = -- $typed[(math (count $parts) + 1)..])
            for word in $keys $_ravctl_modes
                contains -- $word $given; or echo $word
            end
        end
        return 0
    end
end

complete -c ravctl -c ravctl-exit -c ravctl-json -f -a '(_ravctl_complete)'
