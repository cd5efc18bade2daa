// SignalManager: turns signals into calls that ordinary code makes when it is ready for them.
//
//   class Signals : public SignalManager {
//     void handle(int signal) override { if (signal == SIGTERM) shutDown(); }
//   };
//   Signals signals;
//   if (signals.install(SIGTERM) != 0) ...
//   for (;;) { waitForWork(); signals.dispatch(); }
//
// The signal handler only marks the signal as pending. A signal that arrives several times before dispatch is handled
// once. A signal that arrives while dispatch handles it, or another signal, is handled by the next dispatch at the
// latest. No signal is lost. There should be one manager at a time. If there are several, the one made last gets the
// signals.
// Threads: signals may arrive on any thread. install and dispatch must be called from one thread; handle runs on it.
#pragma once

class SignalManager {
 public:
  SignalManager();
  // The signals that this manager installed stay caught, deliberately: a signal that arrives late does nothing, instead
  // of ending the process.
  virtual ~SignalManager();
  SignalManager(const SignalManager&) = delete;
  SignalManager& operator=(const SignalManager&) = delete;

  // Starts to catch a signal. Returns 0 if the signal is now caught or was caught already. Returns -1, and changes
  // nothing, if the number is not 0 to 31 or the system does not allow the signal to be caught.
  int install(int signal);
  // Calls handle for every pending signal, lower numbers first.
  void dispatch();

 private:
  virtual void handle(int signal) = 0;
};
