# shellcheck shell=sh
# The whole session of a new user, for a host with an init system and an empty /etc/zuv/profiles. It prints each command,
# its output and its exit status, and at the end the store. It masks times and waits for the daemon, so that the text is
# the same every time.
exec 2>&1
profiles=/etc/zuv/profiles

run() {
  printf '$ ravctl %s\n' "$*"
  ravctl "$@" >/tmp/said
  status=$?
  sed 's/20[0-9-]* [0-9:.]*\]/TIME]/' /tmp/said
  printf '= %s\n' "$status"
}

# Waits until a command succeeds, twenty seconds at most.
until_it() {
  for _ in $(seq 400); do
    "$@" && return
    sleep 0.05
  done
  printf 'never: %s\n' "$*"
}

# is_up DIRNAME COUNT: succeeds if the daemon has a heartbeat in the folder of this profile and was started COUNT times.
is_up() {
  [ -e "$profiles/$1/hipvars.txt" ] && [ "$(grep -c 'hip: started' "$profiles/$1/hip.log" 2>/dev/null)" = "$2" ]
}

says() { ravctl service status | grep -qx "$1"; }

mkdir -p $profiles/.factory/ca-certs
echo 'master_interface=' >$profiles/.factory/hip.conf
echo 'log_level=INFO' >$profiles/.factory/endbox.conf
echo demo >$profiles/.factory/ca-certs/demo.pem

run list profiles
until_it is_up profile-123123 1
run profile create lab helmsor=10.0.0.1:443
run profile create office helmsor=10.0.0.2 network=eth0 activate
until_it is_up profile-123125 1
run list profiles
run profile activate lab
until_it is_up profile-123124 1
until_it says 'helmsor: true'
run service status
run list log lab log_level=info
run profile modify lab log_level=warn
until_it is_up profile-123124 2
run list log lab log_level=info
run profile rename lab new_name=harbour
run support reset harbour
run profile delete harbour
run service stop
until_it says 'running: false'
run service status
run support reset harbour
run profile delete harbour
run profile details harbour
run list profiles
run help service

printf '%s\n' '# the store'
find $profiles -mindepth 1 -printf '%y %m %P\n' | LC_ALL=C sort -k 3
