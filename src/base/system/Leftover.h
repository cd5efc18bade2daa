// Leftover: a file that must not stay behind when the process ends at once, without leaving its scopes.
//
//   Leftover temporary;
//   temporary.mark(path_.c_str());     // from now on removeLeftovers unlinks it
//   ...
//   temporary.forget();                // renamed, removed or wanted after all
//
// For the one way in which the program ends like that: memory has run out (see Process.h). Marking takes no memory. The
// path is borrowed and must stay where it is until it is forgotten, which the end of the scope does too. Threads: safe.
#pragma once

class Leftover {
 public:
  Leftover() = default;
  Leftover(const Leftover&) = delete;
  Leftover& operator=(const Leftover&) = delete;
  ~Leftover() { forget(); }

  // Replaces the path that was marked before.
  void mark(const char* path);
  // Does nothing without a mark.
  void forget();

 private:
  friend void removeLeftovers();

  const char* path_ = nullptr;
  Leftover* next_ = nullptr;
};

// Unlinks every marked file, the last one marked first. Takes no memory.
void removeLeftovers();
