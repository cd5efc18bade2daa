// ThreadNames: names of threads, and a sleep in microseconds.
#pragma once

#include <cstdint>
#include <string>

// Sets the name of the calling thread. Null or an empty name means "<anonymous thread>". The system accepts names of up
// to 15 bytes. It refuses longer ones, also "<anonymous thread>": the thread then keeps its old name, and no error is
// reported.
void setThreadName(const char* name);
// The name of the calling thread, or "<error in pthread_getname>" if it cannot be read.
std::string getThreadName();

// Sleeps for `micros` microseconds. It returns at once for 0 and negative values. From five seconds on it sleeps for
// whole seconds and drops the remainder, deliberately. A signal does not shorten the sleep.
void sleepMicros(std::int64_t micros);
