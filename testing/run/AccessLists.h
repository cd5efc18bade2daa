// AccessLists: POSIX access lists in the form in which the system stores them.
//
//   const std::string list = accessList({6, 4, 0});   // root may read and write, but the mask allows reading alone
//   setAttribute(path, kAccessList, list);
//   EXPECT_EQ(attributeOf(path, kAccessList), list);
#pragma once

#include <gtest/gtest.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <sys/types.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cstring>
#include <string>

constexpr const char* kAccessList = "system.posix_acl_access";
// The list that new files in a directory inherit.
constexpr const char* kDefaultList = "system.posix_acl_default";
// An attribute that only the machine's root user may see and set. Every tmpfs has such attributes, unlike those of
// users.
constexpr const char* kNote = "trusted.note";

// The permissions, as in a mode, of the parts that tests vary. The owner may read and write, the group may read. The
// named user is root, whose number a host without other users has too.
struct AccessOf {
  unsigned namedUser = 0;
  unsigned mask = 0;
  unsigned others = 0;
};

inline std::string accessList(const AccessOf& access) {
  std::string list;
  const auto addByte = [&list](unsigned value) { list += static_cast<char>(value); };
  const auto add = [&](unsigned tag, unsigned permissions, unsigned char idByte) {
    addByte(tag);
    addByte(0);
    addByte(permissions);
    addByte(0);
    list.append(4, static_cast<char>(idByte));
  };
  addByte(POSIX_ACL_XATTR_VERSION);
  list.append(3, '\0');
  add(ACL_USER_OBJ, 6, 0xff);
  add(ACL_USER, access.namedUser, 0);
  add(ACL_GROUP_OBJ, 4, 0xff);
  add(ACL_MASK, access.mask, 0xff);
  add(ACL_OTHER, access.others, 0xff);
  return list;
}

inline void setAttribute(const char* path, const char* name, const std::string& value) {
  ASSERT_EQ(::setxattr(path, name, value.data(), value.size(), 0), 0) << name << ": " << std::strerror(errno);
}

// Returns "(none)" if there is no such attribute.
inline std::string attributeOf(const char* path, const char* name) {
  std::string value(65536, '\0');
  const ssize_t size = ::getxattr(path, name, value.data(), value.size());
  if (size < 0) return "(none)";
  value.resize(static_cast<std::size_t>(size));
  return value;
}
