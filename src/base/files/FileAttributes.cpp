#include "base/files/FileAttributes.h"

#include <endian.h>
#include <linux/limits.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <string>
#include <string_view>

#include "base/text/StringUtils.h"

namespace {

using Names = std::set<std::string>;

bool isAccessList(std::string_view name) {
  return StringUtils::startsWith(name, "system.") && name.find("acl") != std::string_view::npos;
}

// Returns false if the attributes cannot be listed.
bool listNames(int fd, Names& names) {
  std::string list(XATTR_LIST_MAX, '\0');
  const ssize_t length = ::flistxattr(fd, list.data(), list.size());
  if (length == -1) return errno == ENOTSUP;
  list.resize(static_cast<std::size_t>(length));
  for (std::size_t start = 0; start < list.size();) {
    const std::string name = list.c_str() + start;
    start += name.size() + 1;
    names.insert(name);
  }
  return true;
}

bool removeAttribute(int fd, const std::string& name) {
  return ::fremovexattr(fd, name.c_str()) != -1 || errno == ENODATA;
}

// Takes what a mode of 0700 would take from a POSIX access list.
void closeToOthers(std::string& list) {
  posix_acl_xattr_entry entry = {};
  for (std::size_t at = sizeof(posix_acl_xattr_header); at + sizeof entry <= list.size(); at += sizeof entry) {
    std::memcpy(&entry, list.data() + at, sizeof entry);
    const auto tag = le16toh(entry.e_tag);
    if (tag != ACL_MASK && tag != ACL_OTHER) continue;
    entry.e_perm = 0;
    std::memcpy(list.data() + at, &entry, sizeof entry);
  }
}

bool copyAttribute(int from, int to, const std::string& name, bool isOwnerKept) {
  std::string value(XATTR_SIZE_MAX, '\0');
  const ssize_t length = ::fgetxattr(from, name.c_str(), value.data(), value.size());
  if (length == -1) return errno == ENODATA && removeAttribute(to, name);  // somebody has just removed it
  value.resize(static_cast<std::size_t>(length));
  if (!isOwnerKept && name == "system.posix_acl_access") closeToOthers(value);
  if (::fsetxattr(to, name.c_str(), value.data(), value.size(), 0) == 0) return true;
  if (isAccessList(name)) (void)removeAttribute(to, name);  // an inherited one
  return false;
}

}  // namespace

bool copyFileAttributes(int from, int to, bool isOwnerKept) {
  Names wanted;
  Names inherited;
  if (!listNames(from, wanted) || !listNames(to, inherited)) return false;
  // The owner of the new file can have opened it to write already, and the system takes a capability only at a write.
  wanted.erase("security.capability");
  bool isListKept = true;
  for (const std::string& name : inherited) {
    if (wanted.count(name) == 0 && !removeAttribute(to, name) && isAccessList(name)) isListKept = false;
  }
  for (const bool isListsTurn : {false, true}) {
    for (const std::string& name : wanted) {
      if (isAccessList(name) != isListsTurn) continue;
      if (!copyAttribute(from, to, name, isOwnerKept) && isListsTurn) isListKept = false;
    }
  }
  return isListKept;
}
