"""The private host on which the program runs: builds a tree of the model on the disk, reads it back, and runs commands.

Run it inside `private-host` only: it empties /etc/zuv.
"""

import os
import pickle
import shutil
import socket
import stat
import struct
import subprocess

from model_files import DIRECTORY, FIFO, FILE, LINK, NULL, SOCKET, ZERO, AccessList, Node
from model_store import BUNDLE_SCRIPT

USER = 1000
MARKER, PROGRAM, INTERRUPT = "/.private-host", "/run/ravctl", "/run/interrupt"
CALLS, OUTPUT, ERRORS = b"/run/calls", b"/run/output", b"/run/errors"
PLACES = [b"/etc/zuv", b"/etc/outside"]
TOOL_PATHS = [b"/bin/systemctl", b"/sbin/initctl", b"/etc/init.d/hip", b"/usr/bin/killall", BUNDLE_SCRIPT]
ACCESS_LIST = "system.posix_acl_access"
SPECIAL = {FIFO: (stat.S_IFIFO, 0), SOCKET: (stat.S_IFSOCK, 0), NULL: (stat.S_IFCHR, os.makedev(1, 3)),
           ZERO: (stat.S_IFCHR, os.makedev(1, 5))}
INTERFACES = [(b"eth0", "10.0.0.1", False), (b"eth0", "10.0.0.2", False), (b"tap1", "10.0.1.1", False),
              (b"eth1", "10.1.254.169", False), (b"eth1", "169.254.10.20", False)]


def check_place():
    if not os.path.isdir(MARKER) or os.getuid() != 0:
        raise SystemExit("sequences: this is no private host")


def has_other_users():
    """Returns true if the machine's root user created the host; otherwise there is only one user."""
    descriptor = os.open("/run", os.O_TMPFILE | os.O_RDWR)
    try:
        os.chown(descriptor, USER, USER)
        return True
    except OSError:
        return False
    finally:
        os.close(descriptor)


def set_up_network():
    """Makes interfaces that qualify and some that do not. Returns them as the model wants them."""
    if not shutil.which("ip"):
        return []
    if b"eth0" not in [name.encode() for _, name in socket.if_nameindex()]:
        lines = ["link add eth0 type veth peer name tap1", "link add eth1 type veth peer name eth2"]
        lines += ["address add %s/24 dev %s" % (address, name.decode()) for name, address, _ in INTERFACES]
        for line in lines:
            subprocess.run(["ip", *line.split()], check=True)
    return sorted(INTERFACES, key=lambda interface: socket.if_nametoindex(interface[0].decode()))


# Trees ---------------------------------------------------------------------------------------------------------------


def node_at(top, path):
    for piece in path.split(b"/"):
        if piece and top is not None:
            top = top.entries.get(piece)
    return top


def build(top):
    """Puts the model's tree on the disk, in the place of what was there."""
    made = {}
    for place in PLACES:
        shutil.rmtree(place, ignore_errors=True)
        build_node(node_at(top, place), place, made)


def build_node(node, path, made):
    if node is None:
        return
    if id(node) in made:
        os.link(made[id(node)], path, follow_symlinks=False)
        return
    made[id(node)] = path
    if node.kind == DIRECTORY:
        os.mkdir(path, 0o700)
    elif node.kind == FILE:
        with open(path, "wb") as file:
            file.write(node.data)
    elif node.kind == LINK:
        os.symlink(node.data, path)
    else:
        os.mknod(path, SPECIAL[node.kind][0] | 0o600, SPECIAL[node.kind][1])
    os.chown(path, node.uid, node.gid, follow_symlinks=False)
    for name, entry in node.entries.items():
        build_node(entry, path + b"/" + name, made)
    if node.kind != LINK:
        os.chmod(path, node.mode)
    if node.access is not None:
        os.setxattr(path, ACCESS_LIST, bytes_of_list(node.access, node.mode))


# An access list as the kernel stores it: a version, then rows of a tag, bits and an id.
OWNER, A_USER, GROUP, MOST, OTHERS, NO_ID = 1, 2, 4, 0x10, 0x20, 0xFFFFFFFF


def bytes_of_list(access, mode):
    rows = [(OWNER, mode >> 6 & 7, NO_ID)] + [(A_USER, bits, uid) for uid, bits in sorted(access.users.items())]
    rows += [(GROUP, access.group, NO_ID), (MOST, mode >> 3 & 7, NO_ID), (OTHERS, mode & 7, NO_ID)]
    return struct.pack("<I", 2) + b"".join(struct.pack("<HHI", *row) for row in rows)


def list_of_path(path):
    try:
        rows = list(struct.iter_unpack("<HHI", os.getxattr(path, ACCESS_LIST, follow_symlinks=False)[4:]))
    except OSError:
        return None
    return AccessList(next(bits for tag, bits, _ in rows if tag == GROUP),
                      {uid: bits for tag, bits, uid in rows if tag == A_USER})


def picture_of_model(top):
    """Describes the tree: for each path its type, mode, owner, group, bytes, access list, and the other names of the same
    file."""
    picture, names = {}, {}
    for place in PLACES:
        node = node_at(top, place)
        if node is not None:
            picture_node(node, place, picture, names)
    return with_names(picture, names)


def picture_node(node, path, picture, names):
    mode = None if node.kind == LINK else node.mode
    picture[path] = (node.kind, mode, node.uid, node.gid, node.data, text_of_list(node.access))
    if node.kind != DIRECTORY:
        names.setdefault(id(node), []).append(path)
    for name, entry in node.entries.items():
        picture_node(entry, path + b"/" + name, picture, names)


def text_of_list(access):
    return "" if access is None else repr(access)


def picture_of_disk():
    picture, names = {}, {}
    for place in PLACES:
        if os.path.lexists(place):
            picture_path(place, os.lstat(place), picture, names)
    return with_names(picture, names)


def picture_path(path, status, picture, names):
    mode, kind, data = stat.S_IMODE(status.st_mode), stat.S_IFMT(status.st_mode), b""
    if kind == stat.S_IFDIR:
        word = DIRECTORY
        with os.scandir(path) as entries:
            for entry in entries:
                picture_path(entry.path, entry.stat(follow_symlinks=False), picture, names)
    elif kind == stat.S_IFREG:
        word = FILE
        descriptor = os.open(path, os.O_RDONLY)
        data = os.read(descriptor, 1 << 20)
        os.close(descriptor)
    elif kind == stat.S_IFLNK:
        word, data, mode = LINK, os.readlink(path), None
    else:
        special = (kind, status.st_rdev)
        word = next((word for word in SPECIAL if SPECIAL[word] == special), "type %o, device %o" % special)
    access = "" if kind == stat.S_IFLNK else text_of_list(list_of_path(path))
    picture[path] = (word, mode, status.st_uid, status.st_gid, data, access)
    if kind != stat.S_IFDIR and status.st_nlink > 1:
        names.setdefault(status.st_ino, []).append(path)


def with_names(picture, names):
    for paths in names.values():
        if len(paths) > 1:
            for path in paths:
                picture[path] += (tuple(sorted(paths)),)
    return picture


def top_of_disk(top):
    """Returns the model's tree with what the disk holds now."""
    top, seen = copy_of(top), {}
    for place in PLACES:
        directory, name = place.rsplit(b"/", 1)
        node_at(top, directory).entries.pop(name, None)
    for path, (kind, mode, uid, gid, data, *_) in sorted(picture_of_disk().items()):
        directory, name = path.rsplit(b"/", 1)
        inode = os.lstat(path).st_ino if kind != DIRECTORY else path
        access = None if kind == LINK else list_of_path(path)
        node = seen.setdefault(inode, Node(kind, 0o777 if mode is None else mode, uid, gid, data, access=access))
        node_at(top, directory).entries[name] = node
    return top


def take_order(top):
    """Gives the model the order in which the disk lists its directories."""
    for place in PLACES:
        if node_at(top, place) is not None:
            take_order_of(node_at(top, place), place)


def take_order_of(node, path):
    if node.kind == DIRECTORY:
        node.entries = {name: node.entries[name] for name in os.listdir(path)}
        for name, entry in node.entries.items():
            take_order_of(entry, path + b"/" + name)


# Tools ---------------------------------------------------------------------------------------------------------------


class Tools:
    """The stand-ins for the tools: each records its call and ends as it is told."""

    def __init__(self):
        self.installed = {}
        os.makedirs("/etc/init.d", exist_ok=True)

    def install(self, tools):
        for path in TOOL_PATHS:
            end = tools.get(path, "missing")
            if self.installed.get(path) == end:
                continue
            self.installed[path] = end
            if os.path.lexists(path):
                os.unlink(path)
            if end == "missing":
                continue
            last = "exit %d" % end[1] if end[0] == "exit" else "kill -%d $$" % end[1]
            with open(path, "w") as script:
                script.write('#!/bin/sh\necho "$0 $*" >>%s\n%s\n' % (CALLS.decode(), last))
            os.chmod(path, 0o755)


# Runs ----------------------------------------------------------------------------------------------------------------


class Runner:
    """Runs the program as root or, in a process of its own, as an ordinary user."""

    def __init__(self, program, interrupt, flaw):
        os.chdir("/")
        for source, target in [(program, PROGRAM), (interrupt, INTERRUPT)]:
            if source:
                shutil.copy(source, target)
                os.chmod(target, 0o755)
        self.environment = {"PATH": "/usr/bin:/bin", **({"RAVCTL_FLAW": flaw} if flaw else {})}
        os.umask(0)
        self.files = [os.open(os.devnull, os.O_RDONLY)]
        self.files += [os.open(path, os.O_RDWR | os.O_CREAT | os.O_APPEND, 0o666) for path in (OUTPUT, ERRORS)]
        self.calls = os.open(CALLS, os.O_RDWR | os.O_CREAT, 0o666)
        if not has_other_users():
            return
        request, self.to_user = os.pipe()
        self.from_user, answer = os.pipe()
        if os.fork() == 0:
            os.close(self.to_user)
            self.serve(os.fdopen(request, "rb"), os.fdopen(answer, "wb"))
        os.close(request)
        self.to_user, self.from_user = os.fdopen(self.to_user, "wb"), os.fdopen(self.from_user, "rb")

    def serve(self, requests, answers):
        os.setgroups([])
        os.setresgid(USER, USER, USER)
        os.setresuid(USER, USER, USER)
        while True:
            try:
                request = pickle.load(requests)
            except EOFError:
                os._exit(0)
            pickle.dump(self.spawn(*request), answers)
            answers.flush()

    def spawn(self, words, umask, stop):
        os.umask(umask)
        words = [b"ravctl", *words] if stop is None else [INTERRUPT, str(stop[0]), str(stop[1]), PROGRAM, *words]
        actions = [(os.POSIX_SPAWN_DUP2, descriptor, place) for place, descriptor in enumerate(self.files)]
        child = os.posix_spawn(PROGRAM if stop is None else INTERRUPT, words, self.environment, file_actions=actions)
        return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])

    def run(self, words, uid, umask, stop=None):
        """Returns standard output, standard error, exit status and the recorded calls. `stop` has the
        number of a system call, and the errno with which it fails or 0 to kill the program before it."""
        for descriptor in [*self.files[1:], self.calls]:
            os.ftruncate(descriptor, 0)
        if uid == 0:
            status = self.spawn(words, umask, stop)
            os.umask(0)
        else:
            pickle.dump((words, umask, stop), self.to_user)
            self.to_user.flush()
            status = pickle.load(self.from_user)
        texts = [os.pread(descriptor, 1 << 20, 0) for descriptor in [*self.files[1:], self.calls]]
        return texts[0], texts[1], status, texts[2].splitlines()


def line_of_call(call):
    """Returns the line that a stand-in records; a script does not see its first argument."""
    return call[0] + b" " + b" ".join(call[2:])


def copy_of(node, copies=None):
    copies = {} if copies is None else copies
    if id(node) not in copies:
        new = copies[id(node)] = Node(node.kind, node.mode, node.uid, node.gid, node.data, access=node.access)
        new.entries = {name: copy_of(entry, copies) for name, entry in node.entries.items()}
    return copies[id(node)]
