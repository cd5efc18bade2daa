"""A model of the command line: from the words of a command to its values, and from its results to lines.

Texts are bytes throughout, as the system passes them.
"""

import re

SUCCESS, WARNINGS = 0x00000001, 0x00000002
INVALID_COMMAND, INVALID_ARGUMENT = 0x10000002, 0x10000003
APPLICATION_ERROR, NOT_ALLOWED = 0x12000001, 0x12000002
OPENDIR, FILE_OPEN, FILE_READ, FILE_WRITE, GETIFADDRS = 0x14000002, 0x14000005, 0x14000006, 0x14000007, 0x14000009
FORK, WAITPID, SYSTEM, MKDIR = 0x1400000A, 0x1400000B, 0x14000013, 0x1400000F
ACTIVE, RUNNING, NOT_FOUND, NOT_WHILE_RUNNING = 0x00001001, 0x00001002, 0x12001001, 0x12001002
CHILD_NONZERO, CHILD_SIGNAL = 0x16001001, 0x16001002

TEXTS = {
    SUCCESS: b"success",
    WARNINGS: b"success with warnings",
    INVALID_COMMAND: b"invalid command",
    INVALID_ARGUMENT: b"invalid argument",
    APPLICATION_ERROR: b"application error",
    NOT_ALLOWED: b"authentication error (ravctl requires sudo for this command)",
    OPENDIR: b"stdlib error: opendir",
    FILE_OPEN: b"stdlib error: file open",
    FILE_READ: b"stdlib error: file read",
    FILE_WRITE: b"stdlib error: file write",
    GETIFADDRS: b"stdlib error: getifaddrs",
    FORK: b"stdlib error: fork",
    WAITPID: b"stdlib error: waitpid",
    SYSTEM: b"stdlib error: system",
    MKDIR: b"stdlib error: mkdir",
    ACTIVE: b"profile is active",
    RUNNING: b"profile is currently running",
    NOT_FOUND: b"profile not found",
    NOT_WHILE_RUNNING: b"command cannot be executed while the profile is running",
    CHILD_NONZERO: b"child process returned nonzero exit code",
    CHILD_SIGNAL: b"child process terminated by a signal",
}


class Status:
    def __init__(self, code=SUCCESS, details=b""):
        self.code, self.details = code, details

    def is_success(self):
        return self.code >> 24 == 0

    def text(self):
        return TEXTS[self.code] + (b" (" + self.details + b")" if self.details else b"")


# Trimming ------------------------------------------------------------------------------------------------------------

PRINTABLE = bytes(range(33, 127))
CONTROLS_AND_BLANK = bytes(range(33)) + b"\x7f"
NOT_PRINTABLE = bytes(byte for byte in range(256) if byte not in PRINTABLE)


def trim_to_printable(text):
    """The trimming of names, configuration lines and the heartbeat."""
    return text.strip(NOT_PRINTABLE)


def trim_blanks(text):
    """The trimming of numbers, level names, invitations and requested names."""
    return text.strip(CONTROLS_AND_BLANK)


def has_controls(text):
    return any(byte < 32 or byte == 127 for byte in text)


# Levels --------------------------------------------------------------------------------------------------------------

LEVELS = [b"trace", b"debug", b"info", b"notice", b"warning", b"error", b"fatal"]
LEVEL_NAMES = [
    (b"TRACE", b"trace"), (b"DEBUG", b"debug"), (b"INFO", b"info"), (b"NOTICE", b"notice"), (b"WARN", b"warning"),
    (b"WARNING", b"warning"), (b"ERR", b"error"), (b"ERROR", b"error"), (b"FATAL", b"fatal"), (b"PANIC", b"fatal"),
    (b"EMERG", b"fatal"), (b"EMERGENCY", b"fatal"), (b"CRITICAL", b"fatal"), (b"ALERT", b"fatal"),
]


def level_named_by(text):
    """Returns the level that the text names, or None."""
    text = trim_blanks(text)
    for level in LEVELS:
        if text[:2].upper() == level[:1].upper() + b"~":
            return level
    text = text[1:] if text.startswith(b"[") else text
    for name, level in LEVEL_NAMES:
        if text[: len(name)].upper() == name and text[len(name) : len(name) + 1] in (b"", b" ", b"]"):
            return level
    return None


def rank_of_level(text):
    return LEVELS.index(level_named_by(text) or b"info")


# Parameters ----------------------------------------------------------------------------------------------------------

PRESENT, ABSENT = b"<single-word-command-present>", b"<single-word-command-absent>"
ALWAYS = {b"auth": "text", b"requestID": "text", b"output": "text"}
SYS = {b"sys": "sys", b"sys-impl": "sys"}
PROFILE = {b"profile": "text"}
SETTINGS = {b"helmsor": "helmsor", b"network": "text", b"invitation": "text", b"log_level": "level",
            b"activate": "word"}


class Rejected(Exception):
    """The words do not fit the command."""


class Helmsor:
    """Host and port as given; a port is 8096 unless digits follow the first colon."""

    def __init__(self, text):
        if re.match(rb"https?://", text, re.IGNORECASE):
            text = text.split(b"://", 1)[1].split(b"/", 1)[0]
        if not text:
            raise Rejected
        self.host, colon, port = text.partition(b":")
        self.port = int(re.match(rb"[0-9]*", port).group() or 0) if colon else 8096

    def has_port(self):
        return 1 <= self.port <= 65535


def whole_number(text):
    """A decimal number of 32 bits with at most one sign, or None."""
    text = trim_blanks(text)
    if not re.fullmatch(rb"[+-]?[0-9]+", text):
        return None
    number = int(text)
    return number if -(2**31) <= number < 2**31 else None


def single_word(text):
    if text in (b"", ABSENT) or text.lower() == b"false":
        return False
    if text == PRESENT or text.lower() == b"true":
        return True
    raise Rejected


def boolean(text):
    if text.lower() in (b"true", b"yes", b"on"):
        return True
    if text.lower() in (b"false", b"no", b"off"):
        return False
    raise Rejected


def number(text):
    value = whole_number(text)
    if value is None:
        raise Rejected
    return value


READ_VALUE = {"text": bytes, "level": lambda text: level_named_by(text) or text, "helmsor": Helmsor,
              "word": single_word, "boolean": boolean, "number": number}


def bind(parameters, required, words, detected_sys):
    """Returns the given values by key. `detected_sys` is the init system that an empty `sys=` means, or None."""
    members = {}
    for word in words:
        key, equals, value = word.partition(b"=")
        if key:
            members[key] = value if equals else PRESENT
    members.pop(b"command_name", None)
    values = {}
    for key, text in members.items():
        kind = {**ALWAYS, **parameters}.get(key)
        if kind is None or (kind != "word" and text in (PRESENT, ABSENT)):
            raise Rejected
        if kind == "sys":
            if text or detected_sys:
                values[b"sys"] = text or detected_sys
        else:
            values[key] = READ_VALUE[kind](text)
    if any(key not in values for key in required):
        raise Rejected
    return values


# Commands ------------------------------------------------------------------------------------------------------------


class Form:
    """A command: its method name, how many words name it, what it accepts and what it requires."""

    def __init__(self, method, count, parameters=None, required=()):
        self.method, self.count, self.parameters, self.required = method, count, parameters or {}, required


CREATE = Form(b"profile create", 3, {b"new_name": "text", b"allow_rename": "boolean", **SETTINGS, **SYS}, [b"helmsor"])
BOUNCE = Form(b"service restart", 2, {b"full": "word", **SYS})
LOG = Form(b"list log", 3, {b"max_lines": "number", b"log_level": "level", **PROFILE})
INTERFACES, PROFILES = Form(b"list interfaces", 2), Form(b"list profiles", 2)
VERSIONS = Form(b"list versions", 2)
FORMS = {
    b"profile create": CREATE,
    b"profile activate": Form(b"profile activate", 3, {**PROFILE, **SYS}),
    b"profile delete": Form(b"profile delete", 3, PROFILE),
    b"profile details": Form(b"profile details", 3, PROFILE),
    b"profile modify": Form(b"profile modify", 3, {b"new_name": "text", **SETTINGS, **PROFILE, **SYS}),
    b"profile rename": Form(b"profile rename", 3, {b"new_name": "text", **PROFILE}, [b"new_name"]),
    b"list log": LOG, b"show log": LOG,
    b"support reset": Form(b"support reset", 3, PROFILE),
    b"service start": Form(b"service start", 2, SYS),
    b"service stop": Form(b"service stop", 2, SYS),
    b"service restart": BOUNCE, b"service bounce": BOUNCE,
    b"service status": Form(b"service status", 2),
    b"list interfaces": INTERFACES, b"show interfaces": INTERFACES,
    b"list profiles": PROFILES, b"show profiles": PROFILES,
    b"list versions": VERSIONS, b"show versions": VERSIONS,
    b"support bundle": Form(b"support bundle", 2),
}
JSON = Form(b"json <object>", 2, {b"object": "text"})


def form_of(words):
    """Returns the form that the words name, or None; also None for usage, help and reference."""
    if len(words) < 2:
        return None
    if words[0] == b"json":
        return JSON
    if b" " in words[0]:
        return None
    form = FORMS.get(words[0] + b" " + words[1])
    return form if form and len(words) >= form.count else None


class Modes:
    """The output modes. The last word of a kind counts."""

    def __init__(self):
        self.quiet = self.verbose = False

    def take(self, word):
        """Returns true if the word is an output mode."""
        if word in (b"--quiet", b"--verbose"):
            self.quiet, self.verbose = word == b"--quiet", word == b"--verbose"
        return word in (b"--quiet", b"--verbose", b"--json", b"--text")


# Results -------------------------------------------------------------------------------------------------------------


def lines_of_status(method, modes, status):
    lines = []
    if modes.verbose:
        lines.append(b"method: " + method)
    if modes.verbose or (not modes.quiet and not status.is_success()):
        lines.append(b"status_text: " + status.text())
    if modes.verbose or not status.is_success():
        lines.append(b"status_code: 0x%08x" % status.code)
    return lines


def lines_of_result(key, value):
    if value is None:
        return []
    if isinstance(value, bool):
        value = b"true" if value else b"false"
    if isinstance(value, list):
        return ([] if key.startswith(b"_") else [key + b":"]) + value
    return [key + b": " + value]
