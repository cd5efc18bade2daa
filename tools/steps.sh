#!/bin/sh
# The steps of `./dev check` and `./dev ci`, one function each: sh tools/steps.sh NAME. What a step says is shown when it
# fails. dev has installed what they need.
set -eu
cd "$(dirname "$0")/.."
. tools/common.sh

# sources PATTERN...: our files of these names.
sources() {
  for pattern in "$@"; do
    find src testing tests bench fuzz tools -type f -name "$pattern"
  done | sort
}

# ---- check ----

format() { sources '*.h' '*.cpp' '*.c' | xargs clang-format --dry-run -Werror; }

# The program and what tests share; GoogleTest's macros are not worth the minutes.
tidy() {
  configure release
  sources '*.cpp' | grep -E '^(src|testing)/' | grep -v '_test\.cpp$' |
    xargs -P "$jobs" -n 1 clang-tidy --quiet -p build/release
}

layers() {
  configure release
  build release layers_test
  ctest --test-dir build/release --no-tests=error --output-on-failure -R ^layers_test/
}

# Each header says what it needs.
headers() {
  sources '*.h' | xargs -P "$jobs" -I '{}' \
    g++ -std=c++17 -Wall -Wextra -Werror -Isrc -I. -fsyntax-only -x c++ -include '{}' /dev/null
}

scripts() {
  find . \( -name build -o -name .git \) -prune -o -type f -print | while read -r file; do
    IFS= read -r first <"$file" || true
    case $first in '#!'*sh) say "$file" ;; esac
  done 2>/dev/null | xargs shellcheck -x
}

# Both readers of manuals are silent. Which manuals of others this machine has is no matter of ours.
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

# No leftover of a tool, no binary, nothing at a place where nobody looks for it.
tree() { sh tools/tree.sh; }

# ---- ci ----

# The second compiler, everything, without a warning; the tests have run with the first.
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

# The subjects with threads.
tsan() {
  configure tsan
  build tsan base_test log_test ravctl hip-standin
  export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
  run_tests tsan build/tsan --tests-regex '^(base|log)_test/'
}

# The transcripts, with the program, linked dynamically, under valgrind.
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

# The role of docs/examples, which ./dev test plays with --long.
ansible() {
  configure release
  build release ansible_test
  RAVCTL_LONG=1 run_tests ansible build/release --tests-regex ^ansible_test/
}

# fuzz [SECONDS [TARGET...]]: each target for so many seconds; where RAVCTL_LONG is set for a minute, or a million inputs.
# It starts from the seeds in the tree and from what earlier runs found, in build/fuzz/new/, where a failing input goes too.
fuzz() {
  seconds=${1-${RAVCTL_LONG:+60}}
  [ $# -eq 0 ] || shift
  if [ $# -eq 0 ]; then
    for source in fuzz/*.cpp; do
      subject=$(basename "$source" .cpp)
      [ "$subject" = standalone_main ] || set -- "$@" "$subject"
    done
  fi
  # Files in memory: a sync to a disk is all that a run would wait for.
  [ ! -d /dev/shm ] || export ZUV_TMP_DIR=/dev/shm/
  configure fuzz
  # shellcheck disable=SC2046 # target names
  build fuzz $(printf 'fuzz_%s ' "$@")
  passed=0 failed=0
  for subject in "$@"; do
    if fuzz_one "$subject" "${seconds:-10}"; then
      passed=$((passed + 1))
    else
      say "fuzz_$subject FAILED; its input is in build/fuzz/new/"
      failed=$((failed + 1))
    fi
  done
  say "$passed $failed 0" >"$RESULTS/fuzz.count"
  [ "$failed" -eq 0 ]
}

# fuzz_one TARGET SECONDS: what it did in one line, or all that it said when it failed.
fuzz_one() {
  mkdir -p "build/fuzz/new/$1"
  said=build/fuzz/new/$1.log
  runs=-1
  [ -z "${RAVCTL_LONG-}" ] || runs=1000000
  if "build/fuzz/fuzz/fuzz_$1" "-max_total_time=$2" "-runs=$runs" -timeout=10 "-dict=fuzz/$1.dict" \
    "-artifact_prefix=build/fuzz/new/$1-" "build/fuzz/new/$1" "fuzz/corpus/$1" >"$said" 2>&1; then
    say "fuzz_$1: $(tail -n 1 "$said")"
  else
    grep -vE '^#[0-9]+' "$said"
    return 1
  fi
}

# Other machines: their tests, under qemu where the kernel refuses the programs, on a private host that a program of this
# machine makes, because qemu offers no namespaces. Each test program runs all its tests in one process.
machine() {
  name=$1 qemu=$2
  configure release
  build release private-host hip-standin
  configure "$name"
  # shellcheck disable=SC2046,SC2086 # target names
  build "$name" $(printf '%s_test ' $machine_subjects)
  # A kernel that runs these programs itself needs no emulator: most of 64 bits run those of i386.
  ! "build/$name/testing/base_test" --gtest_list_tests >/dev/null 2>&1 || qemu='env'
  for subject in $machine_subjects; do
    rm -f "build/$name/made/$subject.xml"
    RAVCTL_MADE="$PWD/build/$name/made" timeout -k 10 600 build/release/testing/private-host --build "build/$name" -- \
      "$qemu" "$PWD/build/$name/testing/${subject}_test" --gtest_brief=1 "--gtest_filter=-$not_emulated" \
      "--gtest_output=xml:$PWD/build/$name/made/$subject.xml" ||
      say "<testcase classname=\"$name\" name=\"${subject}_test\" result=\"completed\"><failure/> ended with $?</testcase>"
    cat "build/$name/made/$subject.xml" || true  # one that ended early has left no list
  done >"$RESULTS/$name.tests"
  count_tests "$name" "$RESULTS/$name.tests" || {
    cat "$RESULTS/$name.tests"
    return 1
  }
}
machine_subjects='base json log profiles'
# Left out: what executes a program of the other machine, which this kernel refuses, and what asks for stacks that fit
# into no address space, which takes qemu minutes.
not_emulated='*DeathTest.*:ProcessTest.*:FileLockDirectoryTest.*:*NoThread*:*AStartThatFails*'

# Big-endian, and its char has no sign.
s390x() { machine s390x qemu-s390x-static; }
# Its char has no sign, and its memory is weakly ordered.
aarch64() { machine aarch64 qemu-aarch64-static; }
# 32 bits, and the processor computes with more bits than a double has.
i386() { machine i386 qemu-i386-static; }

# What the tests reach, per subject; each test program runs all its tests in one process. The profiles are kept up to
# date by every instrumented process while it runs, the program in the transcripts and forked children included.
coverage() {
  subjects='base json log command profiles service'
  configure coverage
  # shellcheck disable=SC2046,SC2086 # target names
  build coverage ravctl private-host transcript_test $(printf '%s_test ' $subjects)
  cd build/coverage
  # Other users run the program too, and the profile must be theirs to write.
  rm -rf made/profiles
  umask 0
  mkdir made/profiles
  export LLVM_PROFILE_FILE="$PWD/made/profiles/%m%c.profraw"
  ./ravctl usage >usage.txt
  umask 022
  status=0
  # shellcheck disable=SC2046,SC2086
  for program in $(printf 'testing/%s_test ' $subjects) tests/transcript_test; do
    timeout -k 10 600 "$program" --gtest_brief=1 >last.log 2>&1 || {
      cat last.log
      status=1
    }
  done
  llvm-profdata merge -o profile made/profiles/*.profraw
  # shellcheck disable=SC2046,SC2086
  set -- ravctl $(printf -- '-object testing/%s_test ' $subjects) -instr-profile profile
  llvm-cov report "$@" 2>messages.log | sed -E 's#^/?([^ ]*/)?(src/([a-z]+/)+[^/ ]+) #\2 #' | awk -f ../../tools/coverage.awk || status=1
  llvm-cov export -format=lcov "$@" 2>messages.log | awk -f ../../tools/unreached.awk >unreached
  say 'What was not reached is in build/coverage/unreached.'
  return "$status"
}

package() { sh tools/package.sh; }

# Every system call of every command made to fail, with every error that it can give, and every crash.
torture() {
  configure release
  build release torture_test
  export RAVCTL_TORTURE=whole RAVCTL_TORTURE_FIGURES="$PWD/build/release/made/torture-figures"
  rm -f "$RAVCTL_TORTURE_FIGURES"
  verdict=0
  run_tests torture build/release --tests-regex ^torture_test/ || verdict=1
  sort "$RAVCTL_TORTURE_FIGURES" | awk -F ' [|] ' -f tools/torture.awk
  return "$verdict"
}

# The built tree copied elsewhere: to the places named, or to the three where most went wrong.
anywhere() {
  configure release
  build release all
  [ $# -gt 0 ] || set -- lock readonly user
  sh tools/anywhere.sh "$@"
}

bench() {
  configure release -DRAVCTL_BENCH=ON
  build release all
  bench/run.sh --brief build/release
}

step=$1
shift
"$step" "$@"
