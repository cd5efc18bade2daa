// Zone: sets the time zone of this process from its construction to the end of its scope, and then unsets TZ.
#pragma once

#include <time.h>

#include <cstdlib>

class Zone {
 public:
  explicit Zone(const char* name) { set(name); }
  ~Zone() {
    ::unsetenv("TZ");
    ::tzset();
  }
  Zone(const Zone&) = delete;
  Zone& operator=(const Zone&) = delete;

  void set(const char* name) {
    ::setenv("TZ", name, 1);
    ::tzset();
  }
};
