#!/usr/bin/env python3
"""Counts the tests that CTest and GoogleTest reported.

count_tests.py --step NAME --skips FILE REPORT...

Reads what `ctest --output-junit` wrote and the reports that GoogleTest (--gtest_output=xml) left, in any order. Prints
"PASSED FAILED SKIPPED". Writes a line NAME:TEST, a tab, and the reason for each skipped test into the file of --skips,
and makes that file only if a test was skipped. The exit status is 0 even if tests failed.

An entry of CTest whose name is PROGRAM/TESTS stands for the single tests of GoogleTest's report PROGRAM-TESTS.xml:

- The single tests are counted, not the entry.
- An entry that left no whole report counts as one failed test.
- An entry that failed although its report has no failed test counts as one failed test.

Every other entry counts as one test. It is skipped if it ended with the status that means so to CTest; the last line of
its output is the reason. An entry that CTest names twice counts once, as failed if it failed once. Any other report that
is missing or not whole counts as one failed test. The tests before the place where a report breaks off count.
"""
import argparse
import os
import re
import sys
import xml.etree.ElementTree as ET

# Tests may print bytes that XML cannot hold, and GoogleTest copies them.
NOT_XML = re.compile("[^\t\n\r\x20-\ud7ff\ue000-\ufffd\U00010000-\U0010ffff]")


class Report:
    """The tests in one file, up to the place where it breaks off."""

    def __init__(self, path):
        self.name = os.path.basename(path)
        self.is_whole = False
        self.entries = {}  # of CTest: name -> True if it passed
        self.passed = 0
        self.failed = 0
        self.skips = []  # (test, reason)
        parser = ET.XMLPullParser(["end"])
        try:
            with open(path, encoding="utf-8", errors="replace") as file:
                parser.feed(NOT_XML.sub("\ufffd", file.read()))
            parser.close()
            self.is_whole = True
        except (OSError, ET.ParseError):
            pass
        self._read(parser)

    def _read(self, parser):
        try:
            for _, element in parser.read_events():
                if element.tag == "testcase" and element.get("classname") is not None:
                    if element.get("result") is None:
                        self._add_entry(element)
                    else:
                        self._add_test(element)
        except ET.ParseError:  # the parser hands on the place of the break as an event
            self.is_whole = False

    def _add_entry(self, element):
        name = element.get("name", "")
        skipped = element.find("skipped")
        if skipped is not None and skipped.get("message", "").startswith("SKIP_RETURN_CODE="):
            self.skips.append((name, last_line(element.findtext("system-out", ""))))
            return
        self.entries[name] = element.get("status") == "run" and self.entries.get(name, True)

    def _add_test(self, element):
        reason = element.get("result") if element.get("result") != "completed" else ""
        for skipped in element.findall("skipped"):
            reason = last_line(skipped.get("message", "")) or reason
        if element.find("failure") is not None:
            self.failed += 1
        elif reason:
            self.skips.append((element.get("classname") + "." + element.get("name", ""), reason))
        else:
            self.passed += 1


def last_line(text):
    """The last line that is not empty. GoogleTest puts the place in the source before a reason."""
    return text.rstrip().rpartition("\n")[2]


def count(paths):
    """Returns how many passed, how many failed, and a (test, reason) for each skipped test."""
    reports = [Report(path) for path in paths]
    broken = {report.name for report in reports if not report.is_whole}
    whole = {report.name: report for report in reports if report.is_whole}
    entries = {}
    for report in reports:
        for name, has_passed in report.entries.items():
            entries[name] = has_passed and entries.get(name, True)

    passed = sum(report.passed for report in reports)
    failed = sum(report.failed for report in reports)
    for name, has_passed in sorted(entries.items()):
        report = name.replace("/", "-") + ".xml"
        if "/" not in name:
            passed += has_passed
            failed += not has_passed
        elif report not in whole:
            print(name, "has left no whole report of its tests", file=sys.stderr)
            broken.discard(report)
            failed += 1
        elif not has_passed and whole[report].failed == 0:
            print(name, "failed, but none of its tests did", file=sys.stderr)
            failed += 1
    for name in sorted(broken):
        print(name, "is missing or not whole", file=sys.stderr)
        failed += 1
    return passed, failed, [skip for report in reports for skip in report.skips]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--step", required=True, help="the name before each skipped test")
    parser.add_argument("--skips", required=True, help="the file for the skipped tests")
    parser.add_argument("reports", nargs="*", metavar="REPORT", help="a report of CTest or of GoogleTest")
    arguments = parser.parse_args()
    passed, failed, skips = count(arguments.reports)
    if skips:
        with open(arguments.skips, "w", encoding="utf-8") as file:
            file.writelines(f"{arguments.step}:{test}\t{reason}\n" for test, reason in skips)
    print(passed, failed, len(skips))


if __name__ == "__main__":
    main()
