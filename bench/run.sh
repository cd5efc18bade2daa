#!/bin/sh
# Measures the cost of the program and prints every figure with its limit, the bar. A missed bar is printed and is not a
# failure: the status is 0 unless a program cannot run. `bench/run.sh --help` shows the words.
#
# It runs on a private host of its own, with the stores in memory. Wall times are medians of interleaved pairs (see
# bench/pairs.cpp).
set -eu

usage() {
  cat <<'TEXT'
Usage: bench/run.sh [--brief] BUILD_FOLDER

--brief runs every measurement once on small stores, to show that it still works. Its figures mean nothing.
TEXT
}

# shellcheck source=bench/words.sh
. "$(dirname "$0")/words.sh"
self=$(cd "$(dirname "$0")" && pwd)/${0##*/}

if [ ! -d /.private-host ]; then
  exec "$build/testing/private-host" -- sh "$self" ${brief:+--brief} "$build"
fi

ravctl=$build/ravctl
bench=$build/bench
few=10000 many=100000 starts=200 pairs=30 repair_few=1000 log_mebibytes=1024 line_mebibytes=100 edit_lines=16000
if [ -n "$brief" ]; then
  few=20 many=200 starts=2 pairs=2 repair_few=2 log_mebibytes=2 line_mebibytes=1 edit_lines=100
fi

say() { printf '%s\n' "$*"; }

# figure TEXT VALUE BAR: prints the value and the bar, and if the bar is met.
figure() {
  awk -v text="$1" -v value="$2" -v bar="$3" \
    'BEGIN { printf "  %s: %s, bar %s: %s\n", text, value, bar, value + 0 <= bar + 0 ? "met" : "missed" }'
}

# use NAME: makes the store of that name the store of the host. /etc/zuv stays a directory, as users have it; if it was a
# link, the product would walk the way to each file.
cat >/use <<'END'
#!/bin/sh
umount /etc/zuv 2>/dev/null || :
mount --bind "/$1" /etc/zuv
END
chmod 755 /use
use() { /use "$1"; }

rmdir /etc/zuv/profiles
"$bench/store" /few "$few"
"$bench/store" /many "$many"
"$bench/store" /equal "$repair_few" equal
"$bench/store" /equals "$((repair_few * 10))" equal
log=$(mktemp)

# Beyond what the empty program needs: it is built with the same flags and has the same environment.
say "A start: list versions (B) and an empty C program (A)"
use few
"$bench/pairs" --pairs "$starts" --bar 1.02 -- "$bench/empty" -- "$ravctl" list versions >"$log"
cat "$log"
figure "page faults beyond the empty program" "$(awk '
  /page faults/ { sub(/ page faults.*/, ""); faults[++n] = $NF }
  END { print faults[2] - faults[1] }' "$log")" 6
if command -v strace >/dev/null; then
  # calls COMMAND [WORD...]: prints how many system calls the command makes.
  calls() {
    env -i "$(command -v strace)" -f -qq -o "$log" "$@" >/dev/null
    wc -l <"$log"
  }
  figure "system calls beyond the empty program" $(($(calls "$ravctl" list versions) - $(calls "$bench/empty"))) 7
else
  say "  system calls: not counted, strace is not installed"
fi
figure "instructions beyond the empty program" \
  $(($("$bench/instructions" "$ravctl" list versions) - $("$bench/instructions" "$bench/empty"))) 6000

say "Listing $few profiles: list profiles (B) and a C loop (A)"
"$bench/pairs" --pairs "$pairs" --bar 1.05 -- "$bench/list_profiles" -- "$ravctl" list profiles

say "Listing: $many profiles (B) and $few (A)"
"$bench/pairs" --pairs "$pairs" --bar 11 --before-a "/use few" --before-b "/use many" \
  -- "$ravctl" list profiles -- "$ravctl" list profiles >"$log"
cat "$log"
# The peak memory that one more profile needs.
figure "bytes of peak memory a profile" "$(awk -v more=$((many - few)) '
  /peak/ { sub(/.*peak /, ""); peak[++n] = $1 }
  END { printf "%.0f", (peak[2] - peak[1]) * 1024 / more }' "$log")" 450

say "Repairing equal names: $((repair_few * 10)) (B) and $repair_few (A)"
cat >/restore <<END
#!/bin/sh
"$bench/store" /\$1 \$2 equal && /use \$1
END
chmod 755 /restore
"$bench/pairs" --pairs "$pairs" --bar 11 --before-a "/restore equal $repair_few" \
  --before-b "/restore equals $((repair_few * 10))" -- "$ravctl" list profiles -- "$ravctl" list profiles

# The limit: every name must be read, so a creation costs the system calls of a listing; it saves the lines of output.
# Both commands start after the same removal, which takes their data out of the processor's caches.
profile_create() {
  say "Creating a profile beside $few: profile create (B) and list profiles (A)"
  cat >/remove <<'END'
#!/bin/sh
[ ! -d /etc/zuv/profiles/profile-123123 ] || find /etc/zuv/profiles/profile-123123 -depth -delete
END
  chmod 755 /remove
  "$bench/pairs" --pairs "$pairs" --bar 0.9 --before-a /remove --before-b /remove \
    -- "$ravctl" list profiles -- "$ravctl" profile create extra helmsor=h
  /remove
}

# The limit: both start a process, write the file once and sync it and its directory.
edit_of_one_key() {
  conf=/few/profiles/profile-1/hip.conf copy=/few/hip.conf
  for lines in 1 $edit_lines; do
    awk -v lines="$lines" 'BEGIN {
      for (n = 1; n <= lines; ++n) printf "# setting %6d of the daemon, as it was delivered: value=%6d\n", n, n
      print "master_interface=eth0"
    }' >"$copy"
    cat "$copy" >"$conf"
    say "A durable edit of one key, $(wc -c <"$copy") bytes: profile modify (B) and sed -i that syncs (A)"
    "$bench/pairs" --pairs "$starts" --bar 1 --preload-a "$bench/libsync_rename.so" \
      -- /bin/sed -i 's/^master_interface=.*/master_interface=eth1/' "$copy" \
      -- "$ravctl" profile modify dir=profile-1 network=eth1
  done
}

use few
profile_create
edit_of_one_key
hip_log=/few/profiles/profile-1/hip.log
say "The log, $log_mebibytes MiB, its last lines shown: list log (B) and tail (A)"
"$bench/log" "$hip_log" "$log_mebibytes" lines
"$bench/pairs" --pairs "$pairs" --bar 0.75 -- /usr/bin/tail -n 50 "$hip_log" \
  -- "$ravctl" list log dir=profile-1
"$bench/pairs" --pairs 3 -- "$ravctl" list versions -- "$ravctl" list log dir=profile-1 >"$log"
figure "KiB of peak memory beyond a start" "$(awk '
  /peak/ { sub(/.*peak /, ""); peak[++n] = $1 }
  END { print peak[2] - peak[1] }' "$log")" 4096
say "The log, few lines match, all of it read: list log (B) and a plain read (A)"
"$bench/pairs" --pairs "$pairs" --bar 1.25 -- "$bench/read_file" "$hip_log" \
  -- "$ravctl" list log dir=profile-1 log_level=fatal
say "The log, 100000 lines shown (B) and 10000 (A)"
"$bench/pairs" --pairs "$pairs" --bar 11 -- "$ravctl" list log dir=profile-1 max_lines=10000 \
  -- "$ravctl" list log dir=profile-1 max_lines=100000
say "The log, one line of $line_mebibytes MiB: list log (B) and a plain read (A)"
"$bench/log" "$hip_log" "$line_mebibytes" one-line
"$bench/pairs" --pairs "$pairs" --bar 1.25 -- "$bench/read_file" "$hip_log" \
  -- "$ravctl" list log dir=profile-1 log_level=fatal
rm -f "$hip_log"

if [ -x "$bench/json_bench" ]; then
  say "JSON: an object of 100000 members and one of 10000"
  "$bench/json_bench" --benchmark_format=csv --benchmark_repetitions=5 --benchmark_report_aggregates_only=true \
    ${brief:+--benchmark_min_time=0.001} >"$log" 2>/dev/null
  # how_it_grows FAMILY: prints the processor time for the large object divided by that for the small one, medians of
  # five.
  how_it_grows() {
    awk -F, -v family="$1" '
      $1 == "\"" family "/10000_median\"" { small = $4 }
      $1 == "\"" family "/100000_median\"" { printf "%.2f", $4 / small }' "$log"
  }
  figure "building" "$(how_it_grows BuildObject)" 11
  figure "finding every member" "$(how_it_grows FindEveryMember)" 13
  say "  parsing: $(how_it_grows ParseObject)"
  say "  writing: $(how_it_grows WriteObject)"
else
  say "JSON: not measured, Google Benchmark is not installed"
fi

if [ -x "$bench/queue_bench" ]; then
  say "The pointer queue, its time by that of std::deque"
  "$bench/queue_bench" ${brief:+--brief} >"$log"
  sed 's/^/  /' "$log"
  # time_of WAY: prints the ratio of that way of use.
  time_of() { awk -v way="$1" '$1 == way { print $2 }' "$log"; }
  figure "filled and then drained" "$(time_of fill-and-drain)" 0.95
  figure "emptied after every push" "$(time_of emptied-each-time)" 1.3
fi

[ ! -x "$bench/log_bench" ] || sh "${self%/*}/log.sh" ${brief:+--brief} "$build"

sh "${self%/*}/growth.sh" ${brief:+--brief} "$build"

say "JSON: speed, and the ratio to other libraries (more is better)"
"$bench/json_libraries" ${brief:+--brief}
