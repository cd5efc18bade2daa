// Zone: sets the time zone of this process from its construction to the end of its scope, then restores the old one.
//
//   Zone zone("CET-1");         // any value of the environment variable TZ
//   zone.set("UTC0");
//
// Threads: it changes the environment, so no other thread may read or change that meanwhile.
#pragma once

#include <stdlib.h>
#include <time.h>

#include <optional>
#include <string>

class Zone {
 public:
  explicit Zone(const char* name) {
    if (const char* before = ::getenv("TZ")) before_ = before;
    set(name);
  }
  // Restores the zone from before.
  ~Zone() { set(before_ ? before_->c_str() : nullptr); }
  Zone(const Zone&) = delete;
  Zone& operator=(const Zone&) = delete;

  static void set(const char* name) {
    (void)(name != nullptr ? ::setenv("TZ", name, 1) : ::unsetenv("TZ"));
    ::tzset();
  }

 private:
  std::optional<std::string> before_;
};
