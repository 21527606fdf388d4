#pragma once

#include <memory>
#include <type_traits>
#include <utility>

namespace OruKalvix {

template <class Signature>
class FunctionRef;

/// Refers to a callable for the duration of a call. Owns nothing and allocates nothing: the callable has to
/// outlive it, which a lambda in the argument list does.
template <class Result, class... Arguments>
class FunctionRef<Result(Arguments...)> {
 public:
  template <class Callable, class = std::enable_if_t<!std::is_same_v<std::decay_t<Callable>, FunctionRef>>>
  FunctionRef(Callable&& callable) noexcept
      : object_(const_cast<void*>(static_cast<const void*>(std::addressof(callable)))),
        call_([](void* object, Arguments... arguments) -> Result {
          return (*static_cast<std::remove_reference_t<Callable>*>(object))(
              std::forward<Arguments>(arguments)...);
        }) {}

  Result operator()(Arguments... arguments) const {
    return call_(object_, std::forward<Arguments>(arguments)...);
  }

 private:
  void* object_;
  Result (*call_)(void*, Arguments...);
};

}  // namespace OruKalvix
