// ScopedRelease: a guard that owns one pointer and releases it at the end of the scope.
//
//   ScopedPtr<parserinfo> inner(new parserinfo);   // deleted at the end of the scope
//   inner.reset(new parserinfo);                   // deletes the first one now
//   return inner.take();                           // the caller owns it now
//
// ScopedPtr deletes what it owns. A guard that releases in another way derives from ScopedRelease, implements
// `release`, and calls reset() in its own destructor; ScopedJson in JsonModel.h is an example. `release` is never
// called with a null pointer.
#pragma once

template <class T>
class ScopedRelease {
 public:
  explicit ScopedRelease(T* owned = nullptr) : held_(owned) {}
  virtual ~ScopedRelease() = default;
  ScopedRelease(const ScopedRelease&) = delete;
  ScopedRelease& operator=(const ScopedRelease&) = delete;

  T* get() const { return held_; }
  T* operator->() const { return held_; }
  T& operator*() const { return *held_; }
  explicit operator bool() const { return held_ != nullptr; }

  // Hands the pointer over to the caller, who owns it from now on. The guard then holds null.
  [[nodiscard]] T* take() {
    T* taken = held_;
    held_ = nullptr;
    return taken;
  }

  // Releases the current pointer and owns `owned` instead. Does nothing if `owned` is the current pointer.
  void reset(T* owned = nullptr) {
    if (owned == held_) return;
    T* old = held_;
    held_ = owned;
    if (old != nullptr) release(old);
  }

 protected:
  virtual void release(T* owned) = 0;

 private:
  T* held_;
};

// The guard for objects allocated with `new`.
template <class T>
class ScopedPtr final : public ScopedRelease<T> {
 public:
  using ScopedRelease<T>::ScopedRelease;
  ~ScopedPtr() override { this->reset(); }

 protected:
  void release(T* owned) override { delete owned; }
};
