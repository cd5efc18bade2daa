#!/bin/sh
# The steps of `./dev check` and `./dev ci`, each a function; `sh tools/steps.sh --help` lists them. dev installs the
# packages that a step needs, and shows the output of a step that fails.
set -eu
cd "$(dirname "$0")/.."
. tools/common.sh

usage() {
  cat <<'TEXT'
Usage: sh tools/steps.sh STEP [WORD...]

Steps of ./dev check: format tidy layers headers promises scripts manuals tree
Steps of ./dev ci:    clang asan tsan valgrind ansible model torture interleavings s390x aarch64 i386
                      package bench
                      sequences [SECONDS [SEED]]
                      fuzz [SECONDS [TARGET...]]
                      fuzz --sitting SECONDS [TARGET...]
                      fuzz --keep [TARGET...]
                      fuzz --totals
                      anywhere [PLACE...]
Step of ./dev coverage: coverage [--mcdc]

A step installs nothing. Steps that run tests leave counts in the folder that RESULTS names (build/results/steps).
TEXT
}

# sources PATTERN...: prints the paths of our files whose names match.
sources() {
  for pattern in "$@"; do
    find src testing tests bench fuzz tools -type f -name "$pattern"
  done | sort
}

# ---- check ----

format() { sources '*.h' '*.cpp' '*.c' | xargs clang-format --dry-run -Werror; }

# Checks the program and the code that tests share with nearly every check, and the tests with those that are quick
# and that judge style (tests/.clang-tidy).
tidy() {
  configure release
  mkdir -p build/tidy
  # clang-tidy cannot read a precompiled header of g++.
  sed 's/ -Winvalid-pch//; s/ -include [^ ]*cmake_pch\.hxx//' build/release/compile_commands.json \
    >build/tidy/compile_commands.json
  sources '*.cpp' | grep -E '^(src|testing)/' | grep -v '_test\.cpp$' |
    xargs -P "$jobs" -n 1 clang-tidy --quiet -p build/tidy
  sources '*.cpp' | grep -E '^tests/|_test\.cpp$' |
    xargs -P "$jobs" -n 1 clang-tidy --quiet -p build/tidy --config-file=tests/.clang-tidy
}

layers() {
  configure release
  build release layers_test
  ctest --test-dir build/release --no-tests=error --output-on-failure -R ^layers_test/
}

# Each header includes everything that it needs, so it compiles alone.
headers() {
  sources '*.h' | xargs -P "$jobs" -I '{}' \
    g++ -std=c++17 -Wall -Wextra -Werror -Isrc -I. -fsyntax-only -x c++ -include '{}' /dev/null
}

# Each sentence in the comments of the headers has a test.
promises() { python3 -I -B tools/promises.py; }

scripts() {
  find . \( -name build -o -name .git \) -prune -o -type f -print | while read -r file; do
    IFS= read -r first <"$file" || true
    case $first in '#!'*sh) say "$file" ;; esac
  done 2>/dev/null | xargs shellcheck -x
}

# mandoc and man accept the manuals without a warning. The manuals that ours refer to may be missing on this machine.
manuals() {
  command -v mandoc
  command -v man
  complaints=$(
    cd man
    mandoc -T lint ./*.[1-9] 2>/dev/null | grep -v 'STYLE: referenced manual not found'
    for manual in *.[1-9]; do
      LC_ALL=C.UTF-8 MANROFFSEQ='' MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 -Z "./$manual" 2>&1 >/dev/null |
        sed "s/^/$manual: /"
    done
  ) || true
  say "$complaints"
  [ -z "$complaints" ]
}

# The checkout holds no leftover files, no binaries and no files in unexpected places.
tree() { sh tools/tree.sh; }

# ---- ci ----

# The second compiler builds everything without a warning. It runs no tests; those have run with the first compiler.
clang() {
  configure clang
  build clang all
}

asan() {
  configure asan
  build asan all
  export ASAN_OPTIONS=detect_leaks=1:detect_stack_use_after_return=1:strict_string_checks=1
  export UBSAN_OPTIONS=print_stacktrace=1
  run_tests asan build/asan
}

# Only the subjects that use threads.
tsan() {
  configure tsan
  build tsan base_test json_test log_test ravctl hip-standin
  export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
  run_tests tsan build/tsan --tests-regex '^(base|json|log)_test/'
}

# The transcripts run the program under valgrind. The debug build links it dynamically, as valgrind needs.
valgrind() {
  configure debug
  build debug ravctl hip-standin transcript_test
  export RAVCTL_EMULATOR="$PWD/tools/under-valgrind"
  rm -rf build/debug/made/valgrind
  mkdir -m 1777 build/debug/made/valgrind
  run_tests valgrind build/debug --tests-regex ^transcript_test/ || {
    cat build/debug/made/valgrind/log.* >&2
    return 1
  }
}

# The tests of the Ansible role in docs/examples. `./dev test` runs most of them only with --long.
ansible() {
  configure release
  build release ansible_test
  # The fleet of fifty hosts takes minutes, so only ./dev test --long plays it.
  RAVCTL_LONG=1 run_tests ansible build/release --tests-regex ^ansible_test/ --exclude-regex Fifty
}

# fuzz [SECONDS [TARGET...]]: runs each target for that many seconds, by default 10. With RAVCTL_LONG set it runs each
# for a minute or a million inputs. A run starts from the seeds in the tree and from the inputs that earlier runs left
# in build/fuzz/new/. It writes a failing input there, too.
fuzz() {
  case ${1-} in
    --sitting | --totals | --keep)
      option=${1#--}
      shift
      "fuzz_$option" "$@"
      return
      ;;
  esac
  seconds=${1-${RAVCTL_LONG:+60}}
  [ $# -eq 0 ] || shift
  build_targets "$@"
  # As many at once as there are processors.
  rm -f build/fuzz/new/*.passed
  running=0
  for subject in $subjects; do
    (
      fuzz_one "$subject" "${seconds:-10}" "${RAVCTL_LONG:+1000000}" 10
      say "fuzz_$subject: $(grep '^Done' "$said")" | tee "build/fuzz/new/$subject.passed"
    ) &
    running=$((running + 1))
    [ $((running % jobs)) -ne 0 ] || wait
  done
  wait
  passed=$(find build/fuzz/new -name '*.passed' | wc -l)
  failed=$((running - passed))
  say "$passed $failed 0" >"$RESULTS/fuzz.count"
  [ "$failed" -eq 0 ]
}

# fuzz --sitting SECONDS [TARGET...]: continues each target for that many seconds, until it has reached the limits of
# tools/sittings.awk. Appends a row to fuzz/sittings.tsv for each run; its seconds are processor time. An input has a
# minute, since the run may have to wait for a processor.
fuzz_sitting() {
  seconds=$1
  shift
  build_targets "$@"
  revision=$(git rev-parse --short HEAD)
  git diff --quiet HEAD -- CMakeLists.txt cmake fuzz/*.cpp fuzz/*.h src testing || revision=$revision+
  failed=0
  for subject in $subjects; do
    awk -v left="$subject" -f tools/sittings.awk fuzz/sittings.tsv >"build/fuzz/new/$subject.left"
    read -r runs_left seconds_left <"build/fuzz/new/$subject.left"
    if [ "$runs_left" -eq 0 ] || [ "$seconds_left" -eq 0 ]; then continue; fi
    [ "$seconds_left" -lt "$seconds" ] || seconds_left=$seconds
    findings=0
    fuzz_one "$subject" "$seconds_left" "$runs_left" 60 || findings=1
    failed=$((failed + findings))
    awk -v start="$(date -u +%Y-%m-%d)\t$revision\t$subject" -v findings="$findings" '
      function word_after(label, i) {
        for (i = 1; i < NF; i++) if ($i == label) return $(i + 1)
        return 0
      }
      /^#[0-9].* cov: / { edges = word_after("cov:"); features = word_after("ft:") }
      $1 == "stat::number_of_executed_units:" { executions = $2 }
      /^[0-9]+m[0-9.]+s / { split($1 "m" $2, part, /[ms]+/); used = 60 * (part[1] + part[3]) + part[2] + part[4] }
      END { printf "%s\t%d\t%d\t%d\t%d\t%d\n", start, executions, used + 0.5, edges, features, findings }
    ' "$said" "build/fuzz/new/$subject.times" | tee -a fuzz/sittings.tsv
  done
  [ "$failed" -eq 0 ]
}

# fuzz --totals: prints what the sittings of fuzz/sittings.tsv have reached.
fuzz_totals() { awk -v targets="$(all_subjects)" -f tools/sittings.awk fuzz/sittings.tsv; }

# fuzz --keep [TARGET...]: adds the inputs of build/fuzz/new/ that reach new edges to the seeds in the tree, as long as
# a target has at most 300 seeds and 20,000 bytes. Every build runs all prefixes of the seeds, so they must stay few and
# short. A target that uses files takes about a millisecond for each prefix, so its seeds have at most 4,000 bytes.
fuzz_keep() {
  build_targets "$@"
  for subject in $subjects; do
    [ -d "build/fuzz/new/$subject" ] || continue
    case $subject in json | level | time | url | words) most=20000 ;; *) most=4000 ;; esac
    # The merge writes only to a copy, and the copy replaces the seeds if it is small enough.
    merged=build/fuzz/new/$subject.merged
    rm -rf "$merged"
    cp -r "fuzz/corpus/$subject" "$merged"
    "build/fuzz/fuzz/fuzz_$subject" -merge=1 -use_counters=0 -max_len=200 "$PWD/$merged" "$PWD/build/fuzz/new/$subject" \
      >"$merged.log" 2>&1 || die "the inputs of $subject cannot be merged: see $merged.log"
    count=$(find "$merged" -type f | wc -l)
    bytes=$(find "$merged" -type f -exec cat {} + | wc -c)
    if [ "$count" -le 300 ] && [ "$bytes" -le "$most" ]; then
      cp -n "$merged"/* "fuzz/corpus/$subject/"
      say "fuzz_$subject: $count seeds of $bytes bytes"
    else
      say "fuzz_$subject: $count seeds of $bytes bytes would be too many; none is added"
    fi
  done
}

# all_subjects: prints the names of the targets.
all_subjects() {
  for source in fuzz/*.cpp; do
    [ "$source" = fuzz/standalone_main.cpp ] || basename "$source" .cpp
  done
}

# build_targets [TARGET...]: sets $subjects to these targets, or to all, and builds them.
build_targets() {
  subjects=$*
  [ $# -gt 0 ] || subjects=$(all_subjects)
  # The files are in memory, because a run would spend its time in waiting for the disk.
  [ ! -d /dev/shm ] || export ZUV_TMP_DIR=/dev/shm/
  configure fuzz
  # shellcheck disable=SC2046,SC2086 # target names
  build fuzz $(printf 'fuzz_%s ' $subjects)
  mkdir -p build/fuzz/new
}

# fuzz_one TARGET SECONDS [RUNS] TIMEOUT: the output goes to the file $said, and is shown without its progress lines if
# the run failed. The processor time goes to build/fuzz/new/TARGET.times.
fuzz_one() {
  new=$PWD/build/fuzz/new # absolute, since a target may move to a private host
  mkdir -p "$new/$1"
  said=build/fuzz/new/$1.log
  ( # the only child of this shell
    verdict=0
    "build/fuzz/fuzz/fuzz_$1" "-max_total_time=$2" "-runs=${3:--1}" "-timeout=$4" "-dict=$PWD/fuzz/$1.dict" \
      -print_final_stats=1 "-artifact_prefix=$new/$1-" "$new/$1" "$PWD/fuzz/corpus/$1" >"$said" 2>&1 || verdict=1
    times >"$new/$1.times"
    exit "$verdict"
  ) || {
    grep -avE '^#[0-9]+' "$said"
    say "fuzz_$1 FAILED; its input is in build/fuzz/new/"
    return 1
  }
}

# machine PRESET QEMU: runs tests for another machine, under qemu if the kernel cannot execute them. A program of this
# machine makes the private host, because qemu offers no namespaces. Each test program runs all its tests in one
# process, and the list for count_tests.py names that process as CTest would name it.
machine() {
  name=$1 qemu=$2 made=$PWD/build/$1/made
  configure release
  build release private-host hip-standin
  configure "$name"
  # shellcheck disable=SC2046,SC2086 # target names
  build "$name" $(printf '%s_test ' $machine_subjects)
  # A kernel that executes these programs itself needs no emulator. Most 64-bit kernels execute those of i386.
  ! "build/$name/testing/base_test" --gtest_list_tests >/dev/null 2>&1 || qemu='env'
  set --
  say '<testsuite>' >"$RESULTS/$name.xml"
  for subject in $machine_subjects; do
    report=$made/${subject}_test-all.xml
    rm -f "$report"
    status=run
    RAVCTL_MADE="$made" timeout -k 10 600 build/release/testing/private-host --build "build/$name" -- \
      "$qemu" "$PWD/build/$name/testing/${subject}_test" --gtest_brief=1 "--gtest_filter=-$not_emulated" \
      "--gtest_output=xml:$report" || { say "${subject}_test ended with $?" && status=fail; }
    say "<testcase classname=\"$name\" name=\"${subject}_test/all\" status=\"$status\"/>" >>"$RESULTS/$name.xml"
    [ ! -f "$report" ] || set -- "$@" "$report"
  done
  say '</testsuite>' >>"$RESULTS/$name.xml"
  count_tests "$name" "$RESULTS/$name.xml" "$@"
}
machine_subjects='base json log profiles'
# These tests are left out. Some execute a program of the other machine, which this kernel refuses; others ask for
# stacks that fit into no address space, which takes qemu minutes, or for all memory, which qemu does not limit. qemu
# does not know openat2, so the program walks each path, and the tests of the second list, which name or count the calls
# of the program, see more of them.
not_emulated='*DeathTest.*:ProcessTest.*:*SystemGivesNoThread:*SystemCannotCreateAThread:*StopDuringAFailingStart*'
not_emulated="$not_emulated:*.AFaultAnywhere*:*.AFaultDuring*:*.AFaultWhileWriting*:*.AFailedCloseAfterTheCut*"
not_emulated="$not_emulated:*.AFailedSyncOrClose*:*.ADirectoryThatTakesThePlaceOfTheOpen*"
not_emulated="$not_emulated:*.APathWithoutLinksIsOpenedWithTwoCalls:*.APathOfADirectoryWithoutLinks*"
not_emulated="$not_emulated:*.AFirstLineIsReadInFourCalls"
not_emulated="$not_emulated:*.AnEditSucceedsDespiteLimitsOfTheSystem*:*.MarkingAndRemovingNeedNoMemory"
not_emulated="$not_emulated:*.WhatLiesInTheWayIsRemovedEvenIfTheDirectoryCannotBeLocked"

# A big-endian machine whose char is unsigned.
s390x() { machine s390x qemu-s390x-static; }
# A machine whose char is unsigned and whose memory is weakly ordered.
aarch64() { machine aarch64 qemu-aarch64-static; }
# A 32-bit machine whose processor computes with more bits than a double has.
i386() { machine i386 qemu-i386-static; }

# Measures the lines and branches of each subject that the tests reach. Each test program runs all its tests in one
# process. Every instrumented process keeps the profiles up to date while it runs. That includes forked children and the
# program in the transcripts.
coverage() {
  kind=coverage llvm=
  if [ "${1-}" = --mcdc ]; then kind=mcdc llvm=-19; fi
  subjects='base json log command profiles service'
  configure $kind
  # shellcheck disable=SC2046,SC2086 # target names
  build $kind ravctl private-host transcript_test $(printf '%s_test ' $subjects)
  cd build/$kind
  # Other users run the program too, so they must be able to write the profile.
  rm -rf made/profiles
  umask 0
  mkdir made/profiles
  pool=%m%c
  [ $kind = coverage ] || pool=%4m
  export LLVM_PROFILE_FILE="$PWD/made/profiles/$pool.profraw"
  ./ravctl usage >usage.txt
  if [ $kind = mcdc ]; then
    while [ "$(find made/profiles -type f | wc -l)" -lt 4 ]; do ./ravctl usage >usage.txt; done
    # The profiles disturb these tests: in a root of their own, without memory, and without room in files.
    GTEST_FILTER='-*.TheRootMayBeTheLockDirectory:*.ListProfilesUnderAnyMemoryLimit*:*.AFileSizeLimitIsAFailedWrite*'
    export GTEST_FILTER="$GTEST_FILTER:*.AnAllocationBeyondTheLimit*"
  fi
  umask 022
  status=0
  # shellcheck disable=SC2046,SC2086
  for program in $(printf 'testing/%s_test ' $subjects) tests/transcript_test; do
    timeout -k 10 600 "$program" --gtest_brief=1 >last.log 2>&1 || {
      cat last.log
      status=1
    }
  done
  "llvm-profdata$llvm" merge -o profile made/profiles/*.profraw
  # shellcheck disable=SC2046,SC2086
  set -- ravctl $(printf -- '-object testing/%s_test ' $subjects) -instr-profile profile
  if [ $kind = mcdc ]; then
    "llvm-cov$llvm" export -skip-functions "$@" 2>messages.log | python3 ../../tools/mcdc.py unshown || status=1
    say 'build/mcdc/unshown lists the conditions that no test showed to decide.'
    return "$status"
  fi
  llvm-cov report "$@" 2>messages.log | sed -E 's#^/?([^ ]*/)?(src/([a-z]+/)+[^/ ]+) #\2 #' | awk -f ../../tools/coverage.awk || status=1
  llvm-cov export -format=lcov "$@" 2>messages.log | awk -f ../../tools/unreached.awk >unreached
  say 'build/coverage/unreached lists the lines and branches that no test reached.'
  return "$status"
}

package() { sh tools/package.sh --brief; }

# Lets Spin check the model of an edit.
model() { sh tools/model.sh; }

# tables_of NAME FIGURES: runs the tests of NAME_test, and prints tables of the figures that they write to a file.
tables_of() {
  tested=$1 figures=$2
  configure release
  build release "${tested}_test"
  rm -f "$figures"
  verdict=0
  run_tests "$tested" build/release --tests-regex "^${tested}_test/" || verdict=1
  sort "$figures" | awk -F ' [|] ' -f "tools/$tested.awk"
  return "$verdict"
}

# Makes every system call of every command fail with every error that it can give, and kills every command before each
# call that changes the disk.
torture() {
  export RAVCTL_TORTURE=whole RAVCTL_TORTURE_FIGURES="$PWD/build/release/made/torture-figures"
  tables_of torture "$RAVCTL_TORTURE_FIGURES"
}

# Runs every pair of commands, and every command with every attack, in many orders of their system calls. With
# RAVCTL_LONG set it runs all orders.
interleavings() {
  export RAVCTL_INTERLEAVINGS=more RAVCTL_INTERLEAVINGS_FIGURES="$PWD/build/release/made/interleavings-figures"
  tables_of interleavings "$RAVCTL_INTERLEAVINGS_FIGURES"
}

# sequences [SECONDS [SEED]]: compares the program with its model, from a fixed seed by default.
sequences() {
  configure release
  build release ravctl private-host interrupt
  build/release/testing/private-host -- python3 -B /.private-host/source/tests/sequences/sequences.py \
    --interrupt /.private-host/build/tests/sequences/interrupt \
    --seconds "${1-40}" --seed "${2-1}"
}

# anywhere [PLACE...]: copies the built tree to each place and runs its tests there. By default it takes the folder of an
# ordinary user, where most mistakes showed; with RAVCTL_LONG set it takes every place.
anywhere() {
  configure release
  build release all
  [ $# -gt 0 ] || if [ -n "${RAVCTL_LONG-}" ]; then set -- all; else set -- user; fi
  sh tools/anywhere.sh "$@"
}

bench() {
  configure release -DRAVCTL_BENCH=ON
  build release all
  bench/run.sh --brief build/release
}

case ${1-} in
  -h | --help) usage ;;
  format | tidy | layers | headers | promises | scripts | manuals | tree | clang | asan | tsan | valgrind | ansible | fuzz | model | \
    torture | interleavings | sequences | anywhere | s390x | aarch64 | i386 | package | bench | coverage)
    step=$1
    shift
    if [ -z "${RESULTS-}" ]; then start_results steps; fi
    "$step" "$@"
    ;;
  *)
    usage >&2
    exit 2
    ;;
esac
