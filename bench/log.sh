#!/bin/sh
# Measures the cost of logging and prints every figure with its limit, the bar. bench/run.sh calls this script.
set -eu

usage() { echo 'Usage: bench/log.sh [--brief] BUILD_FOLDER    (--brief: once and small, the figures mean nothing)'; }

brief=
case ${1-} in
  -h | --help)
    usage
    exit
    ;;
  --brief)
    brief=yes
    shift
    ;;
esac
[ $# -eq 1 ] || {
  usage >&2
  exit 2
}
bench=$1/bench/log_bench
[ -x "$bench" ] || { echo "$bench does not exist" >&2; exit 1; }
calls=100000
[ -z "$brief" ] || calls=1000

instructions() {
  env -i "$(command -v valgrind)" --tool=callgrind --callgrind-out-file=/dev/null "$bench" below "$1" 2>&1 |
    awk '/Collected/ { print $NF }'
}

# verdict TEXT VALUE BAR least|most: prints the value and the bar, and if the bar is met.
verdict() {
  awk -v text="$1" -v value="$2" -v bar="$3" -v kind="$4" 'BEGIN {
    met = kind == "least" ? value + 0 >= bar + 0 : value + 0 <= bar + 0
    printf "  %s: %s, bar %s%s: %s\n", text, value, bar, kind == "least" ? " at least" : "", met ? "met" : "missed" }'
}

echo "Logging"
if command -v valgrind >/dev/null; then
  once=$(instructions "$calls")
  twice=$(instructions "$((calls * 2))")
  verdict "instructions of a call below the threshold" \
    "$(awk -v n="$calls" -v a="$once" -v b="$twice" 'BEGIN { printf "%.2f", (b - a) / n }')" 12 most
else
  echo "  instructions of a call below the threshold: not counted, valgrind is not installed"
fi
figures=$("$bench" throughput ${brief:+--brief})
value() { printf '%s\n' "$figures" | awk -v name="$1" '$1 == name { print $2 }'; }
for producers in 1 4; do
  echo "  messages a second into a file, threads that log $producers: $(value "messages-per-second-$producers")"
  if [ -n "$(value "times-spdlog-$producers")" ]; then
    verdict "by those of spdlog ($(value "spdlog-per-second-$producers"))" "$(value "times-spdlog-$producers")" 1.5 least
  else
    echo "  not compared, spdlog is not installed (Debian: apt install libspdlog-dev)"
  fi
done
echo "  bytes of memory a queued message: $("$bench" memory | awk '{ print $2 }')"
