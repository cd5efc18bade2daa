#!/bin/sh
# Measures the cost of logging and prints every figure. If a figure has a limit, the bar, it prints that too. bench/run.sh
# calls this script.
set -eu

usage() { echo 'Usage: bench/log.sh [--brief] BUILD_FOLDER    (--brief: once and small, the figures mean nothing)'; }

# shellcheck source=bench/words.sh
. "$(dirname "$0")/words.sh"
bench=$build/bench/log_bench
[ -x "$bench" ] || { echo "$bench does not exist" >&2; exit 1; }
calls=100000
messages=20000
if [ -n "$brief" ]; then
  calls=1000
  messages=2000
fi

# instructions MODE COUNT prints how many instructions `log_bench MODE COUNT` executes.
instructions() {
  env -i "$(command -v valgrind)" --tool=callgrind --callgrind-out-file=/dev/null "$bench" "$1" "$2" 2>&1 |
    awk '/Collected/ { print $NF }'
}

# each MODE COUNT prints how many instructions each of COUNT calls or messages takes: twice as many are run too, and the
# difference contains no start-up.
each() {
  awk -v n="$2" -v a="$(instructions "$1" "$2")" -v b="$(instructions "$1" "$(($2 * 2))")" \
    'BEGIN { printf "%.2f", (b - a) / n }'
}

# verdict TEXT VALUE BAR least|most prints the value and whether it meets the bar.
verdict() {
  awk -v text="$1" -v value="$2" -v bar="$3" -v kind="$4" 'BEGIN {
    met = kind == "least" ? value + 0 >= bar + 0 : value + 0 <= bar + 0
    printf "  %s: %s, bar %s%s: %s\n", text, value, bar, kind == "least" ? " at least" : "", met ? "met" : "missed" }'
}

echo "Logging"
if command -v valgrind >/dev/null; then
  verdict "instructions of a call below the threshold" "$(each below "$calls")" 12 most
  echo "  instructions of a message from the call into a file: $(each written "$messages")"
else
  echo "  instructions: not counted, valgrind is not installed"
fi
figures=$("$bench" throughput ${brief:+--brief})
value() { printf '%s\n' "$figures" | awk -v name="$1" '$1 == name { print $2 }'; }
for producers in 1 4; do
  least=1.5
  [ "$producers" -eq 1 ] || least=2.5
  echo "  messages a second into a file, threads that log $producers: $(value "messages-per-second-$producers")"
  if [ -n "$(value "times-spdlog-$producers")" ]; then
    verdict "by those of spdlog, flushing each ($(value "spdlog-per-second-$producers"))" \
      "$(value "times-spdlog-$producers")" "$least" least
  else
    echo "  not compared, spdlog is not installed (Debian: apt install libspdlog-dev)"
  fi
done
verdict "bytes of memory a queued message" "$("$bench" memory | awk '{ print $2 }')" 200 most
