#ifndef CRYPTCLI_RESULT_HPP
#define CRYPTCLI_RESULT_HPP

// Part of <cryptcli/cryptcli.hpp>: a value or the Error that explains why there is none.

#include <cryptcli/detail/abi.hpp>
#include <cryptcli/values.hpp>

#if CRYPTCLI_DETAIL_HAS_EXPECTED
#include <expected>
#else
#include <cstdlib>
#include <functional>
#include <type_traits>
#include <variant>
#endif
#include <utility>

namespace cryptcli::inline CRYPTCLI_DETAIL_ABI {

#if CRYPTCLI_DETAIL_HAS_EXPECTED

/// The failure of a Result<T>, whatever T is: `return cryptcli::Unexpected(error);`.
using Unexpected = std::unexpected<Error>;

/// A value or an Error: std::expected where the standard library has it with all of its operations, and
/// otherwise a class of ours with the same names.
template <class T>
using Result = std::expected<T, Error>;

#else

/// The failure of a Result<T>, whatever T is: `return cryptcli::Unexpected(error);`.
class Unexpected {
 public:
  explicit Unexpected(Error error) : error_(std::move(error)) {}
  [[nodiscard]] const Error& error() const& noexcept { return error_; }
  [[nodiscard]] Error& error() & noexcept { return error_; }
  [[nodiscard]] Error&& error() && noexcept { return std::move(error_); }

 private:
  Error error_;
};

/// A value or an Error. Where the standard library has std::expected<T, Error> with all of its operations,
/// that is Result<T>. Precondition of value(), * and ->: has_value(); of error(): not has_value(). This class
/// aborts otherwise; std::expected throws from value() and does not check the others.
///
///     cryptcli::Result<cryptcli::Report> verified = client.Verify("room-1", "report.p7m");
///     if (!verified) return Refuse(verified.error().message);
///     Accept(verified->signedGroup);
template <class T>
class [[nodiscard]] Result {
 public:
  using value_type = T;
  using error_type = Error;
  using unexpected_type = Unexpected;
  /// Whether a U makes a success. A Result and an Unexpected have constructors of their own.
  template <class U>
  static constexpr bool kIsValue =
      std::is_constructible_v<T, U> && !std::is_same_v<std::remove_cvref_t<U>, Result> &&
      !std::is_same_v<std::remove_cvref_t<U>, Unexpected>;

  /// A success, from what T can be made of: explicit where that is.
  template <class U = T>
  requires kIsValue<U>
  explicit(!std::is_convertible_v<U, T>) Result(U&& value)  // NOLINT(*-forwarding-reference-overload)
      : state_(std::in_place_index<0>, std::forward<U>(value)) {}
  /// A failure.
  Result(Unexpected failure) : state_(std::in_place_index<1>, std::move(failure).error()) {}

  [[nodiscard]] bool has_value() const noexcept { return state_.index() == 0; }
  explicit operator bool() const noexcept { return has_value(); }

  [[nodiscard]] const T& value() const& { return Get<0>(state_); }
  [[nodiscard]] T& value() & { return Get<0>(state_); }
  [[nodiscard]] T&& value() && { return std::move(Get<0>(state_)); }
  [[nodiscard]] const T& operator*() const& { return value(); }
  [[nodiscard]] T& operator*() & { return value(); }
  [[nodiscard]] T&& operator*() && { return std::move(*this).value(); }
  [[nodiscard]] const T* operator->() const { return &value(); }
  [[nodiscard]] T* operator->() { return &value(); }
  [[nodiscard]] const Error& error() const& { return Get<1>(state_); }
  [[nodiscard]] Error& error() & { return Get<1>(state_); }
  [[nodiscard]] Error&& error() && { return std::move(Get<1>(state_)); }

  /// Returns the value; or `other`.
  template <class U>
  [[nodiscard]] T value_or(U&& other) const& {
    return has_value() ? value() : static_cast<T>(std::forward<U>(other));
  }
  template <class U>
  [[nodiscard]] T value_or(U&& other) && {
    return has_value() ? std::move(*this).value() : static_cast<T>(std::forward<U>(other));
  }

  /// Returns `next(value)`, which is a Result; or this failure.
  template <class F>
  auto and_then(F&& next) const& {
    return AndThen(*this, std::forward<F>(next));
  }
  template <class F>
  auto and_then(F&& next) && {
    return AndThen(std::move(*this), std::forward<F>(next));
  }
  /// Returns a Result of `next(value)`, which is a plain value; or this failure.
  template <class F>
  auto transform(F&& next) const& {
    return Transform(*this, std::forward<F>(next));
  }
  template <class F>
  auto transform(F&& next) && {
    return Transform(std::move(*this), std::forward<F>(next));
  }
  /// Returns this success; or `next(error)`, which is a Result of the same type.
  template <class F>
  Result or_else(F&& next) const& {
    return has_value() ? *this : std::invoke(std::forward<F>(next), error());
  }
  template <class F>
  Result or_else(F&& next) && {
    return has_value() ? std::move(*this) : std::invoke(std::forward<F>(next), std::move(*this).error());
  }

 private:
  template <std::size_t kIndex, class State>
  static auto& Get(State& state) {
    auto* const member = std::get_if<kIndex>(&state);
    if (member == nullptr) std::abort();
    return *member;
  }
  template <class Self, class F>
  static auto AndThen(Self&& self, F&& next) {
    using Next = std::remove_cvref_t<std::invoke_result_t<F, decltype(std::forward<Self>(self).value())>>;
    if (!self.has_value()) return Next(Unexpected(std::forward<Self>(self).error()));
    return std::invoke(std::forward<F>(next), std::forward<Self>(self).value());
  }
  template <class Self, class F>
  static auto Transform(Self&& self, F&& next) {
    using Next = std::remove_cv_t<std::invoke_result_t<F, decltype(std::forward<Self>(self).value())>>;
    if (!self.has_value()) return Result<Next>(Unexpected(std::forward<Self>(self).error()));
    return Result<Next>(std::invoke(std::forward<F>(next), std::forward<Self>(self).value()));
  }

  std::variant<T, Error> state_;
};

#endif

namespace detail {

/// `text`, which is UTF-8, as a JSON string.
inline std::string ToJsonString(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string json = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      json += {'\\', c};
    } else if (byte < 0x20) {
      json += "\\u00";
      json += {kDigits[byte >> 4], kDigits[byte & 15]};
    } else {
      json += c;
    }
  }
  return json + "\"";
}

}  // namespace detail

/// A failure of the caller's own, for a Transport for instance. `message` is for people, in UTF-8.
///
///     return cryptcli::Failure(cryptcli::Status::Unreachable, "the tunnel is closed");
[[nodiscard]] inline Unexpected Failure(Status code, std::string message) {
  Error error;
  error.code = code;
  error.json = "{\"code\":\"" + std::string(ToString(code)) +
               "\",\"message\":" + detail::ToJsonString(message) +
               R"(,"retryable":false,"httpStatus":0,"url":"","attempts":[]})";
  error.message = std::move(message);
  return Unexpected(std::move(error));
}

}  // namespace cryptcli::inline CRYPTCLI_DETAIL_ABI

#endif  // CRYPTCLI_RESULT_HPP
