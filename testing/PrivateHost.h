// PrivateHost: a host of its own for one process and what it starts, with the real paths and nothing of the machine.
//
//   int main() {
//     if (!PrivateHost::enter()) printf("%s\n", PrivateHost::whyNot().c_str());
//     ...  // here /etc/zuv, /etc/init.d, /tmp, /run and the rest are ours, and our user id is 0
//   }
//
// Inside: a root directory in memory, own mount, pid and network namespaces and, where the caller is not root, a user
// namespace that makes it uid 0 (there is one user then: no second uid, no chown). The machine's programs and libraries
// are there to be used; /usr/bin and /usr/sbin (so /bin and /sbin) take new files and give up old ones without the
// machine noticing. The tools whose presence decides something (systemctl, initctl, hip, ravctl and the bundle script)
// are absent until somebody puts them there; killall is the machine's, which sees only what runs inside. /etc holds a
// handful of files and neither zuv nor init.d; /tmp, /run, /var, /root and /home are empty; of the network there is
// `lo`, and it is down. The source folder is readable, the build folder (and the folder of the program) writable where
// the machine lets the caller write.
//
// Processes: the caller becomes the outer process. It waits, and ends the way the process inside ended: the same exit
// status, or the same signal. Whatever still runs inside then is killed, and the memory given back; nothing remains.
// When the outer process dies, so does everything inside.
// Threads: enter before any is started.
#pragma once

#include <string>
#include <vector>

class PrivateHost {
 public:
  // Moves in. True in the process inside, which goes on from here; the outer process never returns. Also true, and
  // without effect, when the process is inside already. False where no host can be had: the process is as it was, and
  // whyNot() names the step that failed. RAVCTL_NO_HOST in the environment closes the door (for debuggers).
  // `alsoVisible` are further folders of the machine that stay readable inside, `alsoWritable` those that also stay
  // writable, where the machine lets the caller write.
  static bool enter(const std::vector<std::string>& alsoVisible = {},
                    const std::vector<std::string>& alsoWritable = {});

  // Whether this process runs on a private host.
  static bool inside();

  // Why the last enter() failed; empty when it did not.
  static const std::string& whyNot();
};
