#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "bindings/c/call.h"
#include "bindings/c/classify.h"
#include "bindings/c/client.h"
#include "bindings/c/error.h"
#include "bindings/c/facts.h"
#include "exchange/icryptclienthttp.h"
#include "foundation/threadobserver.h"

namespace CryptCliC {

/// One operation of the class on the calling thread: it is the transport that the class uses, before the real
/// one, and the observer of the thread. From both it learns the facts and the failed attempts, sets timeouts,
/// cancels, reports progress and writes the log. Lives on the stack; one at a time is the thread's observer.
class Operation final : public OruKalvix::ICryptClientHttp, public OruGuiBase::IThreadObserver {
 public:
  Operation(const cryptcli_client& client, cryptcli_call* call);
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;
  ~Operation();

  /// Sets whether facts about signers are taken from traces. Only opening a file produces such traces.
  void WatchSigners(bool watch) { watchesSigners_ = watch; }
  /// From here on `passes` times `size` bytes will be read, which are reported as `size` bytes of progress.
  void StartProgress(std::uint64_t size, unsigned passes);
  void FinishProgress();
  /// Forgets the facts of a failed attempt before the next one.
  void StartOver();

  const Facts& GetFacts() const { return facts_.Get(); }
  /// Whether the crypt service refused the upload of a new room key because another client was faster.
  bool HasLostUpload() const;
  /// Whether the operation was cancelled. Resets the call, which can then be used again.
  bool TakeCancelled();
  bool IsCancelled() noexcept override;
  /// The status for a message of the class or of this layer.
  cryptcli_status GetCode(std::string_view message) const;
  /// Whether time alone may help against a failure of this status and message.
  bool IsWorthRetrying(cryptcli_status code, std::string_view message) const;
  /// The failure for a message of the class or of this layer, with what the operation knows about it.
  Failure MakeFailure(std::string_view message);

  // The transport that the class uses.
  void* QueryInterface(const char*) override { return nullptr; }
  std::uint32_t AddRef() override { return 1; }
  std::uint32_t Release() override { return 1; }
  std::int32_t SendRequest(const OruGuiBase::AnsiStr& method, const OruGuiBase::AnsiStr& url,
                           const OruGuiBase::KVMap& headers, const OruGuiBase::AnsiStr& body,
                           const OruKalvix::HttpOptions& options, OruKalvix::HttpResponse& response) override;

  // The observer of the thread.
  std::uint32_t GetTraceLevel() const noexcept override;
  bool WantsBodies() const noexcept override;
  void OnTrace(std::uint32_t category, std::uint32_t level, const char* source, std::uint32_t line,
               const char* text) noexcept override;
  void OnRead(std::uint64_t bytes) noexcept override;
  const char* GetTemporaryDirectory() const noexcept override;

 private:
  /// The latest exchange with a server, as GetFailedExchange reports it.
  struct Exchange {
    std::string url;
    bool isCryptService = false;
    bool isKeyUpload = false;
    bool failed = false;
    bool hasResponse = false;
    std::uint32_t status = 0;
    std::string reason;
    cryptcli_status failure = CRYPTCLI_UNREACHABLE;
  };

  /// A request as the class hands it over.
  struct Request {
    OruGuiBase::AnsiStr method;
    OruGuiBase::AnsiStr url;
    OruGuiBase::KVMap headers;
    OruGuiBase::AnsiStr body;
    OruKalvix::HttpOptions options;
  };

  /// Where a request goes. Lends from its URL.
  struct Place {
    bool isCryptService = false;
    std::string_view path;  ///< after "crypt/" in a URL of the crypt service; empty for any other one
  };

  std::int32_t Forward(const Request& request, const Place& place, OruKalvix::HttpResponse& response,
                       cryptcli_status& failure);
  bool IsKeyThere();
  Place Locate(const OruGuiBase::AnsiStr& url) const;
  void Record(const OruGuiBase::AnsiStr& url, const Place& place, bool hasResponse,
              const OruKalvix::HttpResponse& response, cryptcli_status failure);
  void TakeError(std::string_view text);
  void Log(std::uint32_t level, std::string_view text) const;
  FailedExchange GetFailedExchange() const;

  const cryptcli_client& client_;
  cryptcli_call* call_;
  OruGuiBase::IThreadObserver* before_;
  FactReader facts_;
  Exchange latest_;
  Request keyRequest_;  ///< the latest one for the room's key
  std::vector<Attempt> attempts_;
  /// The latest exchange was with a key server, and no error after it has been recorded yet.
  bool isAttemptOpen_ = false;
  std::uint64_t size_ = 0;
  std::uint64_t read_ = 0;
  unsigned passes_ = 0;
  bool cancelled_ = false;
  bool watchesSigners_ = false;
};

}  // namespace CryptCliC
