#!/bin/sh
# Finds files of a checkout that no developer wrote or meant to commit. It checks the files that git tracks and those
# that `git add` would take, and prints a line "PATH: WHAT IS WRONG" for each mistake. The exit status is 1 if there is
# one.
set -euf
# shellcheck source=tools/common.sh
. "$(dirname "$0")/common.sh"

usage() { say 'Usage: sh tools/tree.sh [FOLDER]    (by default the checkout of this script)'; }

if asks_for_help "$@"; then usage && exit; fi
cd "${1-$(dirname "$0")/..}"

# Each line has a folder and the names that its files may have. In both, * does not match a slash, and ** does.
known='
.                         *.md .clang-format .clang-tidy .gitignore CMakeLists.txt CMakePresets.json LICENSE dev
.ci                       expected-skips run
bench                     CMakeLists.txt *.cpp *.sh
bench/baseline            *.c
cmake/**                  *.cmake precompiled.cpp
completions               _ravctl ravctl.bash ravctl.fish
debian                    changelog control copyright rules watch *.lintian-overrides
debian/source             format lintian-overrides
debian/tests              control files profiles scripts
debian/upstream           metadata
docs                      *.md
docs/examples             *.md *.logrotate *.service *.sh *.timer ravctl-metrics
docs/examples/ansible     **/*.yml
docs/examples/demo-store  **
examples/**               CMakeLists.txt *.cpp *.h
fuzz                      CMakeLists.txt *.cpp *.h *.dict sittings.tsv corpus/*/*
man                       *.[1-8]
model                     *.pml
packaging                 ravctl.spec rpmlint.toml
packaging/apparmor        usr.bin.ravctl
packaging/examples        *.init
scripts                   check_ravctl ravctl-exit ravctl-json
src                       layers.txt **/*.cpp **/*.h
testing                   README.md .clang-tidy CMakeLists.txt **/*.cpp **/*.h
tests                     .clang-tidy
tests/**                  CMakeLists.txt *.cpp *.h
tests/ansible             *.py
tests/completion          *.py
tests/init_systems        *.sh booted-*
tests/promises            *.txt
tests/sequences           *.py
tests/transcripts         *.md *.transcript
tools                     *.awk *.py *.rc *.sh under-valgrind
tools/coverage            *.cpp
tools/mutation            CMakeLists.txt *.cpp *.h
'
# Files in this folder may hold any bytes.
any_bytes=fuzz/corpus
# The largest size of a file, in bytes.
most=400000

# The checkout may belong to another user than the one who checks it.
git() { command git -c safe.directory="$PWD" -c core.quotePath=true "$@"; }

# complain WHAT: prints a complaint for each path that it reads.
complain() { sed "s|\$|: $1|"; }

all_names() { git ls-files --cached --others --exclude-standard "$@"; }

odd_names() {
  all_names | grep -v '^[A-Za-z0-9._/-]*$' | complain 'the name holds more than letters, digits and . _ - /'
}

# files [PATTERN...]: prints the names, one a line. It leaves out odd names, and deleted files that git still tracks.
files() {
  all_names -- "$@" | grep '^[A-Za-z0-9._/-]*$' | sort -u | while IFS= read -r file; do
    [ ! -e "$file" ] && [ ! -L "$file" ] || printf '%s\n' "$file"
  done
}

unknown() {
  set -- .
  while read -r folder names; do
    for name in $names; do
      set -- "$@" ":(exclude,glob)$folder/$name"
    done
  done <<TABLE
$known
TABLE
  files "$@" | complain 'tools/tree.sh knows no such file'
}

ignored() {
  git ls-files --cached --ignored --exclude-per-directory=.gitignore | complain 'tracked, but .gitignore names it'
}

kinds_and_modes() {
  files | while IFS= read -r file; do
    if [ -L "$file" ] || [ ! -f "$file" ]; then
      complaint='no plain file'
    elif [ ! -s "$file" ]; then
      complaint='empty'
    else
      IFS= read -r first <"$file" || true # the last line may lack a newline
      complaint=
      case $first in
        '#!'*) [ -x "$file" ] || complaint='begins with #!, but is not executable' ;;
        *) [ ! -x "$file" ] || complaint='executable, but does not begin with #!' ;;
      esac
    fi
    [ -z "$complaint" ] || printf '%s: %s\n' "$file" "$complaint"
  done
}

large() {
  files | xargs stat -c '%s %n' | awk -v most="$most" '$1 > most { print $2 ": more than " most " bytes" }'
}

# git prints "i/lf w/lf attr/", a tab, and the name. The word behind w/ says how the lines of the file end.
binary() {
  git ls-files --eol --cached --others --exclude-standard -- . ":(exclude)$any_bytes" | sort -u | awk -F '\t' '
    $1 ~ / w\/-text/ { print $2 ": binary" }
    $1 ~ / w\/(crlf|mixed)/ { print $2 ": lines end with CR LF" }'
}

blanks() {
  git grep --untracked --no-color -lI '[[:blank:]]$' -- . ":(exclude)$any_bytes" |
    complain 'blanks at the end of a line'
}

[ -n "$(files)" ] || {
  echo 'tools/tree.sh: git tracks no file here' >&2
  exit 1
}
complaints=$(for rule in odd_names unknown ignored kinds_and_modes large binary blanks; do "$rule"; done) || true
printf '%s' "${complaints:+$complaints
}"
[ -z "$complaints" ]
