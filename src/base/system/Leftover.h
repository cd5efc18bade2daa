// Leftover: a file that must be removed even if the process ends at once, without running destructors.
//
//   Leftover temporary;
//   temporary.mark(path_.c_str());     // from now on removeLeftovers unlinks the file
//   ...
//   temporary.forget();                // the file was renamed or removed, or is to be kept
//
// The program ends in that way only when memory runs out (see Process.h). Marking allocates no memory. The path is
// borrowed: the text must neither move nor change until forget is called or the scope ends.
// Threads: all functions may be called from any thread.
#pragma once

class Leftover {
 public:
  Leftover() = default;
  Leftover(const Leftover&) = delete;
  Leftover& operator=(const Leftover&) = delete;
  ~Leftover() { forget(); }

  // Marks the file at `path`, in place of the file that was marked before.
  void mark(const char* path);
  // Unmarks the file. Does nothing if none is marked.
  void forget();

 private:
  friend void removeLeftovers();

  const char* path_ = nullptr;
  Leftover* next_ = nullptr;
};

// Unlinks every marked file. Allocates no memory.
void removeLeftovers();
