// NeverDestroyed: a static object that threads may use until the process has ended.
//
//   Table& table() {
//     static NeverDestroyed<Table> only(16);
//     return only.get();
//   }
//
// The destructors of static objects run at exit while other threads are still running. An object in a NeverDestroyed
// is not destroyed then, or ever. Its storage is static too, so the memory that it owns stays reachable and is not
// reported as leaked.
#pragma once

#include <new>
#include <utility>

template <typename T>
class NeverDestroyed {
 public:
  template <typename... Arguments>
  explicit NeverDestroyed(Arguments&&... arguments) {
    ::new (static_cast<void*>(storage_)) T(std::forward<Arguments>(arguments)...);
  }
  NeverDestroyed(const NeverDestroyed&) = delete;
  NeverDestroyed& operator=(const NeverDestroyed&) = delete;

  T& get() { return *std::launder(reinterpret_cast<T*>(storage_)); }

 private:
  alignas(T) unsigned char storage_[sizeof(T)];
};
