#!/usr/bin/env python3
"""Lists each sentence of the headers of src/ beside the tests that show it.

promises.py [--root FOLDER] [--list] [HEADER|FOLDER...]

A comment of a header is a promise. Each of its sentences, list items and table rows, and each comment behind a
declaration, needs a test that fails if the promise is broken. The files tests/promises/*.txt name these tests:

  src/base/files/CopyFile.h
    ACopyHasExactlyTheBytesAndMode0644WhateverTheUmask
      Copies as many bytes
      The copy has mode

A line with a header; below it the name of a test, or SUITE.TEST if several suites have a test of that name, or
transcript/NAME for a file of tests/transcripts; and below each test the first words of the sentences that it shows. If
several sentences begin with these words, "@NAME " before them chooses the one of the declaration NAME. A line
"no promise: KIND" in the place of a test names sentences that no test can show; KINDS has the kinds. A few sentences
need no line, because their place shows that they promise nothing (PLACES).

Prints the sentences without a line, and the lines that name no sentence, no test or no header. --list prints every
sentence with its tests instead. With names of headers or of folders, as in src/base, it prints and counts the sentences
of these alone. The last lines are the counts. The exit status is 1 if a promise has no test or a line is wrong.
"""
import argparse
import collections
import os
import re
import sys

TIES = "tests/promises"
NO_PROMISE = "no promise: "

# Why a sentence promises nothing, by its place.
PLACES = {
    "title": "the first sentence of a header, which names its subject",
    "example": "code in a comment",
    "private": "about private members that are not virtual, which no caller and no derived class sees",
    "list": "introduces the lines below it",
    "deliberate": "only says that the sentence before is meant",
}

# Why a sentence promises nothing, as the lines of tests/promises say.
KINDS = {
    "reason": "says why",
    "definition": "says what a word or a name means",
    "duty": "what the caller must do",
    "method": "how it is done, where no caller can see a difference",
    "figure": "a measurement, which bench/ repeats",
    "leave": "what may happen, so that no outcome breaks it",
    "elsewhere": "where something is described, declared or used",
}

Sentence = collections.namedtuple("Sentence", "header line text names place")


# ---- Headers ----

SENTENCE_END = re.compile(r"(?<=[.?])(?<!\.\.)\s+(?=[\w`\"\'~<(\[])")
LABEL = re.compile(r"[A-Z][\w ,-]{0,30}:")
HEADING = re.compile(r"-{2,} (?!.*[.] ).*|namespace \w+")
DELIBERATE = re.compile(r"(That|This|Both)( is| are) deliberate\.")
CODE = re.compile(r";\s*(//.*)?$|[{}]\s*(//.*)?$|^(if|for|while|return|static|class|struct)\b|^//|^\.\.\.|^\{")
DECLARED = re.compile(r"\b(?:class|struct|enum class|enum)\s+(\w+)(?=[^;]*\{|\s*:|$)|\busing\s+(\w+)\s*=|"
                      r"(~?\w+)\s*\(|\b(\w+)\s*(?:\[[^]]*\]\s*)*(?:=|;|\{|,|$)")
CLASS = re.compile(r"\s*(?:template\s*<[^>]*>\s*)?(?:class|struct)\s+(?:\[\[\w+\]\]\s*)?(\w+)[^;]*\{")
ACCESS = re.compile(r"\s*(public|private|protected):")
ITEM = re.compile(r"(- |\d+\. )")


def names_in(code):
    """Returns the names that a line of code declares, and perhaps some that it uses."""
    return {name for match in DECLARED.finditer(code) for name in match.groups() if name}


def sentences_in(text):
    """Splits a text at the ends of its sentences. Quotes, brackets and a label as "Threads:" hold it together."""
    joined = []
    for part in SENTENCE_END.split(text):
        last = joined[-1] if joined else ""
        if last and (last.count('"') % 2 or last.count("(") > last.count(")") or LABEL.fullmatch(last)):
            joined[-1] += " " + part
        else:
            joined.append(part)
    return joined


def paragraphs_in(lines):
    """Yields (number, text, is_code) for each paragraph, list item, table row and line of code of a comment.

    A row is a line that is indented and that is no code. A line continues an item or a row if it begins in the column
    of the text of the item, or in the last column of the row.
    """
    number, text, column, is_row = 0, "", 0, False
    for at, line in lines:
        body = line.strip()
        blanks = len(line) - len(line.lstrip(" ")) - 1
        item = ITEM.match(body)
        if text and body and not item and blanks == column and not HEADING.fullmatch(body):
            text += " " + body
            continue
        if text:
            yield number, text, False
            text = ""
        if not body or HEADING.fullmatch(body):
            continue
        is_row = blanks >= 2 and not item
        if is_row and CODE.search(body):
            yield at, body, True
            continue
        number, text = at, body[len(item.group()):] if item else body
        column = blanks + (len(item.group()) if item else 0)
        if is_row:
            column = blanks + max((match.end() for match in re.finditer("  +", body)), default=-99)
    if text:
        yield number, text, False


class HeaderReader:
    """Reads the comments of a header and what they belong to."""

    def __init__(self, name):
        self.name = name
        self.blocks = []  # [comment lines with their numbers, names, is_private]
        self.waiting = []  # blocks whose declarations are being read
        self.classes = []  # [indent, is_private] of the open classes
        self.trailing = None  # the column of the comment behind a declaration, if a line could continue it
        self.in_comment = False

    def read(self, text):
        for number, line in enumerate(text.split("\n"), 1):
            body = line.strip()
            if body.startswith("//"):
                self._take_comment(number, len(line) - len(line.lstrip(" ")), body[2:])
                continue
            self.in_comment, self.trailing = False, None
            if not body or body.startswith("#"):
                self.waiting = []
            else:
                self._take_code(number, line, body)
        return self._sentences()

    def _take_comment(self, number, column, text):
        if column == self.trailing:
            self.blocks[-1][0].append((number, text))
            return
        self.trailing = None
        if not self.in_comment:
            self.in_comment = True
            self.waiting = [[[], set(), self._is_private()]]
            self.blocks += self.waiting
        self.blocks[-1][0].append((number, text))

    def _take_code(self, number, line, body):
        indent = len(line) - len(line.lstrip(" "))
        access = ACCESS.match(line)
        while self.classes and indent <= self.classes[-1][0] and not access:
            self.classes.pop()
        if access and self.classes:
            self.classes[-1][1] = access.group(1) == "private"
        code, _, comment = line.partition("  // ")
        opened = CLASS.match(code)
        names = {opened.group(1)} if opened else names_in(code)
        for block in self.waiting:
            block[1].update(names)
            if code.lstrip().startswith("virtual "):
                block[2] = False  # a contract with derived classes
        if opened or body.endswith(("{", "};")) and not body.startswith(("enum", "constexpr")):
            self.waiting = []
        if comment:
            self.blocks.append([[(number, " " + comment)], names, self._is_private()])
            self.trailing = len(code) + 2
        if opened:
            self.classes.append([indent, False])

    def _is_private(self):
        return any(is_private for _, is_private in self.classes)

    def _sentences(self):
        found = []
        for lines, names, is_private in self.blocks:
            for number, text, is_code in paragraphs_in(lines):
                for sentence in [text] if is_code else sentences_in(text):
                    if re.search("[A-Za-z]", sentence):
                        place = self._place(sentence, is_code, is_private, not found)
                        found.append(Sentence(self.name, number, sentence, names, place))
        return found

    @staticmethod
    def _place(sentence, is_code, is_private, is_first):
        if is_code:
            return "example"
        if is_private:
            return "private"
        if is_first:
            return "title"
        if DELIBERATE.fullmatch(sentence):
            return "deliberate"
        return "list" if sentence.endswith(":") else None


# ---- Tests and ties ----

TEST = re.compile(r"^(?:TEST|TEST_F|TEST_P|TYPED_TEST)\(\s*(\w+),\s*(\w+)\s*\)", re.M)


def files(root, folder, ending):
    """Yields the paths of files below a folder, from the root on."""
    for path, folders, names in os.walk(os.path.join(root, folder)):
        folders.sort()
        for name in sorted(names):
            if name.endswith(ending):
                yield os.path.relpath(os.path.join(path, name), root)


def text_of(root, name):
    with open(os.path.join(root, name), encoding="utf-8") as file:
        return file.read()


def tests_below(root):
    """Returns the whole names of all tests by the names that ties may use."""
    tests = collections.defaultdict(set)
    for folder in ("src", "tests"):
        for name in files(root, folder, "_test.cpp"):
            for suite, test in TEST.findall(text_of(root, name)):
                whole = f"{suite}.{test}"
                tests[test].add(whole)
                tests[whole].add(whole)
    for name in files(root, "tests/transcripts", ".transcript"):
        whole = "transcript/" + os.path.splitext(os.path.basename(name))[0]
        tests[whole].add(whole)
    return tests


class Ties:
    """The lines of tests/promises, and what is wrong with them."""

    def __init__(self, sentences, tests):
        self.sentences = sentences  # of each header
        self.tests = tests
        self.shown = collections.defaultdict(list)  # sentence -> names of tests, or of one kind
        self.problems = []

    def read(self, name, text):
        header, test, unused = None, None, None
        for number, line in enumerate(text.split("\n"), 1):
            where = f"{name}:{number}"
            body = line.strip()
            if not body:
                continue
            indent = len(line) - len(line.lstrip(" "))
            if indent == 4:
                unused = None
                self._tie(where, header, test, body)
                continue
            self._check_used(unused)
            if indent == 2:
                test, unused = body, where
                self._check_test(where, test)
            else:
                header, test, unused = body, None, None
                if header not in self.sentences:
                    self.problems.append(f"{where}: no such header: {header}")
        self._check_used(unused)

    def _check_used(self, unused):
        if unused:
            self.problems.append(f"{unused}: no sentence below this test")

    def _check_test(self, where, test):
        if test.startswith(NO_PROMISE):
            kind = test[len(NO_PROMISE):]
            if kind not in KINDS:
                self.problems.append(f"{where}: no such kind: {kind}")
        elif not self.tests.get(test):
            self.problems.append(f"{where}: no such test: {test}")
        elif len(self.tests[test]) > 1:
            self.problems.append(f"{where}: several tests: {' '.join(sorted(self.tests[test]))}")

    def _tie(self, where, header, test, start):
        found = matching(self.sentences.get(header, []), start)
        if len(found) != 1:
            self.problems.append(f"{where}: {len(found)} sentences of {header} begin with: {start}")
        elif test is None:
            self.problems.append(f"{where}: no test above this line")
        else:
            self.shown[found[0]].append(test)


def matching(sentences, start):
    """Returns the indexes of the sentences that begin with these words."""
    name = None
    if start.startswith("@"):
        name, _, start = start[1:].partition(" ")
    return [(sentence.header, at) for at, sentence in enumerate(sentences)
            if sentence.text.startswith(start) and (name is None or name in sentence.names)]


def is_in(name, place):
    return name == place or name.startswith(place.rstrip("/") + "/")


def main():
    parser = argparse.ArgumentParser(description="Lists the sentences of the headers beside their tests.")
    parser.add_argument("--root", default=os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
    parser.add_argument("--list", action="store_true")
    parser.add_argument("headers", nargs="*", help="headers or folders, by default src/")
    options = parser.parse_args()

    sentences = {name: HeaderReader(name).read(text_of(options.root, name))
                 for name in files(options.root, "src", ".h")}
    ties = Ties(sentences, tests_below(options.root))
    for name in files(options.root, TIES, ".txt"):
        ties.read(name, text_of(options.root, name))

    chosen = [name for name in sentences if not options.headers or any(is_in(name, place) for place in options.headers)]
    for place in options.headers:
        if not any(is_in(name, place) for name in sentences):
            parser.error(f"{place}: no header of src/ is there")

    counts = collections.Counter()
    untested = []
    for header in chosen:
        of_header = sentences[header]
        if options.list and of_header:
            print(header)
        for at, sentence in enumerate(of_header):
            shown = ties.shown.get((header, at), [])
            kind = next((test[len(NO_PROMISE):] for test in shown if test.startswith(NO_PROMISE)), sentence.place)
            if kind and not all(test.startswith(NO_PROMISE) for test in shown):
                ties.problems.append(f"{header}:{sentence.line}: a test shows what is no promise: {sentence.text}")
            if kind is None and not shown:
                untested.append(sentence)
            counts[kind or ("shown" if shown else "untested")] += 1
            if options.list:
                print(f"  {sentence.line}: {sentence.text}")
                for test in shown or ([NO_PROMISE + kind] if kind else ["NO TEST"]):
                    print(f"      {test}")
    for sentence in [] if options.list else untested:
        print(f"{sentence.header}:{sentence.line}: no test: {sentence.text}")
    for problem in ties.problems:
        print(problem)
    for kind, meaning in [*PLACES.items(), *KINDS.items()]:
        print(f"{counts[kind]:5} {kind}: {meaning}")
    promises = counts["shown"] + counts["untested"]
    print(f"{sum(counts.values())} sentences, {promises} promises, {counts['untested']} without a test, "
          f"{len(ties.problems)} wrong lines")
    return 1 if untested or ties.problems else 0


if __name__ == "__main__":
    sys.exit(main())
