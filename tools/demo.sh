#!/bin/sh
# The demo that `./dev demo` runs on a private host. The store of that host has only a factory template. The script
# takes no words.
set -eu
cd "$(dirname "$0")/.."
. tools/furnish.sh
furnish_init_script

# run COMMAND [WORD...]: prints the command as a user would type it, then runs it.
run() {
  printf '\n$'
  for word in "$@"; do
    case $word in
      *' '*) printf " '%s'" "$word" ;;
      *) printf ' %s' "$word" ;;
    esac
  done
  printf '\n'
  "$@"
}

note() { printf '\n# %s\n' "$*"; }

# wait_until COMMAND [WORD...]: waits until the command succeeds, eight seconds at most.
wait_until() {
  for _ in $(seq 80); do
    ! "$@" || return 0
    sleep 0.1
  done
  note "This did not become true in eight seconds: $*"
  exit 1
}

# is_up DIRECTORY COUNT: true if the daemon has started COUNT times on the profile in that directory.
is_up() { [ "$(grep -c 'hip: started' "/etc/zuv/profiles/$1/hip.log" 2>/dev/null)" = "$2" ]; }
is_connected() { ravctl service status | grep -qx 'helmsor: true'; }

run ravctl list versions
run ravctl profile create lab helmsor=helmsor.example.com:443 network=eth0
run ravctl profile create 'field office' helmsor=10.1.1.1 --quiet
run ravctl list profiles
run ravctl profile modify lab log_level=debug
run ravctl profile details lab
run ravctl profile rename 'field office' new_name=harbour

if [ -n "$no_init_script" ]; then
  note "Starting and stopping the daemon is not shown; missing here: $no_init_script."
  run ravctl list profiles --quiet
  exit 0
fi

note 'The daemon is a stand-in, and /etc/init.d/hip is packaging/examples/hip.init.'
run ravctl service status
run ravctl profile activate lab
wait_until is_up profile-123123 1
run ravctl profile activate harbour
wait_until is_up profile-123124 1
run ravctl list profiles
run ravctl list log harbour max_lines=5
run ravctl profile modify harbour helmsor=10.1.1.2:443 --quiet
wait_until is_up profile-123124 2
note 'A daemon that has just come up says nothing yet about its connections.'
run ravctl service status
wait_until is_connected
run ravctl service status
run ravctl list log harbour log_level=info
run ravctl support reset harbour
run ravctl service stop
