#include "Errnos.h"

namespace {

const std::vector<int> kPathErrors = {EIO, EACCES, ENOMEM};
const std::vector<int> kDiskErrors = {EIO, ENOSPC, EACCES, EROFS, EDQUOT, ENOMEM};
const std::vector<int> kRemoveErrors = {EIO, EACCES, EROFS, EBUSY, ENOMEM};
const std::vector<int> kOutputErrors = {EIO, ENOSPC, EPIPE, EAGAIN, EINTR};

// The first rows are for special cases of write, openat and openat2. Without openat2 the program walks the path itself.
const ErrnoRow kRows[] = {
    {"write to standard output", kOutputErrors},
    {"openat that makes", {ENOSPC, EACCES, EMFILE, ENFILE, ENOMEM, EIO, EROFS, EDQUOT, EINTR}},
    {"openat2 that makes", {ENOSPC, EACCES, EMFILE, ENFILE, ENOMEM, EIO, EROFS, EDQUOT, EINTR, ENOSYS, EPERM}},
    {"access", kPathErrors},
    {"bind", {ENOMEM}},
    {"brk", {ENOMEM}},
    {"chdir", kPathErrors},
    {"chmod", {EIO, EPERM, EROFS}},
    {"clock_nanosleep", {EINTR}},
    {"clone", {EAGAIN, ENOMEM}},
    {"clone3", {EAGAIN, ENOMEM}},
    {"close", {EIO, ENOSPC, EDQUOT, EINTR}},
    {"exit_group", {}},
    {"fallocate", {ENOSPC, EIO, EOPNOTSUPP, EDQUOT, EINTR}},
    {"fchmod", {EIO, EPERM, EROFS}},
    {"fchmodat", {EIO, EPERM, EROFS}},
    {"fchown", {EPERM, EIO, EROFS}},
    {"fcntl", {}},
    {"fgetxattr", {ENODATA, ERANGE, EIO, ENOMEM}},
    {"flistxattr", {ENOTSUP, E2BIG, EIO, ENOMEM}},
    {"flock", {ENOLCK, EAGAIN, EINTR}},
    {"fremovexattr", {ENODATA, EPERM, EACCES, EIO, EROFS}},
    {"fsetxattr", {EPERM, EACCES, ENOSPC, EDQUOT, ENOTSUP, EINVAL, EIO, EROFS}},
    {"fstat", {EIO, ENOMEM}},
    {"fsync", {EIO, ENOSPC, EINVAL, EINTR}},
    {"ftruncate", {EIO, EINTR}},
    {"getcwd", {ENOMEM, EACCES}},
    {"getdents64", {EIO, ENOMEM}},
    {"geteuid", {}},
    {"getpid", {}},
    {"getsockname", {ENOBUFS}},
    {"getuid", {}},
    {"lseek", {EINVAL}},
    {"lstat", kPathErrors},
    {"mkdir", kDiskErrors},
    {"mkdirat", kDiskErrors},
    {"mmap", {ENOMEM}},
    {"mprotect", {ENOMEM}},
    {"munmap", {ENOMEM}},
    {"newfstatat", kPathErrors},
    {"openat", {EMFILE, EACCES, ENFILE, ENOMEM, EIO, EINTR}},
    {"openat2", {EMFILE, EACCES, ENFILE, ENOMEM, EIO, EINTR, ENOSYS, EPERM}},
    {"poll", {EINVAL, ENOMEM, EINTR}},
    {"pread64", {EIO, ENOMEM, EINTR}},
    {"read", {EIO, ENOMEM, EINTR}},
    {"readlink", kPathErrors},
    {"readlinkat", kPathErrors},
    {"recvmsg", {ENOBUFS, ENOMEM, EINTR}},
    {"rename", kDiskErrors},
    {"renameat", kDiskErrors},
    {"renameat2", {EIO, ENOSPC, EACCES, EROFS, EDQUOT, ENOMEM, EINVAL, ENOSYS}},
    {"rmdir", kRemoveErrors},
    {"rt_sigaction", {}},
    {"rt_sigprocmask", {}},
    {"sendto", {ENOBUFS, ENOMEM, EINTR}},
    {"socket", {EMFILE, ENOMEM, EACCES, EAFNOSUPPORT}},
    {"umask", {}},
    {"unlink", kRemoveErrors},
    {"unlinkat", kRemoveErrors},
    {"wait4", {ECHILD, EINTR}},
    {"write", {ENOSPC, EIO, EDQUOT, EFBIG, ENOMEM, EINTR}},
};

std::string rowNameOf(const TracedCall& call) {
  if (call.name == "write" && call.path.compare(0, 7, "/memfd:") == 0) return "write to standard output";
  return call.makesFile ? call.name + " that makes" : call.name;
}

}  // namespace

const ErrnoRow* findErrnos(const TracedCall& call) {
  const std::string name = rowNameOf(call);
  for (const ErrnoRow& row : kRows) {
    if (row.call == name) return &row;
  }
  return nullptr;
}
