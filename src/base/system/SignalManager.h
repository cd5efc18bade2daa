// SignalManager: turns signals into calls that ordinary code makes when it is ready for them.
//
//   class Signals : public SignalManager {
//     void handle(int signal) override { if (signal == SIGTERM) shutDown(); }
//   };
//   Signals signals;
//   if (signals.install(SIGTERM) != 0) ...
//   for (;;) { waitForWork(); signals.dispatch(); }
//
// In signal context nothing happens but that the signal is marked. A signal that comes again before dispatch is handled
// once; one that comes while it, or another, is being handled is handled by a later dispatch at the latest: none is
// lost.
// There is one manager at a time; should there be two, signals go to the one made last. Threads: signals may arrive on
// any thread. install and dispatch are called from one thread, and handle runs on it.
#pragma once

#include <array>
#include <bitset>

class SignalManager {
 public:
  SignalManager();
  // Gives the signals that it installed back to whoever had them before. Of several managers the last made ends first.
  virtual ~SignalManager();
  SignalManager(const SignalManager&) = delete;
  SignalManager& operator=(const SignalManager&) = delete;

  // Catches a signal from now on; 0 when it is caught, and when it was already. Not 0, and nothing changed: the number
  // is not 0 to 31, or the system lets nobody catch it.
  int install(int signal);
  // Hands every pending signal to handle, lower numbers first.
  void dispatch();

 private:
  virtual void handle(int signal) = 0;

  using Action = void (*)(int);
  std::bitset<32> installed_;          // by this manager
  std::array<Action, 32> previous_{};  // of these
};
