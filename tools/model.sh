#!/bin/sh
# Checks the model of an edit, model/edit.pml, with Spin. Spin tries every order of steps, and must find no flaw. Then
# it must find each flaw that this script plants. The script prints a line for each run, and the steps to a flaw that
# nobody planted. The exit status is 1 if there is one, or if a planted flaw was not found.
set -eu
cd "$(dirname "$0")/.."
# shellcheck source=tools/common.sh
. tools/common.sh

usage() { say 'Usage: sh tools/model.sh'; }

if asks_for_help "$@"; then usage && exit; fi
model=$PWD/model/edit.pml
work=$PWD/build/model

# search LEVEL FLAG...: lets Spin search the whole model with a checker that gcc optimises at that level, which only a
# long search is worth. The messages are in $work/said.
search() {
  level=$1
  shift
  rm -rf "$work"
  mkdir -p "$work"
  (
    cd "$work"
    spin "$@" -a "$model"
    # Spin's own code is not free of warnings. The memory limit is in megabytes.
    gcc -w "$level" -DSAFETY -DNOFAIR -DMEMLIM=6000 -o pan pan.c
    ./pan -m100000
  ) >"$work/said" 2>&1
}

# figure SCRIPT: prints what a script for sed finds in the messages.
figure() { sed -n "$1" "$work/said" | tail -n 1; }

figures() {
  say "$(figure 's/^ *\([0-9]*\) states, stored.*/\1/p') states," \
    "depth $(figure 's/.*depth reached \([0-9]*\),.*/\1/p')," \
    "$(figure 's/^ *\([0-9]*\)[.0-9]*\ttotal actual memory usage.*/\1/p') MB," \
    "$(figure 's/.*elapsed time \([0-9.]*\) seconds/\1/p') s"
}

# A search that ends early, for want of memory or depth, proves nothing.
is_whole_and_without_flaw() {
  grep -q 'errors: 0$' "$work/said" && ! grep -qiE 'not completed|too small|out of memory|reached.*limit' "$work/said"
}

# sound WHAT FLAG...
sound() {
  what=$1
  shift
  search -O2 "$@" || true
  if is_whole_and_without_flaw; then
    say "no flaw: $what: $(figures)"
    passed=$((passed + 1))
  else
    say "FLAW: $what"
    grep -v '^Depth=' "$work/said" || true
    (cd "$work" && spin "$@" -T -B -t -k edit.pml.trail "$model") || true
    failed=$((failed + 1))
  fi
}

# flawed PROPERTY MESSAGE FLAG...: one of the flags plants the flaw. Spin's message names what does not hold.
flawed() {
  property=$1 message=$2
  shift 2
  search -O0 "$@" || true
  if grep -qF ": $message (at depth" "$work/said"; then
    say "found: $*: $property: $(figures)"
    passed=$((passed + 1))
  else
    say "NOT FOUND: $*: $property"
    grep -v '^Depth=' "$work/said" || true
    failed=$((failed + 1))
  fi
}

passed=0 failed=0
sound '2 editors, both may die'
sound '2 editors, both may die, a stranger' -DHAS_STRANGER=true
sound '3 editors' -DEDITORS=3 -DDEATHS=0
flawed 'whole file' 'assertion violated isWhole[oldName]' -DLOCKS_TEMPORARY=false
flawed 'one writer' 'assertion violated (writers[newName]==1)' -DMAKES_ANEW=false
flawed 'no refusal' 'assertion violated isMine' -DLOOKS_AT_LEFTOVER=false
flawed 'no refusal' 'assertion violated isMine' -DLEAVES_VANISHED=false
flawed 'no lost edit' 'assertion violated ((result[editor]!=1)||(edits!=0))' -DREADS_LOCKED=false
flawed 'no standstill' 'invalid end state' -DCLOSES_AT_DEATH=false
flawed 'one holder' 'assertion violated ((holderOfOurs==0)||0)' -DLOOKS_AT_LOCK=false -DEDITORS=3 -DDEATHS=0
flawed 'one holder' 'assertion violated ((holderOfOurs==0)||0)' -DUNLINKS_LOCKED=false -DEDITORS=3 -DDEATHS=0
[ -z "${RESULTS-}" ] || say "$passed $failed 0" >"$RESULTS/model.count"
[ "$failed" -eq 0 ]
