// ScopedRelease: holds one pointer that it owns, and how a thing of its type is let go.
//
//   ScopedPtr<parserinfo> inner(new parserinfo);   // deleted at the end of the scope
//   inner.reset(new parserinfo);                   // the first one is deleted now
//   return inner.take();                           // now it is the caller's
//
// A guard for another kind of ownership derives from ScopedRelease, says in `release` how a pointer is let go, and
// calls reset() in its destructor (ScopedJson in JsonModel.h is one). `release` is never called with a null pointer.
// Guards are neither copied nor moved.
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

  // Gives the pointer to the caller, who owns it from now on; the guard holds null.
  [[nodiscard]] T* take() {
    T* taken = held_;
    held_ = nullptr;
    return taken;
  }

  // Lets go what is held and holds `owned` instead. The pointer already held stays held.
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

// The guard of things made with `new`.
template <class T>
class ScopedPtr final : public ScopedRelease<T> {
 public:
  using ScopedRelease<T>::ScopedRelease;
  ~ScopedPtr() override { this->reset(); }

 protected:
  void release(T* owned) override { delete owned; }
};
