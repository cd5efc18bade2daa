# bash completion for ravctl(8), and for the scripts that take the same words.
#
# The completion reads the profile store itself. It never runs ravctl, because a listing may repair names on the disk.
# shellcheck shell=bash

# A line WORDS:THIRD:KEYS for each command. WORDS are the words of the command. THIRD is the kind of the word behind
# them: new is any text, named a profile, any a profile or the factory template, and help a subject of help. KEYS are
# the words that may follow.
_ravctl_commands='
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
_ravctl_modes='--quiet --verbose --json --text'
_ravctl_subjects='profile service list log support json internal'
_ravctl_store=/etc/zuv/profiles

# Sets _ravctl_line to the first non-empty line of a file. Bytes outside 33..126 are removed from both ends of each line
# first.
_ravctl_first_line() {
  local LC_ALL=C line count
  _ravctl_line=
  [[ -f $1 && -r $1 ]] || return 0
  for ((count = 0; count < 16; ++count)); do
    IFS= read -r -n 1024 line || [[ -n $line ]] || return 0
    line=${line#"${line%%[[:graph:]]*}"}
    _ravctl_line=${line%"${line##*[[:graph:]]}"}
    [[ -z $_ravctl_line ]] || return 0
  done <"$1"
}

# Adds the words that select a profile to _ravctl_words: the names in the store, the directories, and the words for the
# active profile; with "any" also the template. A user who may not read the names gets the directories.
_ravctl_profiles() {
  local dir
  for dir in "$_ravctl_store"/*/; do
    dir=${dir%/}
    [[ -d $dir && ! -L $dir ]] || continue
    _ravctl_first_line "$dir/profile_name"
    [[ -z $_ravctl_line ]] || _ravctl_words+=("$_ravctl_line")
    _ravctl_words+=("dir=${dir##*/}")
  done
  _ravctl_words+=(.current --active)
  [[ $1 != any ]] || _ravctl_words+=(.factory)
}

# Sets _ravctl_words to the values of a key, as whole words. Keys that take any text have no values.
_ravctl_values() {
  local interface
  case $1 in
    allow_rename=) _ravctl_words=("$1"{true,false}) ;;
    log_level=) _ravctl_words=("$1"{info,warn,error,debug,trace}) ;;
    sys=) _ravctl_words=("$1"{systemd,initd,upstart,launchd,null}) ;;
    network=)
      _ravctl_words=("$1auto")
      for interface in /sys/class/net/*; do
        [[ ! -e $interface || ${interface##*/} == lo ]] || _ravctl_words+=("$1${interface##*/}")
      done
      ;;
  esac
}

# Splits the line up to the cursor into words, and sets
# - _ravctl_typed to the words before the last one
# - _ravctl_last to the last word without its quotes
# - _ravctl_kept to the number of its first characters that readline keeps; readline replaces only the text behind an
#   open quote, or else behind a word break
# - _ravctl_quote to that open quote
_ravctl_take_apart() {
  local line=$1 breaks=$2 at c word='' began='' kept=0 quote=''
  _ravctl_typed=()
  for ((at = 0; at < ${#line}; ++at)); do
    c=${line:at:1}
    if [[ -n $quote ]]; then
      if [[ $c == "$quote" ]]; then
        quote=
      elif [[ $c == \\ && $quote == '"' && ${line:at+1:1} == [\$\`\"\\] ]]; then
        ((++at))
        word+=${line:at:1}
      else
        word+=$c
      fi
      continue
    fi
    case $c in
      [\'\"]) quote=$c began=1 kept=${#word} ;;
      \\)
        ((++at))
        word+=${line:at:1} began=1
        ;;
      [$' \t\n'])
        [[ -z $began ]] || _ravctl_typed+=("$word")
        word='' began='' kept=0
        ;;
      *)
        word+=$c began=1
        [[ $breaks != *"$c"* ]] || kept=${#word}
        ;;
    esac
  done
  _ravctl_last=$word _ravctl_kept=$kept _ravctl_quote=$quote
}

# Sets _ravctl_line to a text as it must be written on the line, behind the open quote if there is one.
_ravctl_quoted() {
  local text=$1
  case $_ravctl_quote in
    \') printf -v _ravctl_line %s "${text//\'/"'\\''"}" ;;
    \")
      text=${text//\\/\\\\}
      text=${text//\"/\\\"}
      text=${text//\$/\\\$}
      printf -v _ravctl_line %s "${text//\`/\\\`}"
      ;;
    *) printf -v _ravctl_line %q "$text" ;;
  esac
}

# Sets _ravctl_words to the words that may follow the typed ones.
_ravctl_candidates() {
  local words third keys first=${_ravctl_typed[1]-} second=${_ravctl_typed[2]-} count=${#_ravctl_typed[@]} taken word
  local -a parts
  while IFS=: read -r words third keys; do
    read -ra parts <<<"$words"
    [[ -n $words ]] || continue
    if ((count == 1)); then
      _ravctl_words+=("${parts[0]}")
      continue
    fi
    [[ $first == "${parts[0]}" ]] || continue
    if ((${#parts[@]} == 2)); then
      if ((count == 2)); then
        _ravctl_words+=("${parts[1]}")
        continue
      fi
      [[ $second == "${parts[1]}" ]] || continue
    fi
    taken=${#parts[@]}
    if [[ $third == help ]]; then
      _ravctl_help
    elif [[ -n $third ]] && ((count == taken + 1)); then
      [[ $third == new ]] || _ravctl_profiles "$third"
    elif [[ $_ravctl_last == *=* && " $keys " == *" ${_ravctl_last%%=*}= "* ]]; then
      _ravctl_values "${_ravctl_last%%=*}="
    else
      for word in $keys $_ravctl_modes; do
        [[ " ${_ravctl_typed[*]:taken+1} " == *" $word"* ]] || _ravctl_words+=("$word")
      done
    fi
    return
  done <<<"$_ravctl_commands"
}

# Sets _ravctl_words to the subjects of help: a category, or the words of a command.
_ravctl_help() {
  local words third keys
  ((count == 2)) && read -ra _ravctl_words <<<"$_ravctl_subjects"
  while IFS=: read -r words third keys; do
    read -ra parts <<<"$words"
    ((count == 2)) && _ravctl_words+=("${parts[0]-}")
    ((count == 3)) && [[ $second == "${parts[0]-}" ]] && _ravctl_words+=("${parts[1]-}")
  done <<<"$_ravctl_commands"
}

_ravctl() {
  local _ravctl_line _ravctl_last _ravctl_kept _ravctl_quote word
  local -a _ravctl_typed _ravctl_words=()
  local -A seen=()
  COMPREPLY=()
  _ravctl_take_apart "${COMP_LINE:0:COMP_POINT}" "${COMP_WORDBREAKS//[^=:]/}"
  _ravctl_candidates
  for word in "${_ravctl_words[@]}"; do
    [[ -n $word && $word == "$_ravctl_last"* && -z ${seen[$word]-} ]] || continue
    seen[$word]=1
    [[ $word != *= ]] || compopt -o nospace 2>/dev/null
    _ravctl_quoted "${word:_ravctl_kept}"
    COMPREPLY+=("$_ravctl_line")
  done
}

complete -F _ravctl ravctl ravctl-exit ravctl-json
