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
  ctest --test-dir build/release --no-tests=error --output-on-failure -R Layers
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
  run_tests tsan build/tsan --exclude-regex '_NOT_BUILT|^fuzz_'
}

# The transcripts, with the program, linked dynamically, under valgrind.
valgrind() {
  configure debug
  build debug ravctl hip-standin transcript_test
  export RAVCTL_EMULATOR="$PWD/tools/under-valgrind"
  rm -rf build/debug/valgrind
  mkdir -m 1777 build/debug/valgrind
  run_tests valgrind build/debug --tests-regex /Transcript || {
    cat build/debug/valgrind/log.* >&2
    return 1
  }
}

# The role of docs/examples, which ./dev test plays with --long.
ansible() {
  configure release
  build release ansible_test
  RAVCTL_LONG=1 run_tests ansible build/release --tests-regex Ansible
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

# A big-endian machine whose char has no sign.
s390x() {
  configure s390x
  build s390x base_test json_test
  run_tests s390x build/s390x --exclude-regex '_NOT_BUILT|^fuzz_'
}

package() { sh tools/package.sh; }

# Every system call of every command made to fail, with every error that it can give, and every crash.
torture() {
  configure release
  build release torture_test
  # In the build folder, which the private host can write to.
  export RAVCTL_TORTURE=whole RAVCTL_TORTURE_FIGURES="$PWD/build/release/torture-figures"
  rm -f "$RAVCTL_TORTURE_FIGURES"
  verdict=0
  run_tests torture build/release --tests-regex Torture || verdict=1
  sort "$RAVCTL_TORTURE_FIGURES" | awk -F ' [|] ' -f tools/torture.awk
  return "$verdict"
}

bench() {
  configure release -DRAVCTL_BENCH=ON
  build release all
  bench/run.sh --brief build/release
}

step=$1
shift
"$step" "$@"
