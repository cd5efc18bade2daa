// DiskImage: an ext4 file system in a file of the private host, and mounts of it.
//
//   makeDiskImage("/run/image", 4 << 20);
//   {
//     const MountedImage disk("/run/image", "/etc/zuv", "noauto_da_alloc");
//     ...
//     copyImage("/run/image", "/run/cut");      // as after a power cut: what lies in memory alone is not in it
//   }
//   const MountedImage after("/run/cut", "/run/after");    // its journal is replayed
//
// Needs the machine's root: a loop device is taken for each mount and given back with it, also when the process dies.
// Everything throws std::runtime_error when it does not work.
#pragma once

#include <cstddef>
#include <string>

// Why no image can be mounted here; empty when one can.
std::string whyNoDiskImage();

// Makes an empty file system with a journal.
void makeDiskImage(const std::string& path, std::size_t bytes);

// Copies the bytes of an image, without a sync.
void copyImage(const std::string& from, const std::string& to);

class MountedImage {
 public:
  // `folder` is made when it is missing; `options` are those of ext4.
  MountedImage(const std::string& image, const std::string& folder, const std::string& options = "");
  ~MountedImage();
  MountedImage(const MountedImage&) = delete;
  MountedImage& operator=(const MountedImage&) = delete;

 private:
  const std::string folder_;
};
