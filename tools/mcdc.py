#!/usr/bin/env python3
"""Reads the JSON of `llvm-cov export` and prints, for each subject below src/, how many conditions the tests showed to
decide (modified condition/decision coverage): with a condition alone changed, the decision came out differently.

  llvm-cov export -skip-functions ... | mcdc.py FILE

FILE gets a line for each condition that was not shown, with the place of its decision. A template counts once: a
condition is shown if any instance shows it. Tests are left out. The exit status is 1 if a subject has less than 98 %.
"""
import json
import re
import sys

SUBJECTS = "base json log command profiles service".split()
GOAL = 98.0


def shown_conditions(data):
    """Returns {(file, line, column): [whether each condition was shown]}, merged over the instances of a template."""
    decisions = {}
    for entry in data["files"]:
        match = re.search(r"(?:^|/)(src/(?:[a-z]+/)+[^/]+)$", entry["filename"])
        if not match or match.group(1).endswith("_test.cpp"):
            continue
        for record in entry.get("mcdc_records", []):
            place = (match.group(1), record[0], record[1])
            shown = record[-1]
            before = decisions.get(place, [False] * len(shown))
            decisions[place] = [old or new for old, new in zip(before, shown)]
    return decisions


def main():
    decisions = shown_conditions(json.load(sys.stdin)["data"][0])
    below = not decisions
    with open(sys.argv[1], "w", encoding="utf-8") as unshown:
        for (file, line, column), shown in sorted(decisions.items()):
            for number, decides in enumerate(shown, 1):
                if not decides:
                    unshown.write(f"{file}:{line}:{column} condition {number} of {len(shown)}\n")
    print(f"{'':10} {'conditions':>10} {'not shown':>9}")
    for subject in SUBJECTS:
        shown = [decides for place, all_shown in decisions.items() if place[0].startswith(f"src/{subject}/")
                 for decides in all_shown]
        percent = 100 * sum(shown) / len(shown) if shown else 100.0
        below |= percent < GOAL
        print(f"{subject:10} {len(shown):10} {len(shown) - sum(shown):9} {percent:7.2f} %"
              f"{'  below the goal' if percent < GOAL else ''}")
    return below


if __name__ == "__main__":
    sys.exit(main())
