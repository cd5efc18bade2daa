// PrivateHost: a host of its own for one process and what it starts, with the real paths and nothing of the machine.
//
//   int main() {
//     if (!PrivateHost::enter()) printf("%s\n", PrivateHost::whyNot().c_str());
//     ...  // here /etc/zuv, /etc/init.d, /tmp, /run and the rest are ours, and our user id is 0
//   }
//
// Inside: a root directory in memory, own mount, pid and network namespaces and, where the caller is not root, a user
// namespace that makes it uid 0 (there is one user then: no second uid, no chown). The machine's programs and libraries
// can be used; /usr/bin and /usr/sbin (so /bin and /sbin) take new files and lose old ones without any effect on the
// machine. The tools whose presence decides something (systemctl, initctl, hip, ravctl and the bundle script) are
// absent until a test installs them; killall is the machine's, and it sees only what runs inside. /etc holds a handful
// of files and neither zuv nor init.d; /tmp, /run, /var, /root and /home are empty; the only network interface is `lo`,
// and it is down.
//
// The checkout: whatever its path on the machine, inside it lies below /.private-host (see Places.h), where every user
// may pass. /.private-host/source shows the sources and /.private-host/build the build, both read-only;
// /.private-host/made is the one folder of the machine that can be written. /.private-host/programs holds the programs
// that every user may execute. No other path of the machine is visible.
//
// Processes: the caller becomes the outer process. It waits, and ends the way the process inside ended: with the same
// exit status, or by the same signal. Inside, the program starts again from its path there, with the same arguments and
// environment, but every argument and variable that names a path of the checkout names it as it is inside (see
// translated()). Whatever still runs when that process ends is killed, and the memory is freed; nothing remains. When
// the outer process dies, so does everything inside.
// Threads: enter before any is started.
#pragma once

#include <string>
#include <vector>

class PrivateHost {
 public:
  // A folder of the machine that stays visible inside, at another path.
  struct Shown {
    std::string folder;
    std::string at;
    bool isWritable = false;  // where the machine lets the caller write
  };

  // Moves in. Returns true in the program that was started inside, and also, without effect, in every program that it
  // starts; the outer process never returns. Returns false where no host can be had: the process is as it was, and
  // whyNot() names the step that failed. Call it first in main: what the caller did before is done again inside.
  // RAVCTL_NO_HOST in the environment closes the door (for debuggers). `build` is another build folder to show instead
  // of the caller's own.
  static bool enter(const std::vector<Shown>& shown = {}, const std::string& build = "");

  // Returns true if this process runs on a private host.
  static bool inside();

  // Why the last enter() failed; empty when it did not.
  static const std::string& whyNot();

  // The text with every path of these folders as it is inside. A path counts at the start of the text and behind '=' or
  // ':', if the folder's name ends there: "--out=/work/x/file" for "/work/x", not "/work/xy". Of two folders that fit
  // the longer one counts.
  static std::string translated(const std::string& text, const std::vector<Shown>& shown);
};
