"""A model of ravctl: says what each command prints, what it leaves on disk and which tools it calls.

It is meant to be read beside the manual: one step a line, no cleverness. It knows nothing of the program's code.
"""

import errno
import re

import model_help
from model_files import DIRECTORY, FILE, LINK, NULL, Files, Node, Refused
from model_words import *

ROOT = b"/etc/zuv/profiles/"
CURRENT, FACTORY = ROOT + b".current", ROOT + b".factory"
STATE_FILES = [b"m2_cache", b"sadb.state", b"hip.state", b"peers", b"map.state", b"hipvars.txt"]
CERTIFICATE_FOLDERS = [b"ca-certs", b"customer-certs", b"peer_certs"]
YES, NO, UNKNOWN = "yes", "no", "unknown"
ACTIVE_SELECTORS = (b"", b".current", b"--active")
LEVELS_TO_WRITE = {b"error": b"error", b"warning": b"warning", b"info": b"info", b"debug": b"debug",
                   b"trace": b"trace", b"fatal": b"fatal", b"warn": b"warning", b"err": b"error"}
TOOLS = {
    b"systemd": {name: [b"/bin/systemctl", b"systemctl", name, b"hip"] for name in (b"start", b"stop", b"restart")},
    b"upstart": {name: [b"/sbin/initctl", b"initctl", name, b"hip"] for name in (b"start", b"stop", b"restart")},
    b"initd": {
        b"start": [b"/etc/init.d/hip", b"hip", b"start"],
        b"stop": [b"/usr/bin/killall", b"killall", b"/usr/sbin/hip"],
        b"restart": [b"/etc/init.d/hip", b"hip", b"restart"],
    },
}
BUNDLE_SCRIPT = b"/usr/bin/zuv-sendbundle.sh"

BROKEN_WAYS = (errno.ELOOP, errno.ENOENT, errno.ENOTDIR, errno.ENAMETOOLONG)
LEFTOVER = rb"\.deleted-[0-9]+"


class Host:
    """What a command sees besides files: the time, the interfaces, and how each tool ends.

    `tools` gives for a path "missing", ("exit", number) or ("signal", number); `calls` collects the calls.
    `interfaces` are (name, address or None, is_loopback) in the order of the system.
    """

    def __init__(self, top):
        self.top, self.now, self.interfaces, self.tools, self.calls = top, 0, [], {}, []
        self.changed = lambda: None  # called after each change and each call


class Record:
    """A profile: `dirname` is the name of its directory, `name` its display name."""

    def __init__(self, dirname, name):
        self.dirname, self.name = dirname, name


class Stop(Exception):
    """Ends a command with a status."""

    def __init__(self, code, details=b""):
        super().__init__(TEXTS[code])
        self.status = Status(code, details)


def plain_name(text):
    return b"" if b"/" in text or b"\0" in text or text.startswith(b".") else text


def as_ascii(text):
    return bytes(byte if byte < 0x80 else ord("?") for byte in text)


def pieces_of(data, size):
    """Cuts bytes into lines, and lines into pieces of at most `size` bytes."""
    for line in re.findall(rb"[^\n]*\n|[^\n]+", data):
        for start in range(0, len(line), size):
            yield line[start : start + size]


def unique_name(base, names):
    if base not in names:
        return base
    for count in range(2, 1000000):
        if base + b"#%d" % count not in names:
            return base + b"#%d" % count
    return base


class Command:
    """One run of the program. `run()` returns its standard output and exit status; the files change in place."""

    def __init__(self, host, uid, gid):
        self.host, self.files = host, Files(host.top, uid, gid, host.changed)
        self.results, self.modes, self.values, self.detected = [], Modes(), {}, "not yet"

    def run(self, words):
        words = words[1:] if words[:1] == [b"ravctl"] else words
        words = words or [b"usage"]
        form = form_of(words)
        if form is None and words[0] in (b"usage", b"help", b"reference"):
            return self.help(words)
        if form is None:
            return b"invalid command name\n", 1
        rest = [word for word in words[form.count :] if not self.modes.take(word)]
        for word in words[: form.count]:
            self.modes.take(word)
        try:
            self.values = bind(form.parameters, form.required, rest, self.detected_sys())
        except Rejected:
            return b"invalid command arguments\n", 1
        self.sys = self.values.get(b"sys")
        self.third = words[2] if form.count == 3 else b""
        try:
            step = "json" if form.method.startswith(b"json") else form.method.decode().replace(" ", "_")
            status = getattr(self, step)() or Status()
        except Stop as stop:
            status = stop.status
        except Refused:  # a step failed that the model takes for sure
            status = Status(APPLICATION_ERROR)
        lines = lines_of_status(form.method, self.modes, status)
        if status.is_success():
            for key, value in self.results:
                lines += lines_of_result(key, value)
        return b"".join(line.split(b"\0")[0] + b"\n" for line in lines), 0

    def help(self, words):
        self.modes.quiet = words[0] == b"help"
        for word in words:
            self.modes.take(word)
        lines = lines_of_status(words[0], self.modes, Status()) + model_help.page(words)
        return b"".join(line + b"\n" for line in lines), 0

    def result(self, key, value):
        self.results.append((key, value))

    def selector(self):
        return self.values.get(b"profile", self.third)

    # Rights and tools ------------------------------------------------------------------------------------------------

    def is_allowed(self):
        return self.files.uid == 0

    def authorize(self):
        if not self.is_allowed():
            raise Stop(NOT_ALLOWED)

    def detected_sys(self):
        if self.detected == "not yet":
            self.detected = self.detect()
        return self.detected

    def detect(self):
        if self.files.stat(b"/etc/zuv/.systemctl"):
            return b"systemd"
        return b"initd" if self.files.stat(b"/etc/init.d/hip") else None

    def call(self, operation):
        """Runs the init system's tool and returns its status."""
        name = self.sys or self.detected_sys() or b"null"
        if name in (b"null", b"launchd"):
            return Status(FORK if self.files.fails() else WAITPID if self.files.fails() else CHILD_NONZERO)
        tool = TOOLS.get(name, TOOLS[b"systemd"])[operation]
        if self.files.fails():
            return Status(FORK)
        end = self.host.tools.get(tool[0], "missing")
        if end == "missing":
            return Status(CHILD_NONZERO)
        self.host.calls.append(tool)
        self.host.changed()
        if self.files.fails():
            return Status(WAITPID)
        if end[0] == "signal":
            return Status(CHILD_SIGNAL)
        return Status(CHILD_NONZERO if end[1] else SUCCESS)

    # Reading the store -----------------------------------------------------------------------------------------------

    def first_line(self, path):
        """Returns the first line that is not blank; None if the file exists but cannot be read."""
        try:
            data = self.files.read(path)
        except Refused:
            return None if self.files.is_kind(path, FILE) else b""
        for line in re.findall(rb"[^\n]+", data):
            if trim_to_printable(line):
                return trim_to_printable(line)
        return b""

    def value(self, dirname, name, key):
        """Returns the value of the first line with this key, or None."""
        try:
            data = self.files.read(ROOT + dirname + b"/" + name) if dirname else b""
        except Refused:
            return None
        for line in pieces_of(data, 7999):
            line = trim_to_printable(line)
            if line.startswith(key + b"="):
                return line[len(key) + 1 :]
        return None

    def active(self):
        """Returns the active record, or None if the marker exists but cannot be read. Both names may be empty."""
        dirname = self.first_line(CURRENT)
        if dirname is None:
            return None
        dirname = plain_name(dirname)
        return Record(dirname, dirname and self.first_line(ROOT + dirname + b"/profile_name") or b"")

    def is_active(self, dirname):
        active = self.active()
        return active is not None and active.dirname == dirname

    def heartbeat(self):
        """Returns the variables of the daemon, or None if their file cannot be opened."""
        active = self.active()
        if active is None or not active.dirname:
            return None
        try:
            data = self.files.read(ROOT + active.dirname + b"/hipvars.txt")
        except Refused:
            return None
        variables = {}
        if self.files.fails():
            return variables  # a read error ends the file
        for line in pieces_of(data, 1023):
            key, equals, value = line.partition(b"=")
            if equals and trim_to_printable(key):
                variables[trim_to_printable(key)] = trim_to_printable(value)
        return variables

    def times(self, variables):
        """Returns the last heartbeat and the start, or None if one of them is missing."""
        if b"uptime.now" not in variables or b"uptime.started" not in variables:
            return None
        texts = [variables[b"uptime.now"], variables[b"uptime.started"]]
        numbers = [int(re.match(rb"[+-]?[0-9]+", text).group()) if re.match(rb"[+-]?[0-9]+", text) else 0
                   for text in texts]
        return [max(-(2**63), min(2**63 - 1, number)) for number in numbers]

    def run_state(self):
        variables = self.heartbeat()
        if variables is None:
            return NO
        times = self.times(variables)
        if times is None:
            return UNKNOWN
        return YES if self.host.now - times[0] < 6 else NO

    # Names and their repair ------------------------------------------------------------------------------------------

    def repair(self, dirname, name):
        """Writes the display name of a real directory. Returns false if that is impossible."""
        directory = self.files.lstat(ROOT + dirname)
        if directory is None or directory.kind != DIRECTORY:
            return False
        path = ROOT + dirname + b"/profile_name"
        try:
            entry = self.files.walk(path, follow=False).node
            try:
                if self.files.is_kind(path, NULL):
                    raise Refused(errno.EACCES)
                self.files.write(path, name + b"\n", 0o640)
                return True
            except Refused:
                if entry is None or entry.kind == FILE or not self.leads_astray(path):
                    return False
                self.files.replace(directory, b"profile_name", Node(FILE, 0o640, data=name + b"\n"))
                return True
        except Refused:
            return False

    def leads_astray(self, path):
        """Returns true if an untrusted link is on the way, or the path leads in a circle, to something that is no file or
        to a place where none can be."""
        try:
            found = self.files.walk(path)
            links, node = found.links, found.node
            is_astray = node is not None and node.kind != FILE and (node.kind == DIRECTORY or self.files.may(node, 2))
        except Refused as refused:
            links, is_astray = refused.links, refused.errno in BROKEN_WAYS
        return is_astray or self.files.has_untrusted(links)

    def name_to_change(self, dirname):
        """Reads a name once more before it changes: another name file may be the same file. What only a reader may
        follow counts as empty."""
        path = ROOT + dirname + b"/profile_name"
        try:
            links = self.files.walk(path).links
        except Refused:
            return b""
        return b"" if self.files.has_untrusted(links) else self.first_line(path) or b""

    def is_root_untrusted(self):
        try:
            return self.files.has_untrusted(self.files.walk(ROOT).links)
        except Refused as refused:
            return self.files.has_untrusted(refused.links)

    def profiles(self, except_for=None):
        """Lists the store and repairs its names. Returns None if that is impossible."""
        try:
            if self.is_root_untrusted():
                raise Refused(errno.ELOOP)
            root = self.files.list(ROOT)
        except Refused:
            return None
        accepted, duplicates, unnamed = [], [], []
        for dirname, node in list(root.entries.items()):
            if node.kind != DIRECTORY or dirname.startswith(b".") or dirname == except_for:
                continue
            name = self.first_line(ROOT + dirname + b"/profile_name")
            if not name:
                unnamed.append((dirname, b""))
            elif name in [record.name for record in accepted]:
                duplicates.append((dirname, name))
            else:
                accepted.append(Record(dirname, name))
        for dirname, old in duplicates + unnamed:
            now = self.name_to_change(dirname)
            name = unique_name(now or b"profile", [record.name for record in accepted])
            stays = now not in (b"", old) and name == now and self.files.set_mode(ROOT + dirname + b"/profile_name", 0o640)
            if not stays and not self.repair(dirname, name) and self.files.only_we_write(root.entries[dirname]):
                return None
            accepted.append(Record(dirname, name))
        return sorted(accepted, key=lambda record: record.name)

    def record_of(self, dirname):
        """Returns the record of a directory, whose name it repairs if need be; None if there is none."""
        name = self.first_line(ROOT + dirname + b"/profile_name")
        if name:
            return Record(dirname, name)
        if self.is_root_untrusted():
            return None
        directory = self.files.lstat(ROOT + dirname)
        if self.repair(dirname, b"profile") or (directory is not None and directory.kind == DIRECTORY
                                                and not self.files.only_we_write(directory)):
            return Record(dirname, b"profile")
        return None

    def resolve(self, selector):
        """Returns the code and the record of a selector."""
        active_code = RUNNING if self.run_state() == YES else ACTIVE
        if selector in ACTIVE_SELECTORS:
            active = self.active()
            return (active_code, active) if active else (NOT_FOUND, None)
        if selector in (b".factory", b"dir=.factory"):
            return SUCCESS, Record(b".factory", b".factory")
        if selector == b"dir=":
            return INVALID_ARGUMENT, None
        if selector.startswith(b"dir="):
            dirname = plain_name(selector[4:])
            record = self.record_of(dirname) if dirname else None
        else:
            profiles = self.profiles()
            if profiles is None:
                return APPLICATION_ERROR, None
            record = next((record for record in profiles if record.name == selector), None)
        if record is None:
            return NOT_FOUND, None
        return (active_code if self.is_active(record.dirname) else SUCCESS), record

    def resolve_or_stop(self, selector, may_be_factory=False):
        code, record = self.resolve(selector)
        if record is None:
            raise Stop(code)
        if record.dirname == b".factory" and not may_be_factory:
            raise Stop(INVALID_ARGUMENT)
        return code, record

    def check_new_name(self, name):
        """A new name must not be a selector that finds anything."""
        if has_controls(name) or self.resolve(name)[0] != NOT_FOUND:
            raise Stop(INVALID_ARGUMENT, b"invalid profile name")

    # The active profile ----------------------------------------------------------------------------------------------

    def set_active(self, dirname):
        try:
            if not dirname:
                return False
            self.files.write(CURRENT, dirname + b"\n", 0o640)
            marker = self.files.stat(CURRENT)
            if marker is not None and self.files.uid in (0, marker.uid) and not self.files.fails():
                marker.mode = 0o666
                self.host.changed()
            return marker is not None and marker.mode & 0o777 == 0o666
        except Refused:
            return False

    def elect(self, starts=True):
        """Makes sure that a profile is active. A create uses the detected init system. A failure is ignored. Returns the
        record of a profile that was created."""
        active = self.active()
        if active and active.dirname and self.files.is_kind(ROOT + active.dirname + b"/hip.conf", FILE):
            return None
        profiles = self.profiles()
        if profiles:
            self.set_active(profiles[0].dirname)
            return None
        given, self.sys = self.sys, None
        try:
            return self.create_profile(b"", None, True, True, {}, starts)[1]
        except (Stop, Refused):
            return None
        finally:
            self.sys = given

    # Writing a profile -----------------------------------------------------------------------------------------------

    def edit(self, dirname, name, change):
        """Replaces a file by one with changed lines: `change` gets the lines and returns the new ones."""
        if not dirname:
            raise Stop(FILE_OPEN)
        path = ROOT + dirname + b"/" + name
        try:
            place = self.files.walk(path, follow=False)
            temporary = place.directory.entries.get(name + b".temp")
            if self.files.has_untrusted(place.links):
                raise Refused(errno.EACCES)
            if temporary is not None and temporary.kind == DIRECTORY:
                raise Refused(errno.EISDIR)
            place.directory.entries.pop(name + b".temp", None)
            self.host.changed()
            old = self.files.target_or_missing(path)
            lines = re.findall(rb"[^\n]*\n|[^\n]+", self.files.read(path)) if old else []
        except Refused as refused:
            raise Stop(FILE_OPEN) from refused
        new = Node(FILE, 0o644, gid=self.files.group_of_new(place.directory), data=b"".join(change(lines)))
        if old is not None and old.kind == FILE:
            new.mode, new.uid, new.gid, new.access = old.mode & 0o777, old.uid, old.gid, old.access
        if self.files.fails():
            raise Stop(FILE_WRITE)
        place.directory.entries[name] = new
        self.host.changed()

    def set_lines(self, dirname, name, settings):
        """Sets `key=value` lines: replaces every line with the key, or else appends one."""

        def change(lines):
            changed, found = [], set()
            for line in lines:
                key = next((key for key, _ in settings if line.startswith(key + b"=")), None)
                found.add(key)
                changed.append(line if key is None else key + b"=" + dict(settings)[key] + b"\n")
            missing = [key + b"=" + value + b"\n" for key, value in settings if key not in found]
            if missing and changed and not changed[-1].endswith(b"\n"):
                changed[-1] += b"\n"
            return changed + missing

        self.edit(dirname, name, change)

    def set_interface(self, dirname, interface):
        if not interface:
            raise Stop(INVALID_ARGUMENT)
        self.set_lines(dirname, b"hip.conf", [(b"master_interface", interface)])

    def set_invitation(self, dirname, invitation):
        invitation = trim_blanks(invitation)
        key = b"activation_code="
        if not invitation:
            return
        if invitation != b"###":
            self.set_lines(dirname, b"endbox.conf", [(key[:-1], invitation)])
        elif dirname and self.files.lstat(ROOT + dirname + b"/endbox.conf"):
            if self.has_line(dirname, b"endbox.conf", key):
                self.edit(dirname, b"endbox.conf", lambda lines: [line for line in lines if not line.startswith(key)])

    def has_line(self, dirname, name, start):
        """Returns true if a line of the file begins so, or the file exists and cannot be read. Behind a trusted link to
        nothing there is no file."""
        try:
            return (b"\n" + self.files.read(ROOT + dirname + b"/" + name)).find(b"\n" + start) >= 0
        except Refused as refused:
            return refused.errno != errno.ENOENT or self.files.has_untrusted(refused.links)

    def set_level(self, dirname, level):
        if not level:
            return
        level = LEVELS_TO_WRITE.get(level.lower())
        if level is None:
            raise Stop(APPLICATION_ERROR, b"invalid log_level value")
        self.set_lines(dirname, b"endbox.conf", [(b"log_level", level), (b"openhip.log_level", level)])

    def write_address(self, dirname, address, failure):
        try:
            if not dirname:
                raise Refused(errno.ENOENT)
            self.files.write(ROOT + dirname + b"/mapconfig.static", b"map_uri=" + address + b"\n", 0o640)
        except Refused as refused:
            raise Stop(failure) from refused

    def set_address_of_new(self, dirname, helmsor):
        if helmsor is None or not helmsor.host:
            address = b""
        elif helmsor.has_port():
            address = b"https://%s:%d" % (helmsor.host, helmsor.port)
        else:
            address = b"https://" + helmsor.host
        self.write_address(dirname, address, FILE_OPEN)

    def set_address(self, dirname, helmsor):
        if helmsor.host:
            port = helmsor.port if helmsor.has_port() else 8096
            self.write_address(dirname, b"https://%s:%d" % (helmsor.host, port), APPLICATION_ERROR)
        elif helmsor.has_port():
            host, _ = self.address(dirname)
            if not host:
                raise Stop(APPLICATION_ERROR)
            self.write_address(dirname, b"https://%s:%d" % (host, helmsor.port), APPLICATION_ERROR)

    def address(self, dirname):
        """Returns host and port of `mapconfig.static`; both are empty if there is none."""
        text = as_ascii(self.value(dirname, b"mapconfig.static", b"map_uri") or b"")
        text = re.sub(rb"^https?://", b"", text, flags=re.IGNORECASE).split(b"/", 1)[0]
        host, colon, port = text.partition(b":")
        return host, (port if colon else b"8096")

    def remove_state(self, dirname):
        if not dirname:
            return
        try:
            found = self.files.walk(ROOT + dirname)
        except Refused:
            return
        if found.node is None or found.node.kind != DIRECTORY or self.files.has_untrusted(found.links):
            return
        for name in STATE_FILES:
            node = found.node.entries.get(name)
            if node is not None and node.kind != DIRECTORY and not self.files.fails():
                del found.node.entries[name]
                self.host.changed()

    # Commands that read ----------------------------------------------------------------------------------------------

    def list_profiles(self):
        self.elect()
        profiles = self.profiles()
        if profiles is None:
            raise Stop(APPLICATION_ERROR)
        active = self.active() or Record(b"", b"")
        self.result(b"_profiles", [b"%s\t'%s'" % (record.dirname, record.name) for record in profiles])
        self.result(b"current_dir", active.dirname if self.modes.verbose else None)
        self.result(b"current_name", active.name)
        self.result(b"root_dir", ROOT if self.modes.verbose else None)

    def profile_details(self):
        self.elect()
        code, record = self.resolve_or_stop(self.selector(), may_be_factory=True)
        self.result(b"_details", self.details(record))
        return Status(code)

    def details(self, record):
        def value(name, key):
            return self.value(record.dirname, name, key)

        def ascii_value(name, key):
            return as_ascii(value(name, key) or b"")

        device = self.first_line(ROOT + record.dirname + b"/device_id") if record.dirname else b""
        host, port = self.address(record.dirname)
        level = value(b"endbox.conf", b"log_level")
        level = value(b"endbox.conf", b"openhip.log_level") if level is None else level
        invitation = ascii_value(b"endbox.conf", b"activation_code")
        lines = [b"profile_dir=" + record.dirname, b"profile_name=" + record.name]
        lines.append(b"network=" + (value(b"hip.conf", b"master_interface") or b""))
        lines.append(b"deviceID=" + (device or b""))
        lines.append(b"overlay_device_ip=" + ascii_value(b"endbox.conf", b"device_ip"))
        lines.append(b"overlay_mask=" + ascii_value(b"endbox.conf", b"device_mask"))
        if invitation:
            lines.append(b"invitation=" + invitation)
        if host:
            lines.append(b"helmsor=" + host + (b":" + port if port else b""))
        lines.append(b"log_level=" + as_ascii(level or b""))
        return lines

    def list_log(self):
        _, record = self.resolve_or_stop(self.selector(), may_be_factory=True)
        max_lines = self.values.get(b"max_lines", 50)
        max_lines = 50 if max_lines < 0 else min(max_lines, 100000)
        threshold = rank_of_level(self.values.get(b"log_level", b"info"))
        path = ROOT + record.dirname + b"/hip.log"
        try:
            if not record.dirname:
                raise Refused(errno.ENOENT)
            data = self.files.read(path)
        except Refused as refused:
            if record.dirname and self.exists_or_hidden(path):
                raise Stop(FILE_OPEN) from refused
            self.result(b"_log", [b"no logfile available for this profile"])
            return Status(WARNINGS)
        lines = [piece.split(b"\0")[0].rstrip(b"\r\n") for piece in pieces_of(data, 4095)]
        lines = [line for line in lines if line and rank_of_level(line) >= threshold]
        self.result(b"_log", lines[-max_lines:] if max_lines else [])
        self.result(b"profile_name", record.name)
        return Status()

    def exists_or_hidden(self, path):
        try:
            found = self.files.walk(path)
            return found.node is not None or self.files.has_untrusted(found.on_the_way)
        except Refused as refused:
            missing = (errno.ENOENT, errno.ENOTDIR, errno.ENAMETOOLONG)
            return refused.errno not in missing or self.files.has_untrusted(refused.on_the_way)

    def list_interfaces(self):
        names = []
        if self.files.fails():
            raise Stop(GETIFADDRS)
        for name, address, is_loopback in self.host.interfaces:
            if address is None or is_loopback or name.startswith(b"tap"):
                continue
            if address.split(".")[2:] != ["254", "169"]:
                names.append(name)
        self.result(b"_interfaces", names)

    def list_versions(self):
        version = self.first_line(FACTORY + b"/firmware_revision")
        self.result(b"hipapp_version", b"2.2" if version is None else version)
        self.result(b"ravctl_version", b"2.2")

    def json(self):
        self.result(b"subcommand", [])

    # Commands of the service -----------------------------------------------------------------------------------------

    def service_start(self):
        self.authorize()
        return self.call(b"start")

    def service_stop(self):
        self.authorize()
        return self.call(b"stop")

    def service_restart(self):
        self.authorize()
        return self.call(b"restart")

    def service_status(self):
        running, helmsor, tunnel = self.run_state() == YES, False, False
        if running:
            variables = self.heartbeat()
            running = variables is not None
        if running:
            times = self.times(variables)
            if times is None:
                raise Stop(APPLICATION_ERROR)
            last, started = times
            if last - started > 4 and b"hipd_state" in variables:
                peers = re.match(rb"[+-]?[0-9]+", variables.get(b"peers.count", b""))
                tunnel = peers is not None and int(peers.group()) >= 1
                helmsor = variables.get(b"helmsor.up") == b"true"
        self.result(b"running", running)
        self.result(b"helmsor", helmsor)
        self.result(b"tunnel", tunnel)

    def support_bundle(self):
        end = self.host.tools.get(BUNDLE_SCRIPT, "missing")
        if self.files.fails():
            raise Stop(APPLICATION_ERROR)
        if end != "missing":
            self.host.calls.append([BUNDLE_SCRIPT])
            self.host.changed()
        if end != ("exit", 0):
            raise Stop(APPLICATION_ERROR)

    def support_reset(self):
        self.authorize()
        code, record = self.resolve_or_stop(self.selector(), may_be_factory=True)
        if code == RUNNING:
            raise Stop(NOT_WHILE_RUNNING)
        self.remove_state(record.dirname)
        self.result(b"support reset", record.name)

    # Commands that change profiles -----------------------------------------------------------------------------------

    def profile_create(self):
        self.authorize()
        name = trim_blanks(self.values.get(b"new_name", self.third))
        if has_controls(name):
            raise Stop(INVALID_ARGUMENT, b"invalid profile name")
        self.check_values()
        rename, activate = self.values.get(b"allow_rename", True), self.values.get(b"activate", False)
        settings = {key: self.values.get(key, b"") for key in (b"network", b"invitation")}
        name, record = self.create_profile(name, self.values[b"helmsor"], rename, activate, settings)
        self.result(b"_details", [] if self.modes.quiet or record is None else self.details(record))
        self.result(b"profile_name", name)

    def check_values(self):
        """Refuses control bytes inside of values, before anything changes."""
        helmsor = self.values.get(b"helmsor")
        values = [self.values.get(b"network", b""), trim_blanks(self.values.get(b"invitation", b""))]
        if any(has_controls(value) for value in values + [helmsor.host if helmsor else b""]):
            raise Stop(INVALID_ARGUMENT)

    def create_profile(self, requested, helmsor, rename, activate, settings, starts=True):
        """Creates a profile. Returns its name and record, or stops with the first failure."""
        self.authorize()
        dirname, directory = self.new_directory()
        profiles = self.profiles(except_for=dirname)
        base = requested or b"profile"
        names = None if profiles is None else [record.name for record in profiles]
        if names is None or (base in names and not rename):
            raise Stop(APPLICATION_ERROR)
        name = unique_name(base, names)
        if activate and self.run_state() != NO:
            self.call(b"stop")
        self.copy_files(FACTORY, directory)
        self.write_name(dirname, name)
        self.copy_certificates(directory)
        self.set_address_of_new(dirname, helmsor)
        statuses = []
        if settings.get(b"network"):
            statuses.append(self.status_of(self.set_interface, dirname, settings[b"network"]))
        if settings.get(b"invitation"):
            statuses.append(self.status_of(self.set_invitation, dirname, settings[b"invitation"]))
        if activate:
            statuses.append(Status(SUCCESS if self.set_active(dirname) else APPLICATION_ERROR))
            statuses += [self.call(b"start")] if starts else []
        self.stop_at_first_failure(statuses)
        return name, self.record_of(dirname)

    def new_directory(self):
        try:
            root = self.files.walk(ROOT).node
        except Refused:
            root = None
        if root is None or root.kind != DIRECTORY or self.is_root_untrusted():
            raise Stop(APPLICATION_ERROR)
        number = 123123
        while True:
            dirname = b"profile-%d" % number
            if dirname not in root.entries and not self.files.fails():
                directory = self.files.make(root, dirname, Node(DIRECTORY, 0o755))
                if not self.files.fails():
                    break
            number += 1
        root.entries = {dirname: root.entries.pop(dirname), **root.entries}  # a file system in memory lists it first
        return dirname, directory

    def copy_files(self, path, directory):
        """Copies the files of a template, and what its links lead to. A missing template is empty."""
        try:
            template = self.files.list(path)
        except Refused as refused:
            if refused.errno == errno.ENOENT:
                return
            raise Stop(OPENDIR) from refused
        # Files first, then links with absolute texts.
        def turn(name):
            node = template.entries[name]
            return 0 if node.kind != LINK else 1 if node.data.startswith(b"/") else 2

        for name in sorted(template.entries, key=turn):
            node = template.entries[name]
            if node.kind not in (FILE, LINK) or (node.kind == LINK and not self.is_good_link(path + b"/" + name)):
                continue
            try:
                data = self.files.read(path + b"/" + name)
            except Refused as refused:
                raise Stop(FILE_OPEN, path + b"/" + name) from refused
            if name in directory.entries and self.files.fails():  # a copy empties its target first
                directory.entries[name].data = b""
                raise Stop(FILE_WRITE)
            self.files.make(directory, name, Node(FILE, 0o644, data=data))

    def is_good_link(self, path):
        try:
            found = self.files.walk(path)
        except Refused:
            return False
        return not self.files.has_untrusted(found.links) and found.node is not None and found.node.kind == FILE

    def copy_certificates(self, directory):
        folder = directory.entries.get(b"ca-certs")
        if folder is None and self.files.fails():
            return
        if folder is None:
            folder = self.files.make(directory, b"ca-certs", Node(DIRECTORY, 0o755))
        if folder.kind == DIRECTORY:
            self.status_of(self.copy_files, FACTORY + b"/ca-certs", folder)

    def status_of(self, step, *arguments):
        try:
            step(*arguments)
            return Status()
        except Stop as stop:
            return stop.status
        except Refused:
            return Status(FILE_OPEN)

    def stop_at_first_failure(self, statuses):
        for status in statuses:
            if not status.is_success():
                raise Stop(status.code, status.details)

    def profile_activate(self):
        self.authorize()
        selector = self.selector()
        if not selector:
            raise Stop(INVALID_ARGUMENT)
        elected = None
        if selector in ACTIVE_SELECTORS:
            active = self.active()
            if active and not (active.dirname and self.files.is_kind(ROOT + active.dirname, DIRECTORY)):
                elected = self.elect(starts=False)
        code, record = (ACTIVE, elected) if elected else self.resolve_or_stop(selector)
        self.result(b"profile_name", record.name)
        if code == RUNNING:
            return Status()
        if code == ACTIVE:
            if not record.dirname or not self.files.is_kind(ROOT + record.dirname, DIRECTORY):
                raise Stop(NOT_FOUND)
            return self.call(b"start")
        self.call(b"stop")
        self.set_active(record.dirname)
        return self.call(b"start")

    def profile_delete(self):
        self.authorize()
        if self.selector() in (b".factory", b".current"):
            raise Stop(INVALID_ARGUMENT)
        code, record = self.resolve_or_stop(self.selector())
        if code == RUNNING:
            raise Stop(NOT_WHILE_RUNNING)
        if not record.dirname:
            raise Stop(APPLICATION_ERROR)
        if self.files.fails():
            raise Stop(NOT_FOUND)
        root = self.files.walk(ROOT).node
        self.remove_leftovers(root)
        if self.files.fails():
            raise Stop(APPLICATION_ERROR)
        if len(record.dirname) > 255:
            raise Stop(APPLICATION_ERROR)
        entry = root.entries.get(record.dirname)
        if entry is not None and entry.kind not in (DIRECTORY, LINK):
            raise Stop(APPLICATION_ERROR)
        if entry is not None and entry.kind == DIRECTORY:
            path = ROOT + record.dirname
            for name in CERTIFICATE_FOLDERS:
                self.remove_tree(entry, name, path)
            name = entry.entries.get(b"profile_name")
            keeps_name = name is not None and name.kind in (FILE, LINK)
            self.empty(entry, path, except_for=b"profile_name" if keeps_name else None)
            if entry.entries and (len(entry.entries) > 1 or not keeps_name):
                raise Stop(APPLICATION_ERROR)
        if entry is not None:
            self.take_out(root, record.dirname)
        self.elect()

    def take_out(self, root, dirname):
        if self.files.fails():
            raise Stop(APPLICATION_ERROR)
        entry = root.entries.pop(dirname)
        if entry.kind == DIRECTORY:
            number = next(number for number in range(1, 1000) if b".deleted-%d" % number not in root.entries)
            root.entries[b".deleted-%d" % number] = entry
            self.host.changed()
            self.remove_leftover(root, b".deleted-%d" % number)
        self.host.changed()

    def remove_tree(self, directory, name, path):
        node = directory.entries.get(name)
        if node is not None and node.kind == DIRECTORY:
            self.empty(node, path + b"/" + name)
        if node is not None and not node.entries and not self.files.fails():
            del directory.entries[name]
            self.host.changed()

    def empty(self, directory, path, except_for=None):
        """Removes files, then links that lead to files or directories, then directories that can be emptied. What each
        entry is was decided before the first removal."""
        kinds = {}
        for name, node in directory.entries.items():
            target = self.link_target(path, node) if node.kind == LINK else node
            kinds[name] = (node.kind, target and target.kind)
        kinds.pop(except_for, None)
        for kind in [(FILE, FILE), (LINK, FILE), (LINK, DIRECTORY)]:
            for name in [name for name in kinds if kinds[name] == kind]:
                if not self.files.fails():
                    del directory.entries[name]
                    self.host.changed()
        for name in [name for name in kinds if kinds[name] == (DIRECTORY, DIRECTORY)]:
            self.remove_tree(directory, name, path)

    def link_target(self, path, link):
        try:
            return self.files.walk_from(path, link.data).node
        except Refused:
            return None

    def remove_leftovers(self, root):
        """Removes the name file of directories that an earlier delete took out of the store, then the directories."""
        for dirname, node in list(root.entries.items()):
            if node.kind == DIRECTORY and re.fullmatch(LEFTOVER, dirname):
                self.remove_leftover(root, dirname)

    def remove_leftover(self, root, dirname):
        entries = root.entries[dirname].entries
        if b"profile_name" in entries and entries[b"profile_name"].kind != DIRECTORY and not self.files.fails():
            del entries[b"profile_name"]
            self.host.changed()
        if not entries and not self.files.fails():
            del root.entries[dirname]
            self.host.changed()

    def profile_rename(self):
        self.authorize()
        self.elect()
        _, record = self.resolve_or_stop(self.selector())
        name = trim_blanks(self.values[b"new_name"])
        if not name:
            raise Stop(INVALID_ARGUMENT, b"profile name not provided")
        self.check_new_name(name)
        if not record.dirname:
            raise Stop(INVALID_ARGUMENT)
        self.rename(record, name)
        self.result(b"profile_name", name)

    def rename(self, record, name):
        if name != record.name:
            self.write_name(record.dirname, name)

    def write_name(self, dirname, name):
        try:
            self.files.write(ROOT + dirname + b"/profile_name", name + b"\n", 0o640)
        except Refused as refused:
            raise Stop(FILE_OPEN) from refused

    def rename_by_directory(self, record, name):
        record = self.record_of(record.dirname)
        if record is None:
            raise Stop(NOT_FOUND)
        self.check_new_name(name)
        self.rename(record, name)

    def profile_modify(self):
        self.authorize()
        self.elect()
        _, record = self.resolve_or_stop(self.selector())
        if not record.dirname:
            raise Stop(INVALID_ARGUMENT)
        new_name = self.values.get(b"new_name")
        if new_name is not None:
            new_name = trim_blanks(new_name)
            if not new_name:
                raise Stop(INVALID_ARGUMENT, b"invalid profile name")
            self.check_new_name(new_name)
        self.check_values()
        is_active, runs = self.is_active(record.dirname), self.run_state() != NO
        activate = self.values.get(b"activate", False)
        stops = runs and (is_active or activate)
        statuses = [self.call(b"stop")] if stops else []
        first = self.status_of(self.change_address_and_level, record)
        if not first.is_success():
            if stops:
                statuses += [first, self.call(b"start")]
            self.stop_at_first_failure(statuses + [first])
        self.remove_state(record.dirname)
        if b"network" in self.values:
            statuses.append(self.status_of(self.set_interface, record.dirname, self.values[b"network"]))
        if b"invitation" in self.values:
            statuses.append(self.status_of(self.set_invitation, record.dirname, self.values[b"invitation"]))
        if new_name is not None:
            statuses.append(self.status_of(self.rename_by_directory, record, new_name))
        if activate and not is_active:
            statuses.append(Status(SUCCESS if self.set_active(record.dirname) else APPLICATION_ERROR))
        if activate or (is_active and runs):
            statuses.append(self.call(b"start"))
        self.stop_at_first_failure(statuses)
        record = self.record_of(record.dirname)
        self.result(b"_details", [] if self.modes.quiet or record is None else self.details(record))

    def change_address_and_level(self, record):
        if b"helmsor" in self.values:
            self.set_address(record.dirname, self.values[b"helmsor"])
        self.set_level(record.dirname, self.values.get(b"log_level", b""))
