#include "testing/faults/DiskImage.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "base/system/UniqueFd.h"
#include "testing/host/HostFiles.h"
#include "testing/run/Program.h"

namespace {

constexpr unsigned kMiscMajor = 10;
constexpr unsigned kLoopMajor = 7;
constexpr unsigned kLoopControl = 237;
constexpr const char* kDevices = "/run/loop/";
constexpr const char* kMakeFileSystem = "/usr/sbin/mkfs.ext4";

int must(int result, const std::string& what) {
  if (result < 0) throw std::runtime_error(what + ": " + std::strerror(errno));
  return result;
}

// The private host has no loop devices, so each device node is created when it is needed.
UniqueFd openDevice(const std::string& name, mode_t kind, dev_t number) {
  const std::string path = kDevices + name;
  host::makeDirs(kDevices);
  if (::mknod(path.c_str(), kind | 0600, number) != 0 && errno != EEXIST) must(-1, "make " + path);
  return UniqueFd(must(::open(path.c_str(), O_RDWR | O_CLOEXEC), "open " + path));
}

UniqueFd openFile(const std::string& path, int flags) {
  return UniqueFd(must(::open(path.c_str(), flags | O_CLOEXEC, 0600), "open " + path));
}

struct LoopDevice {
  std::string path;
  UniqueFd fd;  // the kernel frees the device when nobody has it open or mounted
};

// Other processes use loop devices too: if one takes the free device before us, we try the next.
LoopDevice attach(const std::string& image) {
  const UniqueFd control = openDevice("control", S_IFCHR, makedev(kMiscMajor, kLoopControl));
  const UniqueFd file = openFile(image, O_RDWR);
  for (int attempt = 0; attempt < 100; ++attempt) {
    const int number = must(::ioctl(control.get(), LOOP_CTL_GET_FREE), "find a free loop device");
    const std::string name = std::to_string(number);
    LoopDevice device{kDevices + name, openDevice(name, S_IFBLK, makedev(kLoopMajor, static_cast<unsigned>(number)))};
    loop_config config{};
    config.fd = static_cast<unsigned>(file.get());
    config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
    if (::ioctl(device.fd.get(), LOOP_CONFIGURE, &config) == 0) return device;
    if (errno != EBUSY) must(-1, "attach " + image);
    ::usleep(10'000);
  }
  throw std::runtime_error("all loop devices are in use");
}

}  // namespace

std::string whyNoDiskImage() {
  if (!host::hasOtherUsers()) return "needs the machine's root: a user namespace may not mount images";
  if (!host::exists(kMakeFileSystem)) return std::string(kMakeFileSystem) + " is not installed (e2fsprogs)";
  try {
    (void)openDevice("control", S_IFCHR, makedev(kMiscMajor, kLoopControl));
  } catch (const std::exception& problem) {
    return std::string("no loop devices: ") + problem.what();
  }
  return "";
}

void makeDiskImage(const std::string& path, std::size_t bytes) {
  host::writeFile(path, "");
  must(::truncate(path.c_str(), static_cast<off_t>(bytes)), "size " + path);
  const Outcome made = runProgram({kMakeFileSystem, "-q", "-F", "-b", "1024", "-N", "256", "-J", "size=1", "-E",
                                   "lazy_itable_init=0,lazy_journal_init=0", path});
  if (made.exitStatus != 0) throw std::runtime_error("mkfs.ext4: " + made.err);
}

void copyImage(const std::string& from, const std::string& to) {
  const UniqueFd source = openFile(from, O_RDONLY);
  const UniqueFd target = openFile(to, O_WRONLY | O_CREAT | O_TRUNC);
  while (must(static_cast<int>(::sendfile(target.get(), source.get(), nullptr, 1 << 24)), "copy " + from) > 0) {
  }
}

MountedImage::MountedImage(const std::string& image, const std::string& folder, const std::string& options)
    : folder_(folder) {
  host::makeDirs(folder);
  const LoopDevice device = attach(image);
  must(::mount(device.path.c_str(), folder.c_str(), "ext4", MS_NOSUID, options.c_str()), "mount " + image);
}

MountedImage::~MountedImage() { (void)::umount2(folder_.c_str(), 0); }
