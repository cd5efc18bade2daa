// PrivateHost: gives a process and its children a host of their own. It has the usual paths, but not the machine's
// files.
//
//   int main() {
//     if (!PrivateHost::enter()) printf("%s\n", PrivateHost::whyNot().c_str());
//     ...  // now /etc/zuv, /etc/init.d, /tmp, /run and so on are ours, and our user id is 0
//   }
//
// Inside:
// - The root directory is in memory, and the mount, pid and network namespaces are new. If the caller is not root, a
//   user namespace makes it uid 0; that namespace has no second user, and chown fails.
// - The programs and libraries of the machine work. A test may add and remove files in /usr/bin and /usr/sbin,
//   which are also /bin and /sbin, without any effect on the machine.
// - systemctl, initctl, hip, ravctl and the bundle script are absent until a test installs them, because the product
//   behaves differently if they exist. killall is the machine's and sees only processes inside.
// - /etc holds a few files, but neither zuv nor init.d. /tmp, /run, /root, /home and the folders of /var are empty.
// - The only network interface is `lo`, and it is down.
//
// The checkout: inside it is below /.private-host (see Places.h), whatever its path on the machine is, and every user
// can reach it there. /.private-host/source is the source folder and /.private-host/build the build folder; both are
// read-only. /.private-host/made is the only writable folder of the machine. /.private-host/programs holds the programs
// of the build that every user may execute. No other path of the machine is visible.
//
// Processes: the caller becomes the outer process. It waits for the process inside and ends in the same way: with the
// same exit status or by the same signal. Inside, the same program starts again with the same arguments and
// environment; translated() replaces the paths of the checkout in them. When the process inside ends, the kernel kills
// every other process inside and frees the memory, so that nothing remains. When the outer process dies, everything
// inside dies.
// Threads: call enter() before the process starts a thread.
#pragma once

#include <string>
#include <vector>

class PrivateHost {
 public:
  // A folder of the machine that is visible inside under the path `at`.
  struct Shown {
    std::string folder;
    std::string at;
    bool isWritable = false;  // for a caller who may write to it on the machine
  };

  // Creates a private host and restarts the program inside. Returns true in the program inside; in its child programs
  // the call does nothing and returns true too. In the outer process the call never returns.
  // Returns false if no host can be created: the process is unchanged, and whyNot() names the step that failed. It
  // always returns false if RAVCTL_NO_HOST is set in the environment, which helps with debuggers.
  // Call it first in main(), because the program inside repeats everything that main() did before.
  // `shown` are more folders to show inside. `build` is the build folder to show; empty: the caller's own.
  static bool enter(const std::vector<Shown>& shown = {}, const std::string& build = "");

  // Returns true if this process runs on a private host.
  static bool inside();

  // Why the last enter() failed; empty if it did not fail.
  static const std::string& whyNot();

  // Returns the text with each path of a shown folder replaced by its path inside. It finds paths at the start of the
  // text and after '=' or ':'. The whole name of the folder must match: for the folder "/work/x" it changes
  // "--out=/work/x/file" but not "/work/xy". If two folders match, it takes the longer one.
  static std::string translated(const std::string& text, const std::vector<Shown>& shown);
};
