"""A small model of a file system: names, types, modes, owners, bytes and links, and the rules by which they open.

It holds a whole host in memory. A path is walked one component at a time, so that every link on the way is seen. Only
what the model of the store needs exists here.
"""

import errno

FILE, DIRECTORY, LINK, FIFO, SOCKET = "file", "directory", "link", "fifo", "socket"
NULL, ZERO = "null", "zero"  # the devices
SET_GROUP, STICKY = 0o2000, 0o1000  # bits of the mode of a directory
SET_USER_AND_GROUP = 0o6000  # of a program


class Refused(Exception):
    """A system call that fails with `errno`."""

    def __init__(self, number):
        super().__init__(errno.errorcode[number])
        self.errno, self.links, self.on_the_way = number, [], []


class AccessList:
    """Who else may do what: the bits of the group that owns the file, and those of single users. The mode's own bits of
    the group are the most that any of them gets."""

    def __init__(self, group, users):
        self.group, self.users = group, users

    def __repr__(self):
        return "group %o, %s" % (self.group, ", ".join("%d %o" % user for user in sorted(self.users.items())))


class Node:
    """One inode. `data` are the bytes of a file or the text of a link; `entries` are the names of a directory;
    `access` is an access list or None."""

    def __init__(self, kind, mode=0o644, uid=0, gid=0, data=b"", entries=None, access=None):
        self.kind, self.mode, self.uid, self.gid, self.data, self.access = kind, mode, uid, gid, data, access
        self.entries = {} if entries is None else entries


class Found:
    """The result of a walk: the last directory, the name in it, the node (None if it is missing), and each link that
    was followed with the directory that holds the link. `on_the_way` are those links that more names followed."""

    def __init__(self, directory, name, node, links, on_the_way):
        self.directory, self.name, self.node, self.links, self.on_the_way = directory, name, node, links, on_the_way


class Files:
    def __init__(self, top, uid, gid, changed):
        self.top, self.uid, self.gid = top, uid, gid
        self.changed = changed  # called after each change
        self.steps, self.failing = 0, range(0)

    def fails(self):
        """Counts a step. Returns true if it shall fail."""
        self.steps += 1
        return self.steps in self.failing

    # Rights ----------------------------------------------------------------------------------------------------------

    def may(self, node, bits):
        """Returns true if the caller has these bits (4 read, 2 write, 1 search) on the node."""
        if self.uid == 0:
            return True
        if node.access is not None and node.uid != self.uid:
            most = node.mode >> 3
            if self.uid in node.access.users:
                return node.access.users[self.uid] & most & bits == bits
            if node.gid == self.gid:
                return node.access.group & most & bits == bits
            return node.mode & bits == bits
        shift = 6 if node.uid == self.uid else 3 if node.gid == self.gid else 0
        return (node.mode >> shift) & bits == bits

    def is_ours(self, node):
        return node.uid in (0, self.uid)

    def only_we_write(self, directory):
        """Returns true if nobody but root and the caller may write in the directory."""
        if not self.is_ours(directory) or directory.mode & 0o002:
            return False
        return not directory.mode & 0o020 or (directory.gid == directory.uid and directory.access is None)

    def is_trusted(self, link, directory):
        return self.is_ours(link) and self.only_we_write(directory)

    def has_untrusted(self, links):
        return any(not self.is_trusted(link, directory) for link, directory in links)

    def names_of(self, node, within=None):
        """Counts the names of a node on the whole host."""
        count = 0
        for entry in (within or self.top).entries.values():
            count += entry is node
            if entry.kind == DIRECTORY:
                count += self.names_of(node, entry)
        return count

    # Paths -----------------------------------------------------------------------------------------------------------

    def walk(self, path, follow=True):
        """Walks an absolute path. `follow` says whether a link in the last place is followed."""
        links, on_the_way = [], []
        try:
            if self.fails():
                raise Refused(errno.EIO)
            return self._walk([self.top], path, follow, links, on_the_way)
        except Refused as refused:
            refused.links, refused.on_the_way = links, on_the_way
            raise

    def walk_from(self, directory_path, text):
        """Walks a link's text from the directory that holds the link."""
        return self.walk(text if text.startswith(b"/") else directory_path + b"/" + text)

    def _walk(self, way, path, follow, links, on_the_way):
        pieces = [piece for piece in path.split(b"/") if piece]
        way = way[:1] if path.startswith(b"/") else way
        while pieces:
            directory, piece = way[-1], pieces.pop(0)
            if len(piece) > 255:
                raise Refused(errno.ENAMETOOLONG)
            if directory.kind != DIRECTORY:
                raise Refused(errno.ENOTDIR)
            if not self.may(directory, 1):
                raise Refused(errno.EACCES)
            if piece in (b".", b".."):
                way = way if piece == b"." else way[:-1] or way[:1]
                continue
            node = directory.entries.get(piece)
            if node is not None and node.kind == LINK and (follow or pieces):
                links.append((node, directory))
                on_the_way += [(node, directory)] if pieces else []
                if len(links) > 40:
                    raise Refused(errno.ELOOP)
                way = way[:1] if node.data.startswith(b"/") else way
                pieces = [piece for piece in node.data.split(b"/") if piece] + pieces
            elif not pieces:
                return Found(directory, piece, node, links, on_the_way)
            elif node is None:
                raise Refused(errno.ENOENT)
            else:
                way = way + [node]
        return Found(way[-1], b".", way[-1], links, on_the_way)

    def stat(self, path):
        """Returns the node behind all links, or None."""
        try:
            return self.walk(path).node
        except Refused:
            return None

    def lstat(self, path):
        try:
            return self.walk(path, follow=False).node
        except Refused:
            return None

    def target_or_missing(self, path):
        """Returns the node behind trusted links, or None if it is missing."""
        try:
            found = self.walk(path)
            links, node = found.links, found.node
        except Refused as refused:
            if refused.errno != errno.ENOENT:
                raise
            links, node = refused.links, None
        if self.has_untrusted(links):
            raise Refused(errno.EACCES)
        return node

    def is_kind(self, path, kind):
        node = self.stat(path)
        return node is not None and node.kind == kind

    # Opening files of the store --------------------------------------------------------------------------------------

    def _look_at_links(self, found, to_read):
        untrusted = [(link, place) for link, place in found.links if not self.is_trusted(link, place)]
        if not untrusted:
            return
        node = found.node
        if to_read and node is not None and node.kind == NULL:
            return
        if not to_read or node is None or node.kind != FILE or self.names_of(node) > 1:
            raise Refused(errno.EACCES)
        for link, place in untrusted:
            if (link, place) in found.on_the_way or not link.uid == place.uid == node.uid:
                raise Refused(errno.EACCES)

    def _look_at_file(self, found, bits):
        node = found.node
        if node.kind == NULL:
            return
        if node.kind != FILE:
            raise Refused(errno.EACCES)
        if self.names_of(node) > 1 and node.uid != found.directory.uid:
            raise Refused(errno.EACCES)
        if not self.may(node, bits):
            raise Refused(errno.EACCES)

    def read(self, path):
        """Returns the bytes of a file of the store."""
        found = self.walk(path)
        self._look_at_links(found, to_read=True)
        if found.node is None:
            raise Refused(errno.ENOENT)
        self._look_at_file(found, 4)
        return found.node.data

    def list(self, path):
        """Opens a directory and returns its node. Without the right to search it nothing in it can be found."""
        found = self.walk(path)
        if found.node is None:
            raise Refused(errno.ENOENT)
        if found.node.kind != DIRECTORY:
            raise Refused(errno.ENOTDIR)
        if not self.may(found.node, 5):
            raise Refused(errno.EACCES)
        return found.node

    # Changes ---------------------------------------------------------------------------------------------------------

    def make(self, directory, name, node):
        if not self.may(directory, 3) or self.fails():
            raise Refused(errno.EACCES)
        node.uid, node.gid = self.uid, self.group_of_new(directory)
        directory.entries[name] = node
        self.changed()
        return node

    def group_of_new(self, directory):
        return directory.gid if directory.mode & SET_GROUP else self.gid

    def may_remove(self, directory, node):
        """Of a sticky directory only its owner, that of the entry and root remove an entry."""
        if not self.may(directory, 3):
            return False
        return not directory.mode & STICKY or self.uid in (0, directory.uid, node.uid)

    def write(self, path, data, mode):
        """Replaces the bytes of a file in place, or makes the file. Only the owner changes the mode."""
        found = self.walk(path)
        self._look_at_links(found, to_read=False)
        if found.node is None:
            self.make(found.directory, found.name, Node(FILE, mode, data=data))
            return
        self._look_at_file(found, 2)
        if found.node.kind == NULL:
            return
        if self.fails():
            raise Refused(errno.EIO)
        old, found.node.data = found.node.data, data
        if self.uid != 0:  # the system does that with each write
            found.node.mode &= ~SET_USER_AND_GROUP
        if self.uid in (0, found.node.uid) and not self.fails():
            found.node.mode = mode
        failed = self.fails()  # in the end, so the old bytes are put back, but not the old mode
        if failed:
            found.node.data = old
        self.changed()
        if failed:
            raise Refused(errno.EIO)

    def set_mode(self, path, mode):
        """Sets the mode of a file if the caller may, and returns true."""
        node = self.stat(path)
        if node is not None and node.kind == FILE and self.uid in (0, node.uid):
            node.mode = mode
            self.changed()
        return True

    def replace(self, directory, name, node):
        """Puts a new file of the caller in the place of whatever has this name."""
        if name in directory.entries and directory.entries[name].kind == DIRECTORY:
            raise Refused(errno.EISDIR)
        if name in directory.entries:
            if not self.may_remove(directory, directory.entries[name]):
                raise Refused(errno.EACCES)
            del directory.entries[name]
            self.changed()
        return self.make(directory, name, node)
