"""Runs random sequences of commands by the program and by the model, and compares them after each command.

  sequences.py --seconds N [--seed N]    random sequences for N seconds
  sequences.py --sequences N [--seed N]  this many sequences
"""

import argparse
import random
import re
import sys
import time

import generate
import model_store
import real_host

COMMANDS_IN_A_SEQUENCE = 12
KILLED = 137  # the exit status of `interrupt`


class Case:
    """A store, its tools and the commands."""

    def __init__(self, top, tools, commands):
        self.top, self.tools, self.commands = top, tools, commands


class Bench:
    """Runs cases on the private host."""

    def __init__(self, program, interrupt=None, flaw=None):
        real_host.check_place()
        self.interfaces = real_host.set_up_network()
        self.runner, self.tools, self.count = real_host.Runner(program, interrupt, flaw), real_host.Tools(), 0
        self.kills = self.failures = 0

    def run(self, case, next_command=None):
        """Runs the commands of a case, or those that `next_command` makes. Returns the first difference as lines of
        text, or None."""
        top = real_host.copy_of(case.top)
        real_host.build(top)
        self.tools.install(case.tools)
        host = model_store.Host(top)
        host.tools, host.interfaces = case.tools, self.interfaces
        commands = case.commands
        if next_command is not None:
            commands = (next_command(top) for _ in range(COMMANDS_IN_A_SEQUENCE))
        for command in commands:
            if next_command is not None:
                case.commands.append(command)
            self.count += 1
            difference = self.step(host, *command)
            if difference:
                return difference
        return None

    def step(self, host, words, uid, umask, stop):
        real_host.take_order(host.top)
        host.calls, host.now, host.changed = [], int(time.time()), lambda: None
        moments = Moments(host) if stop and not stop[1] else None
        before = real_host.copy_of(host.top)
        expected, status = model_store.Command(host, uid, uid).run(words)
        calls = [real_host.line_of_call(call) for call in host.calls]
        output, errors, real_status, real_calls = self.runner.run(words, uid, umask, stop)
        if stop and stop[1] and errors:
            self.failures += 1
            lines = self.failed_step(host, before, words, uid, (output, errors, real_status, real_calls))
            host.top.entries = real_host.top_of_disk(host.top).entries
            return lines
        if real_status == KILLED:
            lines = moments.difference(real_calls, real_host.picture_of_disk(), errors)
            host.top.entries = real_host.top_of_disk(host.top).entries
            self.kills += 1
            return lines
        if b"bundle" in words:
            errors = b""  # the shell says there what it thinks of the script
        lines = []
        for what, model, real in [("standard output", expected, output), ("standard error", b"", errors),
                                  ("exit status", status, real_status), ("calls", calls, real_calls)]:
            if model != real:
                lines += [what, "  model:   %r" % model, "  program: %r" % real]
        model, real = real_host.picture_of_model(host.top), real_host.picture_of_disk()
        if model != real:
            for path in sorted(model.keys() | real.keys()):
                if model.get(path) != real.get(path):
                    lines += [repr(path), "  model:   %r" % (model.get(path),), "  program: %r" % (real.get(path),)]
        return lines


    def failed_step(self, host, before, words, uid, real):
        """Compares what is left after a failed call with what each failed step of the model leaves."""
        if real[1].split()[-1] in CANNOT_FAIL:
            return []
        picture, best = real_host.picture_of_disk(), None
        old = real_host.picture_of_model(before) if b"status_code: 0x1" in real[0] else {}
        for length in range(LONGEST_FAILURE + 1):
            for start in range(1, MOST_STEPS if length else 2):
                model, steps = self.run_model(host, before, words, uid, range(start, start + length))
                lines = difference_after_failure(model, (*real, picture), old)
                if not lines:
                    return []
                best = lines if best is None or len(lines) < len(best) else best
                if start > steps:
                    break
        call = real[1].split()[-1].decode()
        return [call + " failed, and no failed step of the model leaves this; the closest:"] + best

    def run_model(self, host, before, words, uid, failing):
        """Runs the model with failing steps. Returns what it does, and the number of its steps."""
        other = model_store.Host(real_host.copy_of(before))
        other.tools, other.interfaces, other.now = host.tools, host.interfaces, host.now
        command = model_store.Command(other, uid, uid)
        command.files.failing = failing
        output, status = command.run(words)
        calls = [real_host.line_of_call(call) for call in other.calls]
        return (output, status, calls, real_host.picture_of_model(other.top)), command.files.steps


class Moments:
    """What the files and the calls are after each step of a command of the model. A program that is killed stops
    between two moments that follow each other, or at one."""

    def __init__(self, host):
        self.host, self.list = host, []
        host.changed = self.take
        self.take()

    def take(self):
        calls = [real_host.line_of_call(call) for call in self.host.calls]
        self.list.append((calls, real_host.picture_of_model(self.host.top)))

    def difference(self, calls, picture, errors):
        for before, after in zip(self.list, self.list[1:] + self.list[-1:]):
            if calls in (before[0], after[0]) and is_between(before[1], after[1], picture):
                return []
        lines = ["killed before " + errors.decode().strip() + ", and what it leaves is no moment of the model"]
        closest = min((model for _, model in self.list), key=lambda model: len(differing(model, picture)))
        for path in differing(closest, picture):
            lines += [repr(path), "  model:   %r" % (closest.get(path),), "  program: %r" % (picture.get(path),)]
        return lines + ["calls: %r" % calls]


CANNOT_FAIL = (b"getuid", b"geteuid", b"gettimeofday", b"umask", b"poll")
LONGEST_FAILURE, MOST_STEPS = 3, 1000


def without_host_errors(output):
    """Which call failed decides about the texts of statuses; only that there is a failure is compared."""
    if re.search(rb"status_code: 0x(14|1200000|10000003)", output):
        return [line.split(b":")[0] for line in output.split(b"\n")]
    return output


def difference_after_failure(model, real, old):
    """Compares two results. `old` is how the files were; a command that reports a failure may leave one as it was."""
    output, errors, status, calls, picture = real
    lines = []
    complaint = errors.rstrip(b"\n").rpartition(b"\n")[0]
    if not complaint and without_host_errors(output) != without_host_errors(model[0]):
        lines += ["standard output", "  model:   %r" % model[0], "  program: %r" % output]
    if status != model[1] and not complaint:
        lines += ["exit status %d" % status]
    if sorted(calls) != sorted(model[2]):  # after a failed wait the tools run at the same time
        lines += ["calls", "  model:   %r" % model[2], "  program: %r" % calls]
    for path in differing(model[3], picture):
        now = picture.get(path)
        if is_stricter(model[3].get(path), now) or (now is not None and now == old.get(path)):
            continue
        lines += [repr(path), "  model:   %r" % (model[3].get(path),), "  program: %r" % (picture.get(path),)]
    return lines


def is_stricter(model, real):
    """Returns true if only the mode differs, and lets nobody do more: the call that sets it may have failed."""
    if model is None or real is None or model[1] is None or real[1] is None:
        return False
    return (model[0], *model[2:]) == (real[0], *real[2:]) and real[1] & ~model[1] == 0


def differing(one, other):
    return sorted(path for path in one.keys() | other.keys() if one.get(path) != other.get(path))


def is_between(before, after, real):
    """Returns true if each path is as before or after one step, or is a file that this step was writing."""
    for path in before.keys() | after.keys() | real.keys():
        old, new, now = before.get(path), after.get(path), real.get(path)
        if now not in (old, new) and not is_being_written(path, old, new, now):
            return False
    return True


def is_being_written(path, old, new, now):
    if now is None:
        return False
    if path.endswith(b".temp") and now[0] == real_host.FILE:
        return True  # the new file of an edit, which no reader takes for the old one
    if new is None or new[0] != now[0] or (new[2:4] != now[2:4] and old is None):
        return False
    if now[0] == real_host.DIRECTORY:
        return True  # its mode is not set yet
    written, rest = new[4], old[4] if old and old[0] == real_host.FILE else b""
    texts = [written[:end] + rest[end:] for end in range(len(written) + 1)]
    return now[0] == real_host.FILE and now[4] in texts


def shrink(bench, case, difference):
    """Takes away commands, words and entries of the store while a difference of the same kind remains."""
    kind = difference[0]

    def still_differs(smaller):
        found = bench.run(smaller)
        return found is not None and found[0] == kind

    change = True
    while change:
        change = False
        for smaller in smaller_cases(case):
            if still_differs(smaller):
                case, change = smaller, True
                break
    return case, bench.run(case)


def smaller_cases(case):
    for place in range(len(case.commands)):
        yield Case(case.top, case.tools, case.commands[:place] + case.commands[place + 1 :])
    for place, (words, uid, umask, stop) in enumerate(case.commands):
        for word in range(2, len(words)):
            shorter = (words[:word] + words[word + 1 :], uid, umask, stop)
            yield Case(case.top, case.tools, case.commands[:place] + [shorter] + case.commands[place + 1 :])
        if umask != 0o022:
            plain = (words, uid, 0o022, stop)
            yield Case(case.top, case.tools, case.commands[:place] + [plain] + case.commands[place + 1 :])
    for path in paths_of(case.top, b""):
        top = real_host.copy_of(case.top)
        directory, name = path.rsplit(b"/", 1)
        del real_host.node_at(top, directory).entries[name]
        yield Case(top, case.tools, case.commands)
    for path in paths_of(case.top, b""):
        top = real_host.copy_of(case.top)
        node = real_host.node_at(top, path)
        plain = (node.mode, 0, 0, node.data, None)
        if node.kind == real_host.DIRECTORY:
            plain = (0o755, 0, 0, b"", None)
        elif node.kind == real_host.FILE:
            plain = (0o644, 0, 0, node.data.split(b"\n")[0] + b"\n" if node.data.count(b"\n") > 1 else node.data, None)
        for field, value in zip(("mode", "uid", "gid", "data", "access"), plain):
            if getattr(node, field) != value:
                other = real_host.copy_of(top)
                setattr(real_host.node_at(other, path), field, value)
                yield Case(other, case.tools, case.commands)


def paths_of(node, path):
    for name, entry in node.entries.items():
        if (path + b"/" + name).startswith((b"/etc/zuv/", b"/etc/outside/")):
            yield path + b"/" + name
        yield from paths_of(entry, path + b"/" + name)


def transcript(case, difference):
    """Returns a case as a text: the store, the commands and the difference after the last one."""
    lines = ["the store:"]
    for path, entry in sorted(real_host.picture_of_model(case.top).items()):
        kind, mode, uid, gid, data, access, *names = entry
        text = " %r" % data if kind in ("file", "link") else ""
        also = (" with " + access if access else "") + (" also %r" % (names[0],) if names else "")
        lines.append("  %s %s %d:%d %s%s%s" % (kind, "-" if mode is None else "%04o" % mode, uid, gid,
                                               repr(path)[2:-1], text, also))
    lines.append("the tools: %s" % ", ".join("%s %s" % (path.decode(), end) for path, end in case.tools.items()))
    for words, uid, umask, stop in case.commands:
        line = "uid %d, umask %03o: ravctl %s" % (uid, umask, " ".join(repr(word)[1:] for word in words))
        lines.append(line + (", %s system call %d" % (("errno %d in" % stop[1]) if stop[1] else "killed before", stop[0])
                             if stop else ""))
    return "\n".join(lines + difference)


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("--program", default="/usr/bin/ravctl")
    arguments.add_argument("--interrupt", help="the program that kills it; without it nothing is killed")
    arguments.add_argument("--flaw", help="the planted flaw of the program")
    arguments.add_argument("--seconds", type=float, default=float("inf"))
    arguments.add_argument("--sequences", type=int, default=10**9)
    arguments.add_argument("--seed", type=int, default=1)
    arguments.add_argument("--stop-after", type=int, default=1, help="the number of differences that end the run")
    arguments.add_argument("--brief", action="store_true", help="do not shrink a sequence")
    given = arguments.parse_args()
    bench, differences, seed = Bench(given.program, given.interrupt, given.flaw), 0, given.seed
    start = time.monotonic()
    while time.monotonic() - start < given.seconds and seed < given.seed + given.sequences:
        generator = generate.Generator(random.Random(seed), real_host.has_other_users(), 0.1 if given.interrupt else 0)
        case = Case(*generator.host(), [])
        difference = bench.run(case, generator.command)
        seed += 1
        if difference:
            differences += 1
            count = bench.count
            if not given.brief:
                case, difference = shrunk(bench, case, difference)
            print("seed %d differs:\n%s\n" % (seed - 1, transcript(case, difference)), flush=True)
            bench.count = count
            if differences == given.stop_after:
                break
    took = time.monotonic() - start
    print("%d sequences, %d commands, %d of them killed and %d with a failed call, %d differences, %.0f commands a minute"
          % (seed - given.seed, bench.count, bench.kills, bench.failures, differences, bench.count * 60 / took))
    sys.exit(1 if differences else 0)


def shrunk(bench, case, difference):
    if bench.run(case) is None:
        return case, ["(does not repeat)"] + difference
    return shrink(bench, case, difference)


if __name__ == "__main__":
    main()
