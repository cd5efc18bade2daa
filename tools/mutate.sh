#!/bin/sh
# Makes mutants of a copy of the tree, one at a time, and checks that the tests notice each of them. A mutant is the
# tree with one small mistake, which a seed chooses (see tools/mutation/main.cpp). `./dev mutate` calls this script.
#
# Three kinds of tests may notice a mutant, in this order:
#   - the tests of its subject (base_test for src/base, and so on)
#   - the transcripts of the whole program
#   - the tests of its subject under the sanitizers
# A mutant that passes all of them survives, unless the object code of the release is the same as without the mistake. A
# mutant that does not compile is counted apart, and no other one is drawn in its place. build/mutate/results gets a
# line for each mutant.
set -eu
cd "$(dirname "$0")/.."
. tools/common.sh

usage() { say 'Usage: sh tools/mutate.sh FROM TO    (two numbers: the first and the last seed)'; }

if asks_for_help "$@"; then usage && exit; fi
[ $# -eq 2 ] || {
  usage >&2
  exit 2
}
from=$1 to=$2
work=${RAVCTL_MUTATE_DIR:-$PWD/build/mutate}
tree=$work/tree original=$work/original
results=$work/results

# Copies the tree twice: `original` keeps it, `tree` gets the mistakes. An unchanged file keeps its modification time.
copy_tree() {
  rm -rf "$original"
  mkdir -p "$original" "$tree"
  tar -cf - --exclude=./build --exclude=./.git . | tar -xf - -C "$original"
  (cd "$original" && find . -type f) | while read -r name; do restore "$name"; done
}

restore() {
  cmp -s "$original/$1" "$tree/$1" || {
    mkdir -p "$(dirname "$tree/$1")"
    cp "$original/$1" "$tree/$1"
  }
}

# Builds every test program, and notes how long each runs without a mistake. A program is named by its path below
# build/, which begins with its preset.
prepare() {
  copy_tree
  (
    cd "$tree"
    configure debug '-DCMAKE_CXX_FLAGS_DEBUG=-O0 -w'
    configure asan -DCMAKE_CXX_FLAGS_DEBUG=-w
    build debug mutate
  )
  for program in debug/tests/transcript_test \
    $(for subject in base json log command profiles service; do
      say "debug/testing/${subject}_test" "asan/testing/${subject}_test"
    done); do
    builds "$program" || die "$program cannot be built: $work/build.log"
    began=$(date +%s)
    passes "$program" 1200 || die "$program fails without a mistake: $work/test.log"
    say $((30 + 5 * ($(date +%s) - began))) >"$(patience_of "$program")"
  done
  cp "$tree/build/debug/tools/mutation/mutate" "$work/mutate"
}

patience_of() { say "$work/$(say "$1" | tr / -).patience"; }

# builds PROGRAM: also builds ravctl, because some tests start it.
builds() {
  cmake --build "$tree/build/${1%%/*}" --parallel "$jobs" --target "${1##*/}" ravctl >"$work/build.log" 2>&1
}

# passes PROGRAM SECONDS: runs it in the copy and writes its output to test.log. The status is 137 after that many
# seconds.
passes() {
  (
    cd "$tree/build/${1%%/*}"
    limit='prlimit --as=8589934592'
    [ "${1%%/*}" != asan ] || limit="env"  # sanitizers reserve more address space than any limit allows
    exec $limit timeout -s KILL "$2" "${1#*/}" --gtest_fail_fast --gtest_brief=1
  ) >"$work/test.log" 2>&1 </dev/null
}

# object_code COMPILER [FLAG...]: prints a checksum of the object code of every source that includes $file.
object_code() {
  find "$tree"/src -name '*.cpp' ! -name '*_test.cpp' | sort | while read -r unit; do
    "$@" -MM "$unit" | grep -qF "$tree/$file" || continue
    exceptions=
    ! grep -qF 'catch (' "$unit" || exceptions=-fexceptions  # as in CMakeLists.txt
    "$@" ${exceptions:+"$exceptions"} -c "$unit" -o "$work/unit.o" || say 'does not compile'
    cksum <"$work/unit.o"
  done
}

release_code() {
  object_code g++ -std=c++17 -O2 -DNDEBUG -fno-exceptions -fPIC -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64 \
    -D_FORTIFY_SOURCE=2 -w "-I$tree/src"
}

# Prints the name of the first test that failed.
first_failure() {
  sed -n 's/^\[  FAILED  \] \([^ ,]*\).*/\1/p' "$work/test.log" | head -n 1
}

# judge FILE: prints the verdict on the mutant in the copy. FILE holds its mistake.
judge() {
  subject=${1#src/}
  subject=${subject%%/*}
  for program in "debug/testing/${subject}_test" debug/tests/transcript_test "asan/testing/${subject}_test"; do
    builds "$program" || {
      say 'not-compiled'
      return
    }
    status=0
    passes "$program" "$(cat "$(patience_of "$program")")" || status=$?
    case $status in
      0) ;;
      137) say "hung $program" && return ;;
      *) say "caught $program $(first_failure)" && return ;;
    esac
  done
  with=$(release_code)
  restore "$1"
  if [ "$with" = "$(release_code)" ]; then say 'same-object'; else say 'SURVIVED'; fi
}

prepare
seed=$from
while [ "$seed" -le "$to" ]; do
  mistake=$("$work/mutate" "$tree" "$seed")
  file=${mistake%%:*}
  verdict=$(judge "$file")
  restore "$file"
  say "$seed ${verdict%% *} $mistake | $verdict" | tee -a "$results"
  seed=$((seed + 1))
done
awk '{ n[$2]++; all++ }
  END {
    noticed = n["caught"] + n["hung"]
    judged = all - n["not-compiled"] - n["same-object"]
    printf "%d mistakes: %d caught, %d hung, %d did not compile, %d make the same object code, %d survived\n", all,
      n["caught"], n["hung"], n["not-compiled"], n["same-object"], n["SURVIVED"]
    printf "noticed: %.1f %% of those that compile and differ\n", judged ? 100 * noticed / judged : 100
  }' "$results"
