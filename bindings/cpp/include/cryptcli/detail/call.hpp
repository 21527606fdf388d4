#ifndef CRYPTCLI_DETAIL_CALL_HPP
#define CRYPTCLI_DETAIL_CALL_HPP

// Part of <cryptcli/cryptcli.hpp>, not for users: one operation with its call object.

#include <cryptcli/cryptcli.h>
#include <cryptcli/detail/abi.hpp>
#include <cryptcli/detail/callables.hpp>
#include <cryptcli/detail/objects.hpp>
#include <cryptcli/options.hpp>
#include <cryptcli/result.hpp>
#include <cryptcli/values.hpp>
#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>

namespace cryptcli::inline CRYPTCLI_DETAIL_ABI {
namespace detail {

/// A call object that lives as long as the operation, with the user's progress callable and stop token.
class RunningCall {
 public:
  explicit RunningCall(const Call& call) : progress_(call.progress), call_(cryptcli_call_new()) {
    if (call_ == nullptr) return;
    cryptcli_error* error = nullptr;
    status_ = cryptcli_call_set_accept(call_.get(), static_cast<cryptcli_policy>(call.accept), &error);
    hasNul_ = call.expectedRoom && HasNul(*call.expectedRoom);
    if (status_ == CRYPTCLI_OK && call.expectedRoom && !hasNul_)
      status_ = cryptcli_call_set_expected_room(call_.get(), call.expectedRoom->c_str(), &error);
    error_.reset(error);
    if (progress_) cryptcli_call_set_progress(call_.get(), &RunningCall::Show, this);
    if (call.stop.stop_possible()) stop_.emplace(call.stop, Cancel{call_.get()});
  }
  RunningCall(const RunningCall&) = delete;
  RunningCall& operator=(const RunningCall&) = delete;
  ~RunningCall() = default;

  cryptcli_call* Get() const { return call_.get(); }
  /// Why the operation cannot start, if so.
  std::optional<Error> GetFailure() const {
    if (call_ == nullptr) return NoMemory().error();
    if (status_ != CRYPTCLI_OK) return ToError(status_, error_.get());
    if (hasNul_)
      return Failure(Status::InvalidArgument, "The expected room contains a NUL character").error();
    return std::nullopt;
  }
  /// The error if the progress callable cancelled the operation with an exception.
  std::optional<Error> GetThrown() const {
    if (!hasThrown_) return std::nullopt;
    return Failure(Status::Cancelled, Threw("progress callable", reason_)).error();
  }

 private:
  /// What the stop token runs on a stop request. Refers to the call object, which outlives the callback.
  struct Cancel {
    cryptcli_call* call;
    void operator()() const noexcept { cryptcli_call_cancel(call); }
  };
  static std::int32_t Show(void* context, std::uint64_t done, std::uint64_t total) noexcept {
    auto& self = *static_cast<RunningCall*>(context);
    bool goesOn = false;
    if (!Guard([&] { goesOn = self.progress_(done, total); }, self.reason_)) self.hasThrown_ = true;
    return goesOn ? 1 : 0;
  }

  const Progress& progress_;
  Handle<cryptcli_call> call_;
  cryptcli_status status_ = CRYPTCLI_OK;
  Handle<cryptcli_error> error_;
  bool hasNul_ = false;
  bool hasThrown_ = false;
  std::string reason_;
  // The last member: its destructor waits for a cancellation on another thread, which uses the others.
  std::optional<std::stop_callback<Cancel>> stop_;
};

/// Runs an operation, which receives a call and the places for a report and an error.
template <class Work>
Result<Handle<cryptcli_report>> Run(const Call& call, bool hasOrigin, Work work) {
  RunningCall running(call);
  if (std::optional<Error> failure = running.GetFailure()) return Unexpected(*std::move(failure));
  cryptcli_report* report = nullptr;
  cryptcli_error* error = nullptr;
  const cryptcli_status status = work(running.Get(), &report, &error);
  Handle<cryptcli_report> ownedReport(report);
  const Handle<cryptcli_error> ownedError(error);
  if (status == CRYPTCLI_OK) return ownedReport;
  std::optional<Error> thrown;
  if (status == CRYPTCLI_CANCELLED) thrown = running.GetThrown();
  if (thrown) return Unexpected(*std::move(thrown));
  Error failure = ToError(status, error);
  if (hasOrigin && report != nullptr) failure.report = ToReport(report, hasOrigin);
  return Unexpected(std::move(failure));
}

}  // namespace detail
}  // namespace cryptcli::inline CRYPTCLI_DETAIL_ABI

#endif  // CRYPTCLI_DETAIL_CALL_HPP
