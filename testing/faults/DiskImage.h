// DiskImage: creates an ext4 file system in a file on the private host, and mounts it.
//
//   makeDiskImage("/run/image", 4 << 20);
//   {
//     const MountedImage disk("/run/image", "/etc/zuv", "noauto_da_alloc");
//     ...
//     copyImage("/run/image", "/run/cut");      // as after a power cut: without the data that is only in memory
//   }
//   const MountedImage after("/run/cut", "/run/after");    // the mount replays the journal
//
// Needs the machine's root user. Each mount uses a loop device, which the kernel frees at the unmount, also when the
// process dies. Every function throws std::runtime_error on failure.
#pragma once

#include <cstddef>
#include <string>

// Why this host cannot mount an image; empty if it can.
std::string whyNoDiskImage();

// Creates the file `path` with an empty file system and a journal.
void makeDiskImage(const std::string& path, std::size_t bytes);

// Copies the bytes of an image file without syncing the mounted file system first.
void copyImage(const std::string& from, const std::string& to);

class MountedImage {
 public:
  // Creates `folder` if it is missing. `options` are mount options of ext4.
  // The destructor unmounts the image; the folder stays.
  MountedImage(const std::string& image, const std::string& folder, const std::string& options = "");
  ~MountedImage();
  MountedImage(const MountedImage&) = delete;
  MountedImage& operator=(const MountedImage&) = delete;

 private:
  const std::string folder_;
};
