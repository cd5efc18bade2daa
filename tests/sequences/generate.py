"""Random stores and random commands, from one source of random numbers."""

import errno

from model_files import DIRECTORY, FIFO, FILE, LINK, NULL, SOCKET, ZERO, AccessList, Node
from model_store import BUNDLE_SCRIPT
from real_host import USER

OTHER_USER = 2000
ROOT = b"/etc/zuv/profiles/"
DIRNAMES = [b"profile-123123", b"profile-123124", b"profile-123125", b"profile-123127", b"site", b"a b", b"-", b"\xff",
            b"x" * 200]
NAMES = [b"lab", b"lab", b"lab#2", b"Lab", b"profile", b"profile#2", b"a b", b"\xe9t\xe9", b"x\xffy", b"'q'", b"--json",
         b".current", b"--active", b".factory", b"dir=site", b"dir=nothing", b"a\tb", b"n" * 300, b"%s%n"]
LEVELS = [b"info", b"warn", b"Warning", b"ERR", b"error", b"debug", b"trace", b"fatal", b"critical", b" debug ",
          b"notice", b"verbose", b"", b"  ", b"e~", b"[warn] x", b"E", b"errors"]
HELMSORS = [b"h.example", b"h:443", b"h:0", b"h:70000", b"h:99999999999", b":443", b":0", b":", b"", b"https://h:1/x",
            b"HTTP://h/x", b"https:///x", b"h/x", b"h:12ab", b"[::1]:5", b"\xe9:1", b"a\x01b:1", b" h", b"h=i:2"]
INTERFACES = [b"eth0", b"auto", b"", b"e\x01", b" eth1 ", b"a=b", b"\xe9"]
INVITATIONS = [b"code", b"###", b"", b"  ", b" a b ", b"\tx\n", b"a\nb", b"\xe9", b"#", b"### "]
FRESH = b"uptime.now=9999999999\n"
STALE = b"uptime.now=1000000000\n"


class Generator:
    def __init__(self, random, has_other_users, stops):
        self.random, self.has_other_users, self.stops = random, has_other_users, stops

    def one(self, *weighted):
        """Returns one of (weight, value) pairs."""
        return self.random.choices([value for _, value in weighted], [weight for weight, _ in weighted])[0]

    def odd(self, factor=1.0):
        return self.random.random() < self.oddness * factor

    def owner(self):
        uid = self.random.choice([USER, OTHER_USER]) if self.odd() else 0
        gid = self.random.choice([0, USER, OTHER_USER]) if self.odd(0.3) else uid
        return (uid, gid) if self.has_other_users else (0, 0)

    def node(self, kind, mode, odd_modes, **more):
        uid, gid = self.owner()
        node = Node(kind, self.random.choice(odd_modes) if self.odd() else mode, uid, gid, **more)
        if self.has_other_users and kind in (FILE, DIRECTORY) and self.odd(0.5):
            users = self.random.sample([USER, OTHER_USER], self.random.choice([1, 2]))
            node.access = AccessList(self.random.randrange(8), {user: self.random.randrange(8) for user in users})
            node.mode = self.random.choice([node.mode, node.mode | 0o070])
        return node

    def special(self):
        """Returns an entry that is neither file nor directory nor link."""
        kind = self.one((2, FIFO), (1, SOCKET), (1, NULL), (1, ZERO)) if self.has_other_users else FIFO
        return self.node(kind, 0o644, [0o600, 0o666])

    def file(self, data, mode=0o644):
        node = self.node(FILE, mode, [0o600, 0o640, 0o666, 0o444, 0o400, 0o000, 0o755, 0o6755], data=data)
        if self.odd(0.3):
            self.shared.append(node)
        return node

    def directory(self, entries=None):
        node = self.node(DIRECTORY, 0o755, [0o700, 0o777, 0o775, 0o711, 0o750, 0o2755, 0o2775, 0o1755, 0o3775])
        node.entries = entries or {}
        return node

    def link(self):
        texts = [b"/etc/outside/" + name for name in self.outside] * 2
        texts += [b"/dev/null", b"nothing", b"/etc/outside/nowhere", b"/etc/outside/nowhere/file", b"real",
                  b"../../../outside/text/file", b"profile_name", b"..", b".",
                  b"../../../outside/text", b"../site/profile_name",
                  b"/etc/zuv/profiles/profile-123123/profile_name"]
        return self.node(LINK, 0o777, [0o777], data=self.random.choice(texts))

    def put(self, entries, name, data, mode=0o644, missing=0.1):
        """Puts a file of this name, or rarely something else."""
        if self.random.random() < missing:
            return
        if self.odd():
            entry = self.one((4, "link"), (1, "special"), (1, "directory"), (2, "shared"), (2, "empty"), (1, "none"))
            if entry == "link":
                entries[name] = self.link()
            elif entry == "special":
                entries[name] = self.special()
            elif entry == "directory":
                entries[name] = self.directory({b"inner": self.file(b"x")} if self.odd() else {})
            elif entry == "shared" and self.shared:
                entries[name] = self.random.choice(self.shared)
            elif entry == "empty":
                entries[name] = self.file(b"", mode)
            return
        entries[name] = self.file(data, mode)

    # Stores ----------------------------------------------------------------------------------------------------------

    def host(self):
        """Returns the top of a tree, and the tools."""
        self.oddness = self.one((2, 0.0), (3, 0.03), (3, 0.12), (1, 0.4))
        self.shared, self.outside = [], []
        outside = {}
        for name in [b"text", b"conf", b"folder", b"queue", b"hop"]:
            kind = {b"folder": DIRECTORY, b"queue": FIFO, b"hop": LINK}.get(name, FILE)
            data = {b"hop": b"text", b"text": b"out\n", b"conf": self.config()}.get(name, b"")
            uid = self.one((3, 0), (1, USER), (1, OTHER_USER)) if self.has_other_users else 0
            outside[name] = Node(kind, 0o755 if kind == DIRECTORY else 0o644, uid, uid, data)
            self.outside.append(name)
        outside[b"folder"].entries[b"profile_name"] = Node(FILE, 0o644, 0, 0, b"afar\n")
        if self.odd():
            self.shared.append(outside[b"text"])
        profiles = self.directory()
        zuv = {b"profiles": profiles}
        dirnames = self.random.sample(DIRNAMES, self.random.choice([0, 1, 1, 2, 2, 3, 4]))
        for dirname in dirnames:
            profiles.entries[dirname] = self.profile()
        self.put(profiles.entries, b".current", self.marker(dirnames), 0o666)
        if self.random.random() < 0.8:
            profiles.entries[b".factory"] = self.factory()
        self.strays(profiles.entries)
        if self.odd(0.2):
            del zuv[b"profiles"]
        elif self.odd(0.5):  # a link in a folder of root's; it may belong to another user
            outside[b"store"] = profiles
            texts = [b"/etc/outside/store", b"../outside/store/", b"/etc/outside/nowhere", b"/etc/outside/text"]
            zuv[b"profiles"] = Node(LINK, 0o777, outside[b"hop"].uid, outside[b"hop"].gid,
                                    self.random.choice(texts[:2] + texts))
        if self.random.random() < 0.4:
            zuv[b".systemctl"] = Node(FILE)
        top = Node(DIRECTORY, 0o755)
        top.entries = {b"etc": Node(DIRECTORY, 0o755), b"dev": Node(DIRECTORY, 0o755)}
        top.entries[b"etc"].entries = {b"zuv": Node(DIRECTORY, 0o755, entries=zuv),
                                       b"outside": Node(DIRECTORY, 0o755, entries=outside)}
        top.entries[b"dev"].entries[b"null"] = Node(NULL, 0o666)
        tools = {path: self.one((6, ("exit", 0)), (1, ("exit", 3)), (1, ("signal", 9)), (1, "missing"))
                 for path in [b"/bin/systemctl", b"/sbin/initctl", b"/usr/bin/killall", BUNDLE_SCRIPT]}
        tools[b"/etc/init.d/hip"] = self.one((3, ("exit", 0)), (1, ("exit", 1)), (4, "missing"))
        if tools[b"/etc/init.d/hip"] != "missing":
            top.entries[b"etc"].entries[b"init.d"] = Node(DIRECTORY, 0o755, entries={b"hip": Node(FILE, 0o755)})
        return top, tools

    def strays(self, entries):
        if self.odd(2):
            entries[b"stray"] = self.file(b"lab\n")
        if self.odd(2):
            entries[b"way"] = self.node(LINK, 0o777, [0o777], data=self.random.choice(
                [b"profile-123123", b"site", b"/etc/outside/folder", b"nothing", b"stray", b"/etc/zuv/profiles/site"]))
        if self.odd(0.5):
            entries[b"queue"] = self.special()
        for name in [b"profile-123126", b"profile-123128"]:
            if self.odd(0.5):
                entries[name] = self.one((1, self.file(b"")), (1, self.link()), (1, self.special()))
        if self.odd(0.7):
            entries[self.one((3, b".deleted-1"), (1, b".deleted-22"), (1, b".deleted-x"))] = self.one(
                (3, self.directory()), (3, self.directory({b"profile_name": self.file(b"old\n")})), (1, self.profile()),
                (1, self.file(b"x")), (1, self.link()))
        if self.odd(0.5):
            entries[b".hidden"] = self.directory({b"profile_name": self.file(b"hidden\n")})

    def marker(self, dirnames):
        text = self.random.choice(dirnames) if dirnames else b"profile-123123"
        if self.odd():
            text = self.random.choice([b"", b"../x", b".factory", b"nothing", b"way", b"stray", b"\0", b"site\0", b"."])
        return self.one((8, text + b"\n"), (1, b"\n \n " + text + b" \n"), (1, text), (1, text + b"\nother\n"))

    def name_text(self):
        name = self.random.choice(NAMES)
        return self.one((12, name + b"\n"), (1, name), (1, b" \n\t" + name + b" \nmore\n"), (1, name + b"\xff\n"),
                        (1, b""), (1, b" \n"), (1, name + b"\r\n"), (1, b"\0\n" + name), (1, name + b"\0x\n"), (1, b"a\0\n"))

    def config(self):
        lines = [b"# note", b"", b"master_interface=eth0", b" master_interface=eth9", b"log_level=warning",
                 b"openhip.log_level=debug", b"activation_code=abc", b"activation_code=", b"device_ip=10.1.2.3",
                 b"device_mask=255.0.0.0", b"device_ip=\xe9", b"map_uri=https://h:1", b"other=1", b"log_level=\xe9",
                 b"master_interface", b"#master_interface=no", b"y" * 9000, b"openhip.log_level=",
                 b"activation_code=\xe9 b", b"log_level=a\0b", b"\0device_ip=z", b"x" * 7999 + b"master_interface=piece",
                 b"log_level=" + b"v" * 8000, b"activation_code=c\rd"]
        chosen = self.random.sample(lines, self.random.choice([0, 1, 3, 5, 8]))
        text = b"".join(line + self.one((9, b"\n"), (1, b"\r\n")) for line in chosen)
        return text[:-1] if self.random.random() < 0.2 else text

    def address(self):
        uri = self.random.choice([b"https://h.example:443", b"http://10.0.0.5:9000/path", b"", b"h", b"https://h",
                                  b"https://:5", b"h:", b"HTTPS://h:1/", b"https://\xe9:1", b"x/y:1"])
        return self.one((8, b"map_uri=" + uri + b"\n"), (1, b"# none\n"), (1, b" map_uri=" + uri))

    def heartbeat(self):
        started = self.random.choice([b"uptime.started=9999999000\n", b"uptime.started=9999999996\n",
                                      b"uptime.started=9999999995\n"])
        text = self.one((3, FRESH + started), (3, STALE + started), (1, FRESH), (1, b" uptime.now = 9999999999\n" + started),
                        (1, b"uptime.now=x\n" + started), (1, FRESH + STALE + started), (1, b""))
        text += self.one((3, b"hipd_state=up\n"), (1, b""), (1, b"hipd_state=\n"))
        text += self.one((2, b"peers.count=3\n"), (1, b"peers.count=0\n"), (1, b""), (1, b"peers.count=x\n"))
        return text + self.one((2, b"helmsor.up=true\n"), (1, b"helmsor.up=True\n"), (1, b"no equals\n=x\n"))

    def log(self):
        lines = [b"[ERROR] disk full", b"[INFO] up", b"plain", b"", b"[DEBUG] x\r", b"e~ short", b"W~", b" [WARN] y",
                 b"[TRACE] z\0hidden", b"[NOTICE] n", b"FATAL end", b"errors all over", b"l" * 5000, b"\0"]
        text = b"".join(line + b"\n" for line in self.random.choices(lines, k=self.random.choice([0, 3, 8, 70])))
        return text[:-1] if self.random.random() < 0.3 else text

    def profile(self):
        entries = {}
        self.put(entries, b"profile_name", self.name_text(), 0o640)
        self.put(entries, b"real", b"r\n", missing=0.7)
        self.put(entries, b"hip.conf", self.config(), missing=0.2)
        self.put(entries, b"endbox.conf", self.config(), missing=0.3)
        self.put(entries, b"mapconfig.static", self.address(), missing=0.2)
        self.put(entries, b"device_id", self.random.choice([b"\n id-1 \n", b"", b"\xff\n", b"a b\n"]), missing=0.5)
        self.put(entries, b"hipvars.txt", self.heartbeat(), missing=0.4)
        self.put(entries, b"hip.log", self.log(), missing=0.5)
        for name in [b"hip.state", b"peers", b"m2_cache", b"hip.conf.temp", b"endbox.conf.temp"]:
            self.put(entries, name, b"state\n", missing=0.8)
        for name in [b"ca-certs", b"customer-certs", b"peer_certs"]:
            if self.random.random() < 0.2:
                entries[name] = self.directory()
                self.put(entries[name].entries, b"one.pem", b"pem\n")
                self.put(entries[name].entries, b"two.pem", b"pem\n", missing=0.5)
        return self.directory(entries)

    def factory(self):
        entries = {}
        self.put(entries, b"hip.conf", self.config(), 0o600)
        for name, data in [(b"endbox.conf", self.config()), (b"firmware_revision", b"\n 4.1.7 \n"),
                           (b"mapconfig.static", self.address()), (b"profile_name", b"template\n"),
                           (b"real", b"r\n"), (b"second", b"s\n")]:
            self.put(entries, name, data, missing=0.5)
        if self.random.random() < 0.5:
            certificates = {}
            for name in [b"one.pem", b"two.pem"]:
                self.put(certificates, name, b"pem\n")
            entries[b"ca-certs"] = self.directory(certificates)
        if self.odd(0.3):
            return self.link()
        return self.file(b"no directory") if self.odd(0.1) else self.directory(entries)

    # Commands --------------------------------------------------------------------------------------------------------

    def selector(self, top):
        profiles = top.entries[b"etc"].entries[b"zuv"].entries.get(b"profiles")
        if profiles is not None and profiles.kind == LINK:
            profiles = top.entries[b"etc"].entries[b"outside"].entries[b"store"]
        entries = list(profiles.entries.items()) if profiles else []
        dirnames = [name for name, _ in entries] or [b"nothing"]
        names = [node.entries[b"profile_name"].data.strip() for _, node in entries
                 if b"profile_name" in node.entries] or [b"lab"]
        names = [name for name in names if b"\0" not in name]
        text = self.one(
            (9, self.random.choice(names or [b"lab"])), (4, b"dir=" + self.random.choice(dirnames)),
            (2, b".current"), (2, b"--active"), (1, b""), (1, b".factory"), (2, self.random.choice(NAMES)),
            (1, self.random.choice([b"dir=", b"dir=.factory", b"dir=../x", b"dir=nothing", b"dir=.", b"dir=a/b",
                                    b"dir=way", b"dir=stray", b"dir=.hidden"])))
        return text.replace(b"\0", b"")

    def sometimes(self, chance, key, values):
        return [key + b"=" + self.random.choice(values)] if self.random.random() < chance else []

    def settings(self):
        words = self.sometimes(0.3, b"network", INTERFACES) + self.sometimes(0.3, b"invitation", INVITATIONS)
        words += self.sometimes(0.3, b"log_level", LEVELS) + self.sys()
        return words + self.one((5, []), (3, [b"activate"]), (1, [b"activate=false"]), (1, [b"activate=TRUE"]),
                                (0.3, [b"activate=maybe"]))

    def sys(self):
        return self.sometimes(0.3, self.one((3, b"sys"), (1, b"sys-impl")),
                              [b"systemd", b"initd", b"upstart", b"null", b"launchd", b"", b"Systemd", b"other"])

    def new_name(self):
        return self.random.choice([*NAMES, b"fresh", b" fresh \t", b"", b"  ", b"in\x01side", b"new\xff", b"\xff",
                                   b"dir=", b"dir=.factory", b"dir=a/b"])

    def help(self):
        if self.random.random() < 0.2:
            return self.random.choice([[b"usage"], [b"reference"], [b"ravctl"], [b"usage", b"list"]])
        first = [b"profile", b"profiles", b"service", b"services", b"list", b"show", b"log", b"support", b"internal",
                 b"json", b"usage", b"help", b"reference", b"", b"Profile", b"x", b"\xe9", b"list log"]
        second = [b"create", b"modify", b"details", b"activate", b"delete", b"rename", b"reset", b"log", b"interfaces",
                  b"versions", b"profiles", b"start", b"stop", b"restart", b"bounce", b"status", b"bundle", b"<object>",
                  b"", b"x"]
        words = [b"help"] + self.random.choices(first[:8] + first, k=1) if self.random.random() < 0.9 else [b"help"]
        return words + self.random.choices(second, k=self.one((3, 0), (6, 1), (1, 2)))

    def command(self, top):
        """Returns the words of a command, the user and the umask."""
        kind = self.one(
            (5, "list profiles"), (5, "details"), (6, "create"), (5, "modify"), (4, "rename"), (5, "activate"),
            (4, "delete"), (3, "reset"), (3, "log"), (1, "interfaces"), (2, "versions"), (3, "status"), (2, "service"),
            (1, "bundle"), (1, "json"), (1.5, "help"), (1, "broken"))
        listing = self.one((3, b"list"), (1, b"show"))
        if kind == "list profiles":
            words = [listing, b"profiles"]
        elif kind in ("details", "delete"):
            words = [b"profile", kind.encode(), self.selector(top)]
        elif kind == "create":
            words = [b"profile", b"create", self.new_name()] + self.sometimes(0.95, b"helmsor", HELMSORS[:6] + HELMSORS)
            words += self.settings() + self.sometimes(0.2, b"allow_rename", [b"no", b"OFF", b"true", b"1", b""])
            words += self.sometimes(0.1, b"new_name", NAMES)
        elif kind == "modify":
            words = [b"profile", b"modify", self.selector(top)] + self.settings()
            words += self.sometimes(0.4, b"helmsor", HELMSORS) + self.sometimes(0.3, b"new_name", [self.new_name()])
        elif kind == "rename":
            words = [b"profile", b"rename", self.selector(top)] + self.sometimes(0.95, b"new_name", [self.new_name()])
        elif kind == "activate":
            words = [b"profile", b"activate", self.selector(top)] + self.sys()
        elif kind == "reset":
            words = [b"support", b"reset", self.selector(top)]
        elif kind == "log":
            words = [listing, b"log", self.selector(top)] + self.sometimes(0.4, b"log_level", LEVELS)
            words += self.sometimes(0.4, b"max_lines", [b"0", b"3", b" 5 ", b"-5", b"+2", b"200000", b"x", b"4x", b"",
                                                         b"99999999999"])
        elif kind in ("interfaces", "versions"):
            words = [listing, kind.encode()]
        elif kind == "status":
            words = [b"service", b"status"]
        elif kind == "service":
            words = [b"service", self.random.choice([b"start", b"stop", b"restart", b"bounce"])] + self.sys()
            words += self.one((4, []), (1, [b"full"]), (1, [b"full=true"]))
        elif kind == "bundle":
            words = [b"support", b"bundle"]
        elif kind == "json":
            words = [b"json", self.random.choice([b"{}", b'{"method":"list profiles"}', b"", b"{", b"--verbose", b"x"])]
        elif kind == "help":
            words = self.help()
        else:
            words = self.random.choice([[b"profile"], [b"profile", b"create"], [b"list", b"log"], [b"Profile", b"x", b"y"],
                                        [b"json"], [b"", b""], [b"service", b"Start"]])
        words += self.one((6, []), (2, [b"--verbose"]), (1, [b"--quiet"]), (1, [b"--json", b"--verbose", b"--text"]))
        words += self.one((30, []), (1, [b"force"]), (1, [b"=x"]), (1, [b""]), (1, [b"auth=x"]), (1, [b"profile"]),
                          (1, [b"profile=" + self.selector(top)]), (1, [b"command_name=x"]), (1, [b"requestID="]))
        words = [b"ravctl", *words] if self.random.random() < 0.05 else words
        uid = self.one((3, 0), (1, USER)) if self.has_other_users else 0
        umask = self.one((4, 0o022), (1, 0o077), (1, 0), (1, 0o027))
        error = self.one((3, 0), (1, errno.EIO), (1, errno.EACCES), (1, errno.ENOSPC), (1, errno.ENOMEM))
        stop = (self.random.randrange(1, 150), error) if self.random.random() < self.stops else None
        return words, uid, umask, stop
