#!/bin/sh
# Shows that the built tree can lie anywhere: tools/anywhere.sh PLACE...  (see `names` below, or `all`)
#
# For each place the tree with its release build is copied there, and every test program of the copy is started directly.
# This happens in mount and process namespaces of its own, with fresh /tmp, /run, /root, /srv, /var and a copy of /etc,
# and with the first tree hidden. Afterwards these folders and the copy must be what they were, but for the one folder
# that tests write in. Last, a program that removes everything it can reach is run in the same way.
#
# Writes PLACE.count and PLACE.skipped, as tools/common.sh describes, with the prefix `anywhere-`. Needs root.
set -eu
cd "$(dirname "$0")/.."
. tools/common.sh

names='tmp lock run root etc odd closed readonly user'

# A name, the folder of the copy, and how it lies there.
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
    *) die "anywhere knows no place $1; it knows: $names" ;;
  esac
  [ -n "$made" ] || made=$copy/build/release/made
}

# An ordinary user has one user id on a private host, and none of the machine's devices, loop mounts and cgroups.
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
  tar -cf - --exclude='*.o' --exclude='*.a' --exclude='*.gch' --exclude=build/release/made build/release build/finit |
    tar -xf - -C "$1"
  mkdir "$1/build/release/made"
}

# ---- In the namespaces of a place ----

# What lies in the folders that must not change, but for the copy.
machine() {
  find /tmp /run /root /etc /var -path "$copy" -prune -o ! -type d -printf '%p %y %m %U:%G %s %T@ %l\n' -o -type d \
    -printf '%p %y %m %U:%G\n' | sort
  find /tmp /run /root /etc /var -path "$copy" -prune -o -type f -print0 | sort -z | xargs -0 -r sha256sum
}

# The copy, but for the folder that tests write in.
tree() {
  (
    cd "$copy"
    find . -path ./build/release/made -prune -o -printf '%p %y %m %U:%G %l\n' | sort
    find . -path ./build/release/made -prune -o -type f -print0 | sort -z | xargs -0 -r sha256sum
  )
}

processes() {
  for status in /proc/[0-9]*/exe; do
    program=$(readlink "$status" 2>/dev/null) || continue
    case $program in "$copy"/*) say "running: $program" ;; esac
  done
}

# lay FIRST PLACE: makes the place of a tree whose copy lies in /mnt.
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
  # The name of a lock directory must not be taken by the copy's parents alone.
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

# As the user of this place, in the copy.
as_user() {
  if [ "$place" = user ]; then setpriv --reuid=1000 --regid=1000 --clear-groups "$@"; else "$@"; fi
}

run_program() {
  program=$1
  shift
  name=$(basename "$program")
  as_user env RAVCTL_FINIT="$copy/build/finit" RAVCTL_MADE="$made" timeout -k 10 900 "$program" "$@" \
    >"$log/$name.log" 2>&1 </dev/null || say "$name ended with $?" >>"$log/failed"
}

# One line of counts for the whole place, and what failed.
count() {
  cat "$made"/anywhere/*.xml >"$log/all.xml" 2>/dev/null || true
  awk -f "$copy/tools/counts.awk" -v step="anywhere-$place" -v skips="$log/skipped" "$log/all.xml" >"$log/count"
}

# at PLACE FIRST RESULTS: everything that happens at one place. Shows what went wrong; the status tells whether.
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
  running=0
  while read -r program; do
    run_program "$program" --gtest_brief=1 --gtest_filter=-*Long.* \
      "--gtest_output=xml:$made/anywhere/$(basename "$program").xml" &
    running=$((running + 1))
    [ $((running % jobs)) -ne 0 ] || wait
  done <"$log/programs"
  wait
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
    # Elsewhere .ci/expected-skips judges.
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

[ $# -gt 0 ] || die "anywhere takes places: all, or some of: $names"
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
