#!/bin/sh
# Shows that the built tree works at any path. `tools/anywhere.sh --help` lists the places.
#
# It copies the tree with its release build to each place and starts every test program of the copy directly. This
# happens in mount and process namespaces of its own: /tmp, /run, /root, /srv and /var are fresh, /etc is a copy, and
# the first tree is hidden. Afterwards these folders and the copy must be unchanged, except for the one folder that
# tests write in. Last it runs a program in the same way that removes everything it can reach.
#
# It writes anywhere-PLACE.count and anywhere-PLACE.skipped into the folder that RESULTS names (see tools/common.sh).
set -eu
cd "$(dirname "$0")/.."
. tools/common.sh

usage() {
  cat <<TEXT
Usage: tools/anywhere.sh PLACE...

Copies the built tree (build/release) to each place and runs its tests there. Needs root. The places, or "all":

  tmp       /tmp/new
  lock      /tmp/lock/x, where the program keeps its lock files
  run       /run/x
  root      /root/new
  etc       /etc/zuv/x, where the program keeps its store
  odd       a path with a blank, a letter outside ASCII and other special characters
  closed    below a folder that only root may enter
  readonly  on a file system that is read-only
  user      in a folder of an ordinary user, who runs the tests
TEXT
}

names='tmp lock run root etc odd closed readonly user'

# place NAME: sets `copy` to the folder of the copy, and `made` to the folder that tests write in.
place() {
  made=
  case $1 in
    tmp) copy=/tmp/new ;;
    lock) copy=/tmp/lock/x ;;
    run) copy=/run/x ;;
    root) copy=/root/new ;;
    etc) copy=/etc/zuv/x ;;
    odd) copy='/srv/a b/ü#%' ;;
    closed) copy=/srv/closed/x ;;
    readonly) copy=/srv/readonly/x made=/srv/made ;;
    user) copy=/srv/user/x ;;
    *) die "anywhere has no place $1; it has: $names" ;;
  esac
  [ -n "$made" ] || made=$copy/build/release/made
}

# The reasons for which tests may be skipped at the place `user`, as patterns. An ordinary user has one user id on a
# private host, and none of the machine's devices, loop mounts and cgroups.
may_skip_as_user='needs a second user
needs root
it needs root
no booted systemd
only root can
needs the machine.s root
we are an ordinary user
needs a sysfs of its own
needs devices'

# ---- On the machine ----

copy_tree() {
  mkdir -p "$1"
  tar -cf - --exclude=./build --exclude=./.git . | tar -xf - -C "$1"
  unpacked=$(ls -d build/finit build/monitoring build/apparmor 2>/dev/null) || true
  # shellcheck disable=SC2086 # a list of folders
  # Of the archives only the installed one, in build/release/dev, is needed.
  tar -cf - --no-wildcards-match-slash --exclude='*.o' --exclude='build/release/*.a' --exclude='build/release/[!d]*/*.a' \
    --exclude='*.gch' --exclude=build/release/made build/release $unpacked |
    tar -xf - -C "$1"
  mkdir "$1/build/release/made"
}

# ---- In the namespaces of a place ----

# Prints the state of the folders that must not change. It leaves out the copy.
machine() {
  find /tmp /run /root /etc /var -path "$copy" -prune -o ! -type d -printf '%p %y %m %U:%G %s %T@ %l\n' -o -type d \
    -printf '%p %y %m %U:%G\n' | sort
  find /tmp /run /root /etc /var -path "$copy" -prune -o -type f -print0 | sort -z | xargs -0 -r sha256sum
}

# Prints the state of the copy. It leaves out the folder that tests write in.
tree() {
  (
    cd "$copy"
    find . -path ./build/release/made -prune -o -printf '%p %y %m %U:%G %l\n' | sort
    find . -path ./build/release/made -prune -o -type f -print0 | sort -z | xargs -0 -r sha256sum
  )
}

# Prints a line for each program of the copy that still runs.
processes() {
  for status in /proc/[0-9]*/exe; do
    program=$(readlink "$status" 2>/dev/null) || continue
    case $program in "$copy"/*) say "running: $program" ;; esac
  done
}

# lay PLACE: makes the place and puts the tree there that was copied to /mnt.
lay() {
  mount --make-rprivate /
  mount -t tmpfs -o mode=755 anywhere /opt && mkdir /opt/etc && cp -a /etc/. /opt/etc/
  for folder in tmp run root srv var etc; do
    mount -t tmpfs -o "mode=$(stat -c %a "/$folder")" anywhere "/$folder"
  done
  cp -a /opt/etc/. /etc/
  umount /opt
  mkdir -p /var/lib /var/log "$copy"
  mkdir -m 1777 /var/tmp
  # /tmp/lock is also the directory of the lock files, so other users must be able to write in it.
  case $copy in /tmp/lock/*) chmod 1777 /tmp/lock ;; esac
  if [ "$1" = readonly ]; then
    mkdir -m 777 "$made"
    mount -t tmpfs -o mode=755 anywhere "${copy%/*}" && mkdir "$copy"
  fi
  cp -a /mnt/. "$copy"
  [ "$1" != user ] || chown -R 1000:1000 "$copy"
  [ "$1" != closed ] || chmod 700 "$copy" "${copy%/*}"
  [ "$1" != readonly ] || mount -o remount,ro "${copy%/*}"
}

# as_user COMMAND [WORD...]: runs it as the user of this place.
as_user() {
  if [ "$place" = user ]; then setpriv --reuid=1000 --regid=1000 --clear-groups "$@"; else "$@"; fi
}

run_program() {
  program=$1
  shift
  name=$(basename "$program")${GTEST_SHARD_INDEX+-$GTEST_SHARD_INDEX}
  as_user env RAVCTL_FINIT="$copy/build/finit" RAVCTL_MONITORING="$copy/build/monitoring" \
    RAVCTL_APPARMOR="$copy/build/apparmor" RAVCTL_MADE="$made" \
    timeout -k 10 900 "$program" "$@" >"$log/$name.log" 2>&1 </dev/null || say "$name ended with $?" >>"$log/failed"
}

run_tests_of() {
  run_program "$1" --gtest_brief=1 --gtest_filter=-*Long.* \
    "--gtest_output=xml:$made/anywhere/$(basename "$1")${GTEST_SHARD_INDEX+-$GTEST_SHARD_INDEX}.xml"
}

# Every test program. The torture test takes as long as all the others together, so it runs beside them, in two halves.
run_all_tests() {
  torture=$copy/build/release/tests/torture/torture_test
  for half in 0 1; do
    (
      export GTEST_TOTAL_SHARDS=2 GTEST_SHARD_INDEX=$half
      run_tests_of "$torture"
    ) &
  done
  grep -vxF "$torture" "$log/programs" >"$log/others"
  (
    running=0
    while read -r program; do
      run_tests_of "$program" &
      running=$((running + 1))
      [ $((running % jobs)) -ne 0 ] || wait
    done <"$log/others"
    wait
  )
  wait
}

# Counts the tests of the whole place.
count() {
  set -- "$made"/anywhere/*.xml
  [ -e "$1" ] || set --
  python3 -I "$copy/tools/count_tests.py" --step "anywhere-$place" --skips "$log/skipped" "$@" \
    >"$log/count" 2>>"$log/failed" || say '0 1 0' >"$log/count"
}

# at PLACE FIRST RESULTS: does everything for one place. FIRST is the tree that was copied, RESULTS the folder for the
# counts. It prints the failures; the status is 0 if there are none.
at() {
  place=$1 first=$2 results=$3
  place "$place"
  log=/mnt/log
  lay "$place"
  cd /
  mount -t tmpfs -o mode=755 anywhere /mnt && mkdir "$log"
  mount --bind "$results" /opt && mount -t tmpfs -o mode=755 anywhere "$first"
  : >"$log/failed"
  as_user mkdir "$made/anywhere"
  machine >"$log/machine" && tree >"$log/tree"

  find "$copy/build/release" -type f -perm -u+x -name '*_test' | sort >"$log/programs"
  run_all_tests
  for corpus in "$copy"/fuzz/corpus/*; do
    run_program "$copy/build/release/fuzz/fuzz_$(basename "$corpus")" "$corpus"
  done
  count
  run_program "$copy/build/release/testing/planted-removal"
  cat "$log/planted-removal.log"

  machine | diff "$log/machine" - >"$log/machine.diff" || say "the machine has changed: $(head -n 20 "$log/machine.diff")" >>"$log/failed"
  tree | diff "$log/tree" - >"$log/tree.diff" || say "the tree has changed: $(head -n 20 "$log/tree.diff")" >>"$log/failed"
  processes >>"$log/failed"
  if [ -e "$log/skipped" ]; then
    cp "$log/skipped" "/opt/anywhere-$place.skipped"
    # For the other places .ci/expected-skips says which tests may be skipped.
    [ "$place" != user ] || grep -v -e "$may_skip_as_user" "$log/skipped" | sed 's/^/skipped: /' >>"$log/failed" || true
  fi
  programs=$(wc -l <"$log/programs")
  read -r passed failed skipped <"$log/count"
  say "$place: $copy: $programs programs, $passed passed, $failed failed, $skipped skipped"
  if [ -s "$log/failed" ]; then
    cat "$log/failed"
    cat "$log"/*.log | grep -A 12 -e ': Failure$' -e '^\[  FAILED  \]' | head -n 100
    failed=$((failed > 0 ? failed : 1))
  fi
  say "$passed $failed $skipped" >"/opt/anywhere-$place.count"
  [ "$failed" -eq 0 ]
}

case ${1-} in
  -h | --help)
    usage
    exit
    ;;
  --copy)
    copy_tree "$2"
    exit
    ;;
  --at)
    shift
    at "$@"
    exit
    ;;
esac

[ $# -gt 0 ] || {
  usage >&2
  exit 2
}
# shellcheck disable=SC2086 # a list of names
[ "$*" != all ] || set -- $names
[ "$(id -u)" = 0 ] || die "anywhere needs root, for mounts of its own"
for name in "$@"; do place "$name"; done
: "${RESULTS:=$PWD/build/results/anywhere}"
mkdir -p "$RESULTS"
# The copy is made once, on a file system in memory that ends with the first namespace.
export RESULTS
# shellcheck disable=SC2016 # for that shell
unshare -m sh -euc '
  mount --make-rprivate / && mount -t tmpfs -o mode=755 anywhere /mnt
  first=$PWD
  tools/anywhere.sh --copy /mnt
  status=0
  for name in "$@"; do
    unshare -m -p -f --mount-proc --kill-child sh tools/anywhere.sh --at "$name" "$first" "$RESULTS" || status=1
  done
  exit $status' sh "$@"
