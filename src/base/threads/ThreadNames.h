// Names of threads, and a sleep in microseconds.
#pragma once

#include <cstdint>
#include <string>

// Names the calling thread; null or empty stands for "<anonymous thread>". The system keeps names of up to 15 bytes and
// refuses longer ones, that one included: then the thread silently keeps the name it had.
void setThreadName(const char* name);
// The calling thread's name, or "<error in pthread_getname>".
std::string getThreadName();

// Sleeps `micros`: not at all for zero and less, exactly below five seconds, whole seconds (the remainder dropped,
// deliberately) from there on. A signal does not shorten it.
void sleepMicros(std::int64_t micros);
