#pragma once

namespace OruGuiBase {

/// A T for each thread that can be used safely at any time of the thread, even after its destruction.
///
/// It is made at its first use and destroyed with the thread's objects: at the end of the thread, or, for the
/// thread that ends the process, before the first static object. Code that runs later (destructors of older
/// thread-local objects, of static objects and of thread-specific data) gets null. `Owner` distinguishes
/// values of the same type.
template <class Owner, class T>
class ThreadValue {
 public:
  /// The value of the calling thread; null after its destruction. It is never made a second time, because
  /// nothing would destroy that one.
  static T* Get() noexcept {
    if (isGone) return nullptr;
    thread_local Holder holder;
    return &holder.value;
  }

 private:
  // The destructor's body runs before that of the value, so that the value's own destructor gets null too.
  struct Holder {
    Holder() noexcept = default;
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    ~Holder() { isGone = true; }
    T value;
  };

  // Has no destructor, so it can be read after all destructors.
  static inline constinit thread_local bool isGone = false;
};

}  // namespace OruGuiBase
