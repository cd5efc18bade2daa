#!/bin/sh
# Measures how the cost of each command grows with what the command works on: entries of the store, lines of a file,
# files of the template or of a profile, bytes. Each command runs at three sizes, each ten times the one before.
#
# The cost is the median of the wall time beyond that of `list versions`, which does no work, in interleaved pairs (see
# pairs.cpp). The figure is the exponent of the power of the size that fits the three costs best: 1 if the cost is in
# proportion to the size, 0 if it stays the same. The fixed cost of a command makes the exponent smaller, so that of the
# last step is printed too, and the larger one is compared with the bar. bench/run.sh calls this script on its private host.
set -eu

usage() { echo 'Usage: bench/growth.sh [--brief] BUILD_FOLDER    (--brief: once and small, the figures mean nothing)'; }

# shellcheck source=bench/words.sh
. "$(dirname "$0")/words.sh"
ravctl=$build/ravctl
bench=$build/bench
# An exponent above this is a cost that grows faster than the work: 1:10:100 may cost 1:12.6:158.
bar=1.10
pairs=15
if [ -n "$brief" ]; then pairs=1; fi

figures=$(mktemp)
say() { printf '%s\n' "$*"; }

# cost BEFORE COMMAND WORD...: sets `cost` to the microseconds of the command beyond a start, `peak` to its peak memory
# in KiB. BEFORE is a command that runs before each run; a colon stands for none.
cost() {
  before=$1
  shift
  [ "$before" != : ] || before=/bin/true
  # The first run shows that the command succeeds. The output is not measured.
  $before >"$figures"
  "$@" >"$figures"
  ! tail -n 1 "$figures" | grep -q '^status_code: 0x[^0]' || {
    cat "$figures" >&2
    exit 1
  }
  "$bench/pairs" --pairs $pairs --before-b "$before" -- "$ravctl" list versions -- "$@" >"$figures"
  # shellcheck disable=SC2046 # the two figures are words
  set -- $(awk '$1 == "A" { start = $2 } $1 == "B" { sub(/.*peak /, "&"); print $2 - start, peak($0) }
    function peak(line) { sub(/.*peak /, "", line); return line + 0 }' "$figures")
  cost=$1 peak=$2
}

# grows TEXT SIZES MAKE BEFORE COMMAND WORD...: runs the command at each of three sizes. The function MAKE makes what
# the command works on in that size. @ in a word of the command stands for the size.
grows() {
  text=$1 sizes=$2 make=$3 before=$4
  shift 4
  [ -z "$brief" ] || sizes='1 10 100'
  costs=
  for size in $sizes; do
    $make "$size"
    # shellcheck disable=SC2046 # no word of these commands has a blank
    cost "$before" $(printf '%s ' "$@" | sed "s/@/$size/g")
    costs="$costs $cost"
  done
  printf '%s\n' "$costs" | awk -v text="$text" -v sizes="$sizes" -v peak="$peak" -v bar=$bar '{
    # Three sizes at equal distances of their logarithms: the least-squares line has the slope of its ends.
    printf "  %s: %s: %.0f, %.0f, %.0f us, peak %d KiB: ", text, sizes, $1, $2, $3, peak
    if ($1 <= 0 || $2 <= 0 || $3 <= 0) {
      print "no exponent, a cost is below the noise of a start"
      exit
    }
    fit = log($3 / $1) / log(100)
    last = log($3 / $2) / log(10)
    printf "exponent %.2f, of the last step %.2f, bar %s: %s\n", fit, last, bar, (last > fit ? last : fit) <= bar ? "met" : "missed" }'
}

use() {
  umount /etc/zuv 2>/dev/null || :
  mount --bind "$1" /etc/zuv
}
# What the commands work on. profile-1 is the active profile, named site-611953.
store() {
  "$bench/store" "/growth-$1" "$1"
  use "/growth-$1"
}
lines_of_configuration() {
  store 1
  awk -v n="$1" 'BEGIN { for (i = 0; i < n; i++) printf "key-%d=value of a line that nobody asks for\n", i
    print "log_level=info" }' >/etc/zuv/profiles/profile-1/hip.conf
}
lines_of_heartbeat() {
  store 1
  awk -v n="$1" -v now="$(date +%s)" 'BEGIN { print "uptime.started=" now - 100
    for (i = 0; i < n; i++) printf "peer.%d.address=10.0.0.1\n", i
    print "uptime.now=" now }' >/etc/zuv/profiles/profile-1/hipvars.txt
}
files_of_template() {
  "$bench/store" "/template-$1" 1
  for number in $(seq "$1"); do echo text >"/template-$1/profiles/.factory/file-$number"; done
  use "/template-$1"
}
mebibytes_of_template() {
  "$bench/store" "/bytes-$1" 1
  "$bench/log" "/bytes-$1/profiles/.factory/data" "$1" lines
  use "/bytes-$1"
}
mebibytes_of_log() {
  store 1
  "$bench/log" /etc/zuv/profiles/profile-1/hip.log "$1" lines
}
# The name of a bundle has its second.
cat >/forget-bundles <<'END'
#!/bin/sh
rm -f /etc/zuv/logs/bundle-*
END
chmod 755 /forget-bundles
# The script of the host packs the last 5000 lines of each log.
install -m 755 "${0%/*}/../docs/examples/zuv-sendbundle.sh" /usr/bin/
profiles_with_logs() {
  store "$1"
  for folder in /etc/zuv/profiles/profile-*; do "$bench/log" "$folder/hip.log" 1 lines; done
}
same() { :; }

say "Growth of a command beyond a start, with what it works on (the exponent of the fit; 1 is in proportion)"
profiles='100 1000 10000'
forget="$ravctl profile delete lab"
grows "list profiles, profiles" "$profiles" store : "$ravctl" list profiles
grows "profile details by name, profiles" "$profiles" store : "$ravctl" profile details site-611953
grows "profile details by directory, profiles" "$profiles" store : "$ravctl" profile details dir=profile-1
grows "profile create, profiles" "$profiles" store "$forget" "$ravctl" profile create lab helmsor=10.0.0.1:443
grows "profile rename, profiles" "$profiles" store "$ravctl profile rename dir=profile-1 new_name=harbour" \
  "$ravctl" profile rename dir=profile-1 new_name=dock
grows "profile details, lines of a configuration file" "1000 10000 100000" lines_of_configuration : \
  "$ravctl" profile details dir=profile-1
grows "profile modify, lines of a configuration file" "1000 10000 100000" lines_of_configuration \
  "$ravctl profile modify dir=profile-1 log_level=info" "$ravctl" profile modify dir=profile-1 log_level=debug
grows "service status, lines of the heartbeat" "1000 10000 100000" lines_of_heartbeat : "$ravctl" service status
grows "profile create, files of the template" "10 100 1000" files_of_template "$forget" \
  "$ravctl" profile create lab helmsor=10.0.0.1:443
grows "profile create, MiB of the template" "1 10 100" mebibytes_of_template "$forget" \
  "$ravctl" profile create lab helmsor=10.0.0.1:443
grows "profile delete, files of the profile" "10 100 1000" files_of_template \
  "$ravctl profile create lab helmsor=10.0.0.1:443" "$ravctl" profile delete lab
grows "list log, MiB of a log without a match" "1 10 100" mebibytes_of_log : "$ravctl" list log dir=profile-1 log_level=fatal
grows "list log, lines shown" "1000 10000 100000" same : "$ravctl" list log dir=profile-1 max_lines=@
pairs=3
grows "support bundle, profiles with a log of 1 MiB" "1 10 100" profiles_with_logs /forget-bundles "$ravctl" support bundle
