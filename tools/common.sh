# Sourced by dev and tools/steps.sh, which stand in the checkout: packages, builds, and counting what passed.
# shellcheck shell=sh

jobs=$(nproc 2>/dev/null || echo 2)

say() { printf '%s\n' "$*"; }

die() {
  printf 'dev: %s\n' "$*" >&2
  exit 1
}

# ---- Packages ----

is_installed() { [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]; }

# May root's commands be run here? A question for a password is fine where somebody can answer it.
can_be_root() {
  [ "$(id -u)" != 0 ] || return 0
  command -v sudo >/dev/null || return 1
  if [ -t 0 ]; then sudo -v; else sudo -n true 2>/dev/null; fi
}

as_root() {
  if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi
}

# need PACKAGE...: installs what is missing, or names it and stops.
need() {
  if ! command -v dpkg-query >/dev/null; then
    say "This is no Debian; wanted is what it has in these packages: $*"
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
  can_be_root || die "these packages are missing, and only root can install them: apt-get install$missing"
  say "Installing:$missing"
  as_root apt-get -qq -o DPkg::Lock::Timeout=300 update </dev/null ||
    say "The package lists could not all be renewed; going on with those that are here."
  # shellcheck disable=SC2086 # a list of packages
  as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0 -y \
    --no-install-recommends install $missing </dev/null >/dev/null || die "apt-get could not install:$missing"
}

# unpack FOLDER PACKAGE...: the files of packages below a folder, with nothing installed. False when they cannot be had.
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

# Runs a command quietly; what it said, but for progress, is shown when it fails.
quietly() {
  mkdir -p build
  log=build/last.log
  "$@" >"$log" 2>&1 </dev/null || {
    grep -vE '^\[[ 0-9/%]+\] ' "$log" >&2 || true
    die "failed: $*"
  }
}

# configure PRESET [CMAKE WORD...]
configure() {
  preset=$1
  shift
  if [ ! -f "build/$preset/CMakeCache.txt" ] && command -v ninja >/dev/null; then
    set -- -G Ninja "$@"
  fi
  # ccache knows no objects that were compiled with precompiled headers.
  if command -v ccache >/dev/null; then
    set -- -DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache \
      -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON "$@"
  fi
  quietly cmake --preset "$preset" "$@"
}

# build PRESET TARGET...
build() {
  preset=$1
  shift
  say "Building $preset: $*"
  quietly cmake --build "build/$preset" --parallel "$jobs" --target "$@"
}

# ---- Results ----
# $RESULTS is a folder; a step NAME may leave NAME.count ("PASSED FAILED SKIPPED") and NAME.skipped (lines of NAME:TEST,
# a tab, and why) in it. A step that leaves no count counts as one test.

start_results() {
  RESULTS=$PWD/build/results/$1
  export RESULTS
  rm -rf "$RESULTS"
  mkdir -p "$RESULTS"
  started=$(date +%s)
}

seconds_since() { say "$(($(date +%s) - $1)) s"; }

# run_tests NAME FOLDER [CTEST WORD...]: the tests of a build folder, counted under NAME. Shows what fails; what passes is
# only counted. What takes its time runs when RAVCTL_LONG is set. There are more at once than processors, for many wait.
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

# count_tests NAME FILE...: counts what CTest and GoogleTest reported; false when a test failed.
count_tests() {
  name=$1
  shift
  awk -f tools/counts.awk -v step="$name" -v skips="$RESULTS/$name.skipped" "$@" >"$RESULTS/$name.count"
  read -r _ failed _ <"$RESULTS/$name.count"
  [ "$failed" -eq 0 ]
}

# run_steps NAME...: each is a function of tools/steps.sh and a process of its own.
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

# Makes the count of a step agree with how it ended.
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

# Says what was skipped and why, how long it all took, then the sums; the status is 1 when something failed.
finish_results() {
  cat "$RESULTS"/*.skipped 2>/dev/null | awk -f tools/skips.awk
  say "All of it took $(seconds_since "$started")."
  cat "$RESULTS"/*.count | awk '
    { passed += $1; failed += $2; skipped += $3 }
    END { printf "%d passed, %d failed, %d skipped\n", passed, failed, skipped; exit failed > 0 || passed == 0 }'
}
