// The operations on files: encrypt, decrypt, verify and rekey.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <initializer_list>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>

#include "bindings/c/boundary.h"
#include "bindings/c/client.h"
#include "bindings/c/file_ends.h"
#include "bindings/c/observer_pause.h"
#include "bindings/c/operation.h"
#include "bindings/c/origin.h"
#include "bindings/c/report.h"
#include "bindings/c/text.h"
#include "client/cryptcli.h"
#include "foundation/errorstate.h"
#include "transport/sigpipe_guard.h"

namespace CryptCliC {

using OruGuiBase::File;
using OruKalvix::CryptClient;

namespace {

using ReportPtr = std::unique_ptr<cryptcli_report>;

// How often the bytes of the source are read, for the progress. Encrypting reads the source and then the
// signed message. Decrypting reads the envelope, then its content once to verify and once to copy it.
constexpr unsigned kPassesOfEncrypt = 2;
constexpr unsigned kPassesOfDecrypt = 3;

// How long a client tries to find the room's first key while others make it at the same time. Each of them
// that loses begins again after a random pause, at most as long as its attempt took, then twice that, and so
// on: so the attempts of any number of clients soon lie apart, on a slow machine as well.
constexpr std::chrono::milliseconds kFirstKeyTime{120'000};
constexpr std::chrono::milliseconds kLongestPause{20'000};

/// What an operation on files is asked to do, checked.
struct Task {
  const cryptcli_client& client;
  std::string_view room;
  cryptcli_call* call;

  std::optional<std::string> GetExpectedRoom() const {
    return call != nullptr ? call->expectedRoom : std::nullopt;
  }
};

std::string Quoted(const cryptcli_file& file) {
  if (file.path != nullptr) return "\"" + std::string(file.path) + "\"";
  return "descriptor " + std::to_string(file.descriptor);
}

// The failure of a step of this layer, whose reason is in the error state. A wait that the caller ended is no
// fault of the file.
Failure SystemFailure(Operation& operation, std::string_view what, const cryptcli_file& file) {
  if (operation.IsCancelled() && OruGuiBase::GetLastError() == ECANCELED)
    return operation.MakeFailure("The operation was cancelled");
  return operation.MakeFailure(std::string(what) + " " + Quoted(file) + ": " +
                               ToString(OruGuiBase::GetSystemErrorText()));
}

Failure NoTemporaryFile(Operation& operation) {
  return operation.MakeFailure("Could not create a temporary file: " +
                               ToString(OruGuiBase::GetSystemErrorText()));
}

Failure CannotRead(Operation& operation, const Source& source, const cryptcli_file& file) {
  return source.HasNoCopy() ? NoTemporaryFile(operation) : SystemFailure(operation, "Could not read", file);
}

void TakeFacts(cryptcli_report& report, const Facts& facts) {
  report.serviceGroup = facts.serviceGroup;
  report.serviceRoom = facts.serviceRoom;
  report.isPlainKey = facts.isPlainKey;
  report.chain = facts.chain;
  if (facts.signers.empty()) return;
  report.signedGroup = facts.signers.front().group;
  report.signedRoom = facts.signers.front().room;
  report.signedRoomUrl = facts.signers.front().roomUrl;
}

std::chrono::milliseconds RandomPause(std::chrono::milliseconds longest) {
  thread_local std::minstd_rand random{std::random_device{}()};
  std::uniform_int_distribution<std::int64_t> pause(1, longest.count());
  return std::chrono::milliseconds(pause(random));
}

// False once the operation is cancelled.
bool Pause(std::chrono::milliseconds length, Operation& operation) {
  constexpr std::chrono::milliseconds kStep{100};  // how long a cancellation may go unnoticed
  while (length.count() > 0 && !operation.IsCancelled()) {
    const auto step = std::min(length, kStep);
    std::this_thread::sleep_for(step);
    length -= step;
  }
  return !operation.IsCancelled();
}

// Encrypts, again and again as long as another client is making the room's key at the same time: whoever
// comes second finds the other's key. No other cause is worth a second attempt.
bool EncryptWithRoomKey(const Task& task, const File& source, const File& target, Operation& operation,
                        std::string& message) {
  using Clock = std::chrono::steady_clock;
  using std::chrono::milliseconds;
  const Clock::time_point start = Clock::now();
  milliseconds pause{0};
  for (;;) {
    CryptClient client(&operation, ToAnsi(task.client.options.service), {}, ToAnsi(task.room));
    bool isKeyRefused = false;
    if (client.Encrypt(source, target, isKeyRefused)) return true;
    message = ToString(client.GetErrorMessage());
    const auto spent = std::chrono::duration_cast<milliseconds>(Clock::now() - start);
    if (!operation.HasLostUpload() || operation.IsCancelled() || spent > kFirstKeyTime) return false;
    pause = std::min(pause.count() == 0 ? spent + milliseconds(1) : pause * 2, kLongestPause);
    if (!Pause(RandomPause(pause), operation)) return false;
    operation.StartOver();
  }
}

// A file is signed for the room that the crypt service named with its key, not for the one in the call.
// A file that is not made has no origin, so the refusal has no report.
cryptcli_status CheckNamedRoom(const Task& task, const Operation& operation, ReportPtr& report,
                               cryptcli_error** error) {
  const std::optional<std::string> expected = task.GetExpectedRoom();
  const std::string& named = operation.GetFacts().serviceRoom;
  if (!expected || named == *expected) return CRYPTCLI_OK;
  report.reset();
  return Fail(error, CRYPTCLI_ORIGIN_NOT_PROVEN, DescribeOtherRoom(named, *expected));
}

// Delivers the complete target, as the last step: everything else that can fail came before. A cancellation
// that arrives from here on has no effect, since half a target would be worse than a whole one.
cryptcli_status Deliver(const cryptcli_file& to, Target& target, Operation& operation,
                        cryptcli_report& report, cryptcli_error** error) {
  if (operation.IsCancelled()) return Fail(error, operation.MakeFailure("The operation was cancelled"));
  if (!target.AwaitReader()) return Fail(error, SystemFailure(operation, "Could not write", to));
  Complete(report);
  bool isDelivered = false;
  {
    const ObserverPause pause;
    const OruKalvix::SigPipeGuard guard;  // the target may be a pipe that nobody reads any more
    isDelivered = target.Deliver();
  }
  if (!isDelivered) return Fail(error, SystemFailure(operation, "Could not write", to));
  operation.FinishProgress();
  return CRYPTCLI_OK;
}

cryptcli_status Encrypt(const Task& task, const cryptcli_file& from, const cryptcli_file& to,
                        ReportPtr& report, cryptcli_error** error) {
  Operation operation(task.client, task.call);
  Source source;
  Target target;
  if (!source.Open(from)) return Fail(error, CannotRead(operation, source, from));
  if (!target.Open(to)) return Fail(error, SystemFailure(operation, "Could not write", to));
  operation.StartProgress(source.GetSize(), kPassesOfEncrypt);
  std::string message;
  if (!EncryptWithRoomKey(task, source.GetFile(), target.GetFile(), operation, message)) {
    return Fail(error, operation.MakeFailure(message));
  }
  const cryptcli_status status = CheckNamedRoom(task, operation, report, error);
  if (status != CRYPTCLI_OK) return status;
  report->bytes = source.GetSize();
  TakeFacts(*report, operation.GetFacts());
  return Deliver(to, target, operation, *report, error);
}

// Opens the source into the target's private file and judges it; nothing is delivered here.
cryptcli_status Open(const Task& task, const cryptcli_file& from, const Source& source, Target& target,
                     Operation& operation, cryptcli_report& report, cryptcli_error** error) {
  CryptClient client(&operation, ToAnsi(task.client.options.service), {}, ToAnsi(task.room));
  Verdict verdict;
  operation.WatchSigners(true);
  const bool isOpened =
      client.Decrypt(source.GetFile(), target.GetFile(), verdict.isSigned, verdict.isVerified);
  operation.WatchSigners(false);
  if (!isOpened) {
    Failure failure = operation.MakeFailure(client.GetErrorMessage().View());
    // The class delivers nothing where the chain of a signer does not hold at all.
    report.hasOrigin = failure.code == CRYPTCLI_ORIGIN_NOT_PROVEN;
    report.origin = CRYPTCLI_ORIGIN_UNPROVEN;
    report.reason = failure.message;
    TakeFacts(report, operation.GetFacts());
    Complete(report);
    return Fail(error, std::move(failure));
  }
  // The class takes an exchange that was cancelled while it examined the signer for one that proves nothing.
  if (operation.IsCancelled()) return Fail(error, operation.MakeFailure("The operation was cancelled"));
  if (verdict.isSigned && !verdict.isVerified) verdict.message = ToString(client.GetErrorMessage());
  const Origin origin = JudgeOrigin(verdict, operation.GetFacts(), task.GetExpectedRoom());
  report.hasOrigin = true;
  report.origin = origin.value;
  report.reason = origin.reason;
  report.bytes = target.GetSize();
  TakeFacts(report, operation.GetFacts());
  const cryptcli_policy policy = task.call != nullptr ? task.call->accept : CRYPTCLI_ACCEPT_PROVEN;
  if (IsAccepted(origin, policy)) return CRYPTCLI_OK;
  Failure failure;
  // If the signer was not examined because a server failed, a later attempt may prove the origin. It cannot
  // change the room.
  if (origin.value == CRYPTCLI_ORIGIN_UNPROVEN && !origin.isOfOtherRoom)
    failure = operation.MakeFailure(origin.reason);
  if (failure.code == CRYPTCLI_CANCELLED) return Fail(error, std::move(failure));
  Complete(report);
  failure.code = CRYPTCLI_ORIGIN_NOT_PROVEN;
  failure.message = "The origin of " + Quoted(from) + " is not proven: " + origin.reason;
  return Fail(error, std::move(failure));
}

cryptcli_status Decrypt(const Task& task, const cryptcli_file& from, const cryptcli_file* to,
                        ReportPtr& report, cryptcli_error** error) {
  Operation operation(task.client, task.call);
  Source source;
  Target target;
  if (!source.Open(from)) return Fail(error, CannotRead(operation, source, from));
  if (to == nullptr && !target.OpenNowhere()) return Fail(error, NoTemporaryFile(operation));
  if (to != nullptr && !target.Open(*to))
    return Fail(error, SystemFailure(operation, "Could not write", *to));
  operation.StartProgress(source.GetSize(), kPassesOfDecrypt);
  const cryptcli_status status = Open(task, from, source, target, operation, *report, error);
  if (status != CRYPTCLI_OK) return status;
  if (to != nullptr) return Deliver(*to, target, operation, *report, error);
  Complete(*report);
  operation.FinishProgress();
  return CRYPTCLI_OK;
}

Failure CannotReplace(Operation& operation, const cryptcli_file& file) {
  const bool isChanged = OruGuiBase::GetLastError() == ESTALE;
  return operation.MakeFailure("Could not replace " + Quoted(file) +
                               (isChanged
                                    ? ": another program changed it meanwhile. Rekey it again"
                                    : " in one step: it belongs to another user or group, has several names "
                                      "or an access list, or its directory takes no new files. Copy it, "
                                      "and rekey the copy"));
}

cryptcli_status Rekey(const Task& task, const char* path, ReportPtr& report, cryptcli_error** error) {
  Operation operation(task.client, task.call);
  const cryptcli_file file = cryptcli_path(path);
  Source source;
  Target content;
  Target target;
  if (!source.Open(file)) return Fail(error, CannotRead(operation, source, file));
  if (!content.OpenNowhere()) return Fail(error, NoTemporaryFile(operation));
  if (!target.Open(file)) return Fail(error, SystemFailure(operation, "Could not write", file));
  if (!target.IsReplaceable()) return Fail(error, CannotReplace(operation, file));
  operation.StartProgress(source.GetSize(), kPassesOfDecrypt + kPassesOfEncrypt);
  cryptcli_status status = Open(task, file, source, content, operation, *report, error);
  if (status != CRYPTCLI_OK) return status;
  std::string message;
  if (!EncryptWithRoomKey(task, content.GetFile(), target.GetFile(), operation, message)) {
    return Fail(error, operation.MakeFailure(message));
  }
  status = CheckNamedRoom(task, operation, report, error);
  if (status != CRYPTCLI_OK) return status;
  if (operation.IsCancelled()) return Fail(error, operation.MakeFailure("The operation was cancelled"));
  Complete(*report);
  if (!target.Replace()) {
    const auto reason = OruGuiBase::GetLastError();
    const bool isUnfit = reason == EXDEV || reason == ESTALE;
    return Fail(error,
                isUnfit ? CannotReplace(operation, file) : SystemFailure(operation, "Could not write", file));
  }
  operation.FinishProgress();
  return CRYPTCLI_OK;
}

// Runs an operation on files after the checks that all of them need. The caller gets the report on success,
// and also when the content was refused, since it then says why.
template <class Work>
cryptcli_status WithReport(const cryptcli_client* client, const char* room, cryptcli_call* call,
                           cryptcli_report** report, cryptcli_error** error,
                           std::initializer_list<cryptcli_file> files, Work work) noexcept {
  if (report != nullptr) *report = nullptr;
  return Guarded(error, [&]() -> cryptcli_status {
    if (!CheckRoom(client, room, error)) return CRYPTCLI_INVALID_ARGUMENT;
    if (!std::ranges::all_of(files, IsNamed))
      return Fail(error, CRYPTCLI_INVALID_ARGUMENT, "No path or descriptor");
    auto made = std::make_unique<cryptcli_report>();
    const cryptcli_status status = work(Task{*client, room, call}, made);
    if (report == nullptr || (status != CRYPTCLI_OK && status != CRYPTCLI_ORIGIN_NOT_PROVEN)) return status;
    *report = made.release();
    return status;
  });
}

}  // namespace

}  // namespace CryptCliC

using CryptCliC::ReportPtr;
using CryptCliC::Task;

cryptcli_status cryptcli_encrypt(const cryptcli_client* client, const char* room, cryptcli_file source,
                                 cryptcli_file target, cryptcli_call* call, cryptcli_report** report,
                                 cryptcli_error** error) {
  return CryptCliC::WithReport(client, room, call, report, error, {source, target},
                               [&](const Task& task, ReportPtr& made) {
                                 return CryptCliC::Encrypt(task, source, target, made, error);
                               });
}

cryptcli_status cryptcli_decrypt(const cryptcli_client* client, const char* room, cryptcli_file source,
                                 cryptcli_file target, cryptcli_call* call, cryptcli_report** report,
                                 cryptcli_error** error) {
  return CryptCliC::WithReport(client, room, call, report, error, {source, target},
                               [&](const Task& task, ReportPtr& made) {
                                 return CryptCliC::Decrypt(task, source, &target, made, error);
                               });
}

cryptcli_status cryptcli_verify(const cryptcli_client* client, const char* room, cryptcli_file source,
                                cryptcli_call* call, cryptcli_report** report, cryptcli_error** error) {
  return CryptCliC::WithReport(client, room, call, report, error, {source},
                               [&](const Task& task, ReportPtr& made) {
                                 return CryptCliC::Decrypt(task, source, nullptr, made, error);
                               });
}

cryptcli_status cryptcli_rekey(const cryptcli_client* client, const char* room, const char* path,
                               cryptcli_call* call, cryptcli_report** report, cryptcli_error** error) {
  return CryptCliC::WithReport(client, room, call, report, error, {}, [&](const Task& task, ReportPtr& made) {
    if (path == nullptr) return CryptCliC::Fail(error, CRYPTCLI_INVALID_ARGUMENT, "No path");
    return CryptCliC::Rekey(task, path, made, error);
  });
}
