#!/bin/sh
# Makes mutants of copies of the tree and checks that the tests notice each of them. A mutant is the tree with one small
# mistake, which a seed chooses (see tools/mutation/main.cpp). `./dev mutate` calls this script.
#
# There is one worker for each processor. Each has its own copy of the tree with its own builds, takes the next seed
# that nobody has taken, and rebuilds what the mistake changes. These tests may notice a mutant, in this order:
#   - the suites of the test file beside the changed file
#   - the other tests of its subject (base_test for src/base, and so on)
#   - the transcripts of the whole program
#   - the tests of its subject under the sanitizers
# A failure counts if it occurs twice, because a busy machine can make a good program fail once. A mutant that passes
# all tests survives, unless the object code of the release is the same as without the mistake. A mutant that does not
# compile is counted apart, and no other one is drawn in its place. build/mutate/results gets a line for each mutant,
# with the seconds that it took.
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
work=$PWD/build/mutate
original=$work/original
taken=$work/taken
results=$work/results
# No test program and no compiler runs for longer than this, or takes more address space or memory.
longest=3600 most_mebibytes=8192

revision() {
  hash=$(git describe --always 2>/dev/null) || hash=unknown
  [ -z "$(git status --porcelain 2>/dev/null)" ] || hash=$hash-dirty
  say "$hash"
}

# restore FILE: makes it the same as in $original. An unchanged file keeps its modification time.
restore() {
  cmp -s "$original/$1" "$tree/$1" || {
    mkdir -p "$(dirname "$tree/$1")"
    cp "$original/$1" "$tree/$1"
  }
}

# Prepares the copy of a worker. The test programs are built when a mutant needs them; that mutant takes longer. A
# program is named by its path below build/, which begins with its preset.
prepare() {
  rm -f "$mine"/*.patience
  (cd "$original" && find . -type f) | while read -r name; do restore "$name"; done
  (cd "$tree" && find . -path ./build -prune -o -type f -print) | while read -r name; do
    [ -f "$original/$name" ] || rm "$tree/$name"
  done
  if command -v ld.lld >/dev/null; then linker=lld; else linker=bfd; fi
  (
    cd "$tree"
    # Mutants in headers need the precompiled headers of the tests more than ccache.
    configure debug '-DCMAKE_CXX_FLAGS_DEBUG=-O0 -w' "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=$linker" \
      -DCMAKE_DISABLE_PRECOMPILE_HEADERS=OFF
    configure asan -DCMAKE_CXX_FLAGS_DEBUG=-w "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=$linker"
  )
  builds debug/tools/mutation/mutate || die "mutate cannot be built: $mine/build.log"
}

# try_first PROGRAM FILE: builds a program without the mistake in FILE, once, and notes how long it runs.
try_first() {
  [ ! -f "$(patience_of "$1")" ] || return 0
  cp "$tree/$2" "$mine/mistake"
  restore "$2"
  builds "$1" || die "$1 cannot be built: $mine/build.log"
  began_run=$(date +%s)
  passes "$1" '*' "$longest" || die "$1 fails without a mistake: $mine/test.log"
  say $((30 + 5 * ($(date +%s) - began_run))) >"$(patience_of "$1")"
  cp "$mine/mistake" "$tree/$2"
}

patience_of() { say "$mine/$(say "$1" | tr / -).patience"; }

# builds PROGRAM: also builds ravctl, because some tests start it.
builds() {
  timeout "$longest" cmake --build "$tree/build/${1%%/*}" --parallel 1 --target "${1##*/}" ravctl \
    >"$mine/build.log" 2>&1
}

# passes PROGRAM FILTER SECONDS: runs the tests that GoogleTest's filter names and writes the output to test.log. The
# status is 137 after that many seconds.
passes() {
  (
    cd "$tree/build/${1%%/*}"
    # Sanitizers reserve more address space than any limit allows, so they count what they map.
    export ASAN_OPTIONS="mmap_limit_mb=$most_mebibytes"
    limit=$((most_mebibytes * 1048576))
    [ "${1%%/*}" != asan ] || limit=unlimited
    exec prlimit --as="$limit" timeout -s KILL "$3" "${1#*/}" --gtest_filter="$2" --gtest_fail_fast --gtest_brief=1
  ) >"$mine/test.log" 2>&1 </dev/null
}

# suites_beside FILE: prints a filter for the suites in the test file beside FILE, or nothing.
suites_beside() {
  tests=$tree/${1%.*}_test.cpp
  [ ! -f "$tests" ] || sed -nE 's/^TEST(_F|_P)?\(([A-Za-z0-9_]+),.*/\2.*:*\/\2.*/p' "$tests" | sort -u | paste -sd:
}

# Prints the name of the first test that failed.
first_failure() {
  sed -n 's/^\[  FAILED  \] \([^ ,]*\).*/\1/p' "$mine/test.log" | head -n 1
}

# outcome PROGRAM FILTER: runs tests and prints "passed", "hung" or "failed".
outcome() {
  status=0
  passes "$1" "$2" "$(cat "$(patience_of "$1")")" || status=$?
  case $status in
    0) say passed ;;
    137) say hung ;;
    *) say failed ;;
  esac
}

# judge FILE: prints the verdict on the mutant in the copy. FILE holds its mistake.
judge() {
  subject=${1#src/}
  subject=${subject%%/*}
  beside=$(suites_beside "$1")
  of_subject=testing/${subject}_test
  for run in ${beside:+"debug/$of_subject $beside"} "debug/$of_subject *${beside:+-$beside}" \
    'debug/tests/transcript_test *' "asan/$of_subject *"; do
    program=${run%% *}
    try_first "$program" "$1"
    builds "$program" || {
      say 'not-compiled'
      return
    }
    outcome=$(outcome "$program" "${run#* }")
    [ "$outcome" != failed ] || outcome=$(outcome "$program" "${run#* }")
    case $outcome in
      hung) say "hung $program" && return ;;
      failed) say "caught $program $(first_failure)" && return ;;
    esac
  done
  if same_object_code "$1"; then say 'same-object'; else say 'SURVIVED'; fi
}

# object_code TREE SOURCE: prints a checksum of the object code that the release would have. The command is the same in
# every tree.
object_code() (
  cd "$1"
  exceptions=-fno-exceptions
  ! grep -qF 'catch (' "$2" || exceptions=-fexceptions # as in CMakeLists.txt
  timeout "$longest" g++ -std=c++17 -O2 -DNDEBUG "$exceptions" -fPIC -D_FILE_OFFSET_BITS=64 \
    -D_TIME_BITS=64 -D_FORTIFY_SOURCE=2 -w -Isrc -c "$2" -o "$mine/unit.o" || say "$1 does not compile"
  cksum <"$mine/unit.o"
)

# same_object_code FILE: true if no source that includes FILE has other object code than in $original.
same_object_code() {
  (cd "$original" && find src -name '*.cpp' ! -name '*_test.cpp') | sort >"$mine/sources"
  while read -r source; do
    [ "$source" = "$1" ] || {
      case $1 in *.cpp) continue ;; esac
      (cd "$original" && g++ -std=c++17 -Isrc -MM "$source") | grep -qF "$1" || continue
    }
    [ "$(object_code "$original" "$source")" = "$(object_code "$tree" "$source")" ] || return 1
  done <"$mine/sources"
}

# work_as NUMBER: a worker judges the mutants of the seeds that no other worker has taken.
work_as() {
  mine=$work/$1
  tree=$mine/tree
  mkdir -p "$tree"
  prepare
  seed=$from
  while [ "$seed" -le "$to" ]; do
    if mkdir "$taken/$seed" 2>/dev/null; then
      began=$(date +%s)
      mistake=$("$tree/build/debug/tools/mutation/mutate" "$tree" "$seed")
      verdict=$(judge "${mistake%%:*}")
      restore "${mistake%%:*}"
      say "$seed ${verdict%% *} $(seconds_since "$began") $mistake | $verdict" | tee -a "$results"
    fi
    seed=$((seed + 1))
  done
}

sum_up() {
  sort -n -k 3 "$results" | awk '
    { n[$2]++; seconds[NR] = $3 }
    END {
      noticed = n["caught"] + n["hung"]
      judged = NR - n["not-compiled"] - n["same-object"]
      printf "%d mistakes: %d caught, %d hung, %d did not compile, %d make the same object code, %d survived\n", NR,
        n["caught"], n["hung"], n["not-compiled"], n["same-object"], n["SURVIVED"]
      printf "noticed: %.1f %% of those that compile and differ\n", judged ? 100 * noticed / judged : 100
      printf "median: %d seconds a mutant\n", seconds[int((NR + 1) / 2)]
    }'
}

revision=$(revision)
rm -rf "$original" "$taken" "$results"
mkdir -p "$original" "$taken"
tar -cf - --exclude=./build --exclude=./.git . | tar -xf - -C "$original"
workers=
for number in $(seq "$jobs"); do
  work_as "$number" &
  workers="$workers $!"
done
for worker in $workers; do
  wait "$worker" || die 'a worker stopped'
done
say "Revision $revision, seeds $from to $to"
sum_up
exit
