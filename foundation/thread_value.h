#pragma once

namespace OruGuiBase {

/// A T of each thread that can be asked for as long as the thread runs.
///
/// It is made at its first use and destroyed with the thread's objects: at the end of the thread, and for the
/// thread that ends the process before the first static object goes. What runs behind that (destructors of
/// older thread-local objects, of static objects, of a thread's specific data) finds none and has to do
/// without. `Owner` tells values of one type apart.
template <class Owner, class T>
class ThreadValue {
 public:
  /// The value of the calling thread; null once it was destroyed. It is never made a second time: nobody
  /// would be left to destroy it.
  static T* Get() noexcept {
    if (isGone) return nullptr;
    thread_local Holder holder;
    return &holder.value;
  }

 private:
  // The body runs before the value goes, so that the value's own destructor finds none either.
  struct Holder {
    Holder() noexcept = default;
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    ~Holder() { isGone = true; }
    T value;
  };

  // Has no destructor, so that it can be read when every destructor has run.
  static inline constinit thread_local bool isGone = false;
};

}  // namespace OruGuiBase
