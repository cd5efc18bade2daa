# Sourced by dev and by the scripts of this folder: messages, packages, builds and counts. A script that uses more than
# the messages changes into the top folder of the checkout first.
# shellcheck shell=sh

jobs=$(nproc 2>/dev/null || echo 2)

say() { printf '%s\n' "$*"; }

die() {
  printf 'dev: %s\n' "$*" >&2
  exit 1
}

# asks_for_help [WORD...]: true if the first word is -h or --help. A script that takes words then calls its usage().
asks_for_help() { [ "${1-}" = -h ] || [ "${1-}" = --help ]; }

# ---- Packages ----

is_installed() { [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]; }

# True if commands can run as root here. On a terminal sudo may ask for a password.
can_be_root() {
  [ "$(id -u)" != 0 ] || return 0
  command -v sudo >/dev/null || return 1
  if [ -t 0 ]; then sudo -v; else sudo -n true 2>/dev/null; fi
}

as_root() {
  if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi
}

# may_install: asks on the terminal if apt-get may install $missing; Enter means yes. True without a terminal, because
# nobody can answer.
may_install() {
  { [ -t 0 ] && [ -t 2 ]; } || return 0
  printf 'Missing packages:%s\nInstall them with apt-get? [Y/n] ' "$missing" >&2
  IFS= read -r answer || return 1
  case $answer in '' | [Yy] | [Yy][Ee][Ss]) return 0 ;; *) return 1 ;; esac
}

# need PACKAGE...: installs the packages that are missing. It names them and stops if the user or the system refuses.
need() {
  if ! command -v dpkg-query >/dev/null; then
    say "This system is not a Debian. The next steps need the contents of these Debian packages: $*"
    return 0
  fi
  missing=
  for package in "$@"; do
    is_installed "$package" || case " $missing " in
      *" $package "*) ;;
      *) missing="$missing $package" ;;
    esac
  done
  [ -n "$missing" ] || return 0
  may_install || die "these packages are missing: apt-get install$missing"
  can_be_root || die "these packages are missing, and only root can install them: apt-get install$missing"
  say "Installing:$missing"
  as_root apt-get -qq -o DPkg::Lock::Timeout=300 update </dev/null ||
    say "apt-get could not update every package list; the existing lists are used."
  # shellcheck disable=SC2086 # a list of packages
  as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0 -y \
    --no-install-recommends install $missing </dev/null >/dev/null || die "apt-get could not install:$missing"
}

# unpack FOLDER PACKAGE...: unpacks the files of packages below a folder and installs nothing. False if it cannot
# download them.
unpack() {
  [ ! -e "$1/complete" ] || return 0
  command -v apt-get >/dev/null || return 1
  into=$1
  shift
  rm -rf "$into"
  mkdir -p "$into/packages"
  say "Unpacking in $into: $*"
  download "$into/packages" "$@" || {
    [ "$(id -u)" = 0 ] && apt-get -qq -o DPkg::Lock::Timeout=300 update </dev/null && download "$into/packages" "$@"
  } || return 1
  for package in "$into"/packages/*.deb; do
    dpkg -x "$package" "$into" || return 1
  done
  : >"$into/complete"
}

download() (
  cd "$1" && shift && apt-get -qq download "$@" </dev/null >/dev/null 2>&1
)

# ---- Builds ----

# quietly COMMAND [WORD...]: runs it without output. If it fails, shows its output without the progress lines and stops.
quietly() {
  mkdir -p build
  log=build/last.log
  "$@" >"$log" 2>&1 </dev/null || {
    grep -vE '^\[[ 0-9/%]+\] ' "$log" >&2 || true
    die "failed: $*"
  }
}

# configure PRESET [CMAKE WORD...]: the presets name Ninja. A build folder keeps the generator that it was made with.
configure() {
  preset=$1
  shift
  if [ -f "build/$preset/CMakeCache.txt" ]; then
    set -- -G "$(sed -n 's/^CMAKE_GENERATOR:INTERNAL=//p' "build/$preset/CMakeCache.txt")" "$@"
  elif ! command -v ninja >/dev/null; then
    set -- -G 'Unix Makefiles' "$@"
  fi
  # ccache cannot store objects that were compiled with precompiled headers.
  if command -v ccache >/dev/null; then
    set -- -DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache \
      -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON "$@"
  fi
  quietly cmake --preset "$preset" "$@"
  # If the compiler is at another path than last time, CMake starts afresh and forgets the options of the preset.
  ! grep -q 'require your cache to be deleted' "$log" || quietly cmake --preset "$preset" "$@"
}

# build PRESET TARGET...
build() {
  preset=$1
  shift
  say "Building $preset: $*"
  quietly cmake --build "build/$preset" --parallel "$jobs" --target "$@"
}

# ---- Results ----
# $RESULTS is a folder. A step NAME may leave two files in it:
#   NAME.count    "PASSED FAILED SKIPPED"; a step that leaves no such file counts as one test
#   NAME.skipped  a line for each skipped test: NAME:TEST, a tab, the reason

start_results() {
  RESULTS=$PWD/build/results/$1
  export RESULTS
  rm -rf "$RESULTS"
  mkdir -p "$RESULTS"
  started=$(date +%s)
}

seconds_since() { say "$(($(date +%s) - $1)) s"; }

# run_tests NAME FOLDER [CTEST WORD...]: runs the tests of a build folder and counts them under NAME. It shows the tests
# that fail. The long tests run only if RAVCTL_LONG is set. Many tests wait, so more run at once than there are
# processors.
run_tests() {
  name=$1 folder=$2
  shift 2
  [ -n "${RAVCTL_LONG-}" ] || set -- -LE long "$@"
  rm -rf "$RESULTS/$name.xml" "$folder/made/results"
  { ctest --test-dir "$folder" --parallel "$((2 * jobs))" --no-tests=error --timeout 600 --output-on-failure \
    --output-junit "$RESULTS/$name.xml" "$@" 2>&1 </dev/null || say "ctest ended with $?"; } | awk -f tools/progress.awk
  if [ -s "$RESULTS/$name.xml" ]; then
    set -- "$RESULTS/$name.xml"
    for report in "$folder"/made/results/*.xml; do
      [ ! -f "$report" ] || set -- "$@" "$report"
    done
    count_tests "$name" "$@"
  else
    say "0 1 0" >"$RESULTS/$name.count"
    return 1
  fi
}

# count_tests NAME FILE...: counts the tests in reports of CTest and GoogleTest. False if a test failed.
count_tests() {
  name=$1
  shift
  python3 -I tools/count_tests.py --step "$name" --skips "$RESULTS/$name.skipped" "$@" >"$RESULTS/$name.count" ||
    say '0 1 0' >"$RESULTS/$name.count"
  read -r _ failed _ <"$RESULTS/$name.count"
  [ "$failed" -eq 0 ]
}

# run_steps NAME...: runs each step of tools/steps.sh as a process of its own.
run_steps() {
  for step in "$@"; do
    began=$(date +%s)
    verdict=passed
    timeout -k 10 2400 sh tools/steps.sh "$step" >"$RESULTS/$step.log" 2>&1 </dev/null || verdict=FAILED
    settle "$step" "$verdict"
    say "$verdict $step ($(seconds_since "$began"))"
    [ "$verdict" = passed ] || tail -n 60 "$RESULTS/$step.log" | sed 's/^/    /'
  done
}

# settle NAME VERDICT: makes the count of a step agree with its verdict, "passed" or "FAILED".
settle() {
  passed=0 failed=0 skipped=0
  if [ -f "$RESULTS/$1.count" ]; then
    read -r passed failed skipped <"$RESULTS/$1.count"
  elif [ "$2" = passed ]; then
    passed=1
  fi
  [ "$2" = passed ] || [ "$failed" -gt 0 ] || failed=1
  say "$passed $failed $skipped" >"$RESULTS/$1.count"
}

# Prints the skipped tests with their reasons, the time, and the sums. The status is 1 if a test failed or none passed.
finish_results() {
  cat "$RESULTS"/*.skipped 2>/dev/null | awk -f tools/skips.awk
  say "Total time: $(seconds_since "$started")"
  cat "$RESULTS"/*.count | awk '
    { passed += $1; failed += $2; skipped += $3 }
    END { printf "%d passed, %d failed, %d skipped\n", passed, failed, skipped; exit failed > 0 || passed == 0 }'
}
