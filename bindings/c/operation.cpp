// What surrounds an operation of the class. Called by files.cpp and perform.cpp, for each operation.
//
// The class reports a bool and a message. Everything else that a caller wants to know is read on the way:
// facts.cpp reads it from responses and traces, and here the reason of each failed attempt is taken from the
// traces.
#include "bindings/c/operation.h"

#include <algorithm>

#include "bindings/c/headers.h"
#include "bindings/c/observer_pause.h"
#include "bindings/c/text.h"
#include "foundation/json.h"
#include "foundation/val.h"

namespace CryptCliC {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using OruGuiBase::Val;
using OruGuiBase::ValType;
using OruKalvix::HttpOptions;
using OruKalvix::HttpResponse;

namespace {

// The class's levels of traces.
constexpr std::uint32_t kRequestTrace = 1;
constexpr std::uint32_t kDetailTrace = 2;
constexpr std::uint32_t kErrorTrace = 4;

constexpr std::uint32_t kStatusOk = 200;
constexpr std::uint32_t kStatusConflict = 409;
constexpr std::string_view kUploadPath = "newkey/";

// "https://server:port" of a URL.
std::string_view OriginOf(std::string_view url) {
  const std::size_t scheme = url.find("://");
  const std::size_t start = scheme == std::string_view::npos ? 0 : scheme + 3;
  return url.substr(0, std::min(url.find('/', start), url.size()));
}

// The class appends "status" or "rest/..." to the base URL of a key server.
std::string_view KeyServerOf(std::string_view url) {
  url = url.substr(0, url.find('?'));
  const std::size_t command = url.rfind("/rest/");
  return url.substr(0, command != std::string_view::npos ? command : url.rfind('/'));
}

std::string_view WithoutQuery(std::string_view url) {
  return url.substr(0, url.find('?'));
}

bool IsBody(std::string_view trace) {
  return trace.starts_with("CryptClient::HttpPost: request[") ||
         trace.starts_with("CryptClient::ParseResponseJSON: response[");
}

}  // namespace

Operation::Operation(const cryptcli_client& client, cryptcli_call* call)
    : client_(client), call_(call), before_(OruGuiBase::SetThreadObserver(this)) {}

Operation::~Operation() {
  OruGuiBase::SetThreadObserver(before_);
}

void Operation::StartProgress(std::uint64_t size, unsigned passes) {
  size_ = size;
  passes_ = passes;
  read_ = 0;
}

void Operation::FinishProgress() {
  if (call_ == nullptr || call_->progress == nullptr) return;
  const ObserverPause pause;
  call_->progress(call_->progressContext, size_, size_);
}

void Operation::StartOver() {
  facts_.StartOver();
  latest_ = Exchange();
  attempts_.clear();
  isAttemptOpen_ = false;
  read_ = 0;
}

bool Operation::HasLostUpload() const {
  return latest_.failed && ClassifyExchange(GetFailedExchange()) == CRYPTCLI_CONFLICT;
}

bool Operation::TakeCancelled() {
  const bool cancelled = IsCancelled();
  if (cancelled && call_ != nullptr) call_->cancelled.store(false, std::memory_order_relaxed);
  return cancelled;
}

bool Operation::IsCancelled() noexcept {
  return cancelled_ || (call_ != nullptr && call_->cancelled.load(std::memory_order_relaxed));
}

FailedExchange Operation::GetFailedExchange() const {
  return {.happened = latest_.failed,
          .hasResponse = latest_.hasResponse,
          .isCryptService = latest_.isCryptService,
          .status = latest_.status,
          .reason = latest_.reason,
          .isKeyUpload = latest_.isKeyUpload,
          .failure = latest_.failure};
}

cryptcli_status Operation::GetCode(std::string_view message) const {
  if (GetFacts().isRoomDenied) return CRYPTCLI_UNKNOWN_ROOM;
  if (GetFacts().isKeyRefused) return CRYPTCLI_KEY_REFUSED;
  // The class takes members that are missing for a key that the service does not have.
  if (GetFacts().isNoKeyResponse && message == "Could not find matching room key")
    return CRYPTCLI_SERVER_ERROR;
  return Classify(message, GetFailedExchange());
}

bool Operation::IsWorthRetrying(cryptcli_status code, std::string_view message) const {
  return IsRetryable(code, message, GetFailedExchange());
}

Failure Operation::MakeFailure(std::string_view message) {
  Failure failure;
  failure.message = message;
  failure.code = GetCode(message);
  if (TakeCancelled()) failure.code = CRYPTCLI_CANCELLED;
  failure.retryable = IsWorthRetrying(failure.code, message);
  if (latest_.failed || GetFacts().isKeyRefused || GetFacts().isRoomDenied) {
    failure.httpStatus = latest_.status;
    failure.url = WithoutQuery(latest_.url);
  }
  failure.attempts = attempts_;
  return failure;
}

std::int32_t Operation::SendRequest(const AnsiStr& method, const AnsiStr& url, const KVMap& headers,
                                    const AnsiStr& body, const HttpOptions& options, HttpResponse& response) {
  isAttemptOpen_ = false;
  const Place place = Locate(url);
  if (place.path.starts_with(kKeyPath)) keyRequest_ = {method, url, headers, body, options};
  const bool isKeyThere = place.path.starts_with(kUploadPath) && !IsCancelled() && IsKeyThere();
  // Checked after that request too, since it can take long: a cancelled operation uploads no key.
  if (IsCancelled()) {
    response.errorText = "The operation was cancelled";
    Record(url, place, /*hasResponse=*/false, response, CRYPTCLI_CANCELLED);
    return -1;
  }
  if (isKeyThere) {
    response.status = kStatusConflict;
    Record(url, place, /*hasResponse=*/true, response, CRYPTCLI_OK);
    return 0;
  }
  cryptcli_status failure = CRYPTCLI_UNREACHABLE;
  const std::int32_t result = Forward({method, url, headers, body, options}, place, response, failure);
  Record(url, place, result >= 0, response, failure);
  return result;
}

// Asks for the room's key once more before the upload of a new one. The crypt service accepts a key that
// carries the number of the latest list of members, even if another client's key came before that list. A key
// that comes after the list makes the number stale, and an earlier one is found here. A certificate that the
// service showed to this operation before is not another client's: it belongs to the unusable key that is
// being replaced.
bool Operation::IsKeyThere() {
  HttpResponse response;
  cryptcli_status failure = CRYPTCLI_UNREACHABLE;
  if (keyRequest_.url.IsEmpty() || Forward(keyRequest_, Locate(keyRequest_.url), response, failure) < 0)
    return false;
  Val value;
  AnsiStr error;
  if (response.status != kStatusOk || !OruGuiBase::JSON2Val(response.body, value, error) ||
      value.GetType() != ValType::Map)
    return false;
  const std::string certificate = MemberOf(value.AsMap(), "certificate");
  return !certificate.empty() && certificate != facts_.GetShownCertificate();
}

std::int32_t Operation::Forward(const Request& request, const Place& place, HttpResponse& response,
                                cryptcli_status& failure) {
  const auto& [method, url, headers, body, options] = request;
  // The probe of a key server has a time limit of its own, which holds if it is the shorter one.
  HttpOptions limited = options;
  const std::uint32_t own = options.useTimeouts ? options.timeouts[2] : 0;
  limited.useTimeouts = true;
  limited.timeouts[2] = own != 0 ? std::min(own, client_.options.timeout) : client_.options.timeout;
  limited.timeouts[0] = std::min(client_.options.connectTimeout, limited.timeouts[2]);
  limited.timeouts[1] = limited.timeouts[2];
  KVMap all = headers;
  const bool isOurs = client_.callback != nullptr && place.isCryptService;
  const KVMap ours = isOurs ? client_.options.serviceHeaders : KVMap();
  for (const auto& [name, value] : ours) {
    if (!HasHeader(headers, name)) all.Put(name, value);
  }
  if (client_.callback == nullptr) {
    return client_.curl->SendRequest(method, url, all, body, limited, response);
  }
  const std::int32_t result =
      client_.callback->SendRequest(method, url, all, body, limited, response, failure);
  // Remembered, since the class would go on with the next key server, or with the upload of a key.
  if (result < 0 && failure == CRYPTCLI_CANCELLED) cancelled_ = true;
  return result;
}

// Called once for each request, because splitting a URL costs more than all else that is done here. The class
// appends each path to the service's URL as the options spell it.
Operation::Place Operation::Locate(const AnsiStr& url) const {
  Place place;
  place.isCryptService = client_.IsAtService(url);
  std::string_view path = url.View();
  if (!place.isCryptService || !TakePrefix(path, client_.options.service)) return place;
  while (TakePrefix(path, "/")) {
  }
  if (TakePrefix(path, "crypt/")) place.path = path;
  return place;
}

void Operation::Record(const AnsiStr& url, const Place& place, bool hasResponse, const HttpResponse& response,
                       cryptcli_status failure) {
  latest_.url = ToString(url);
  latest_.isCryptService = place.isCryptService;
  latest_.hasResponse = hasResponse;
  latest_.status = hasResponse ? response.status : 0;
  latest_.failed = !hasResponse || response.status != kStatusOk;
  latest_.reason = hasResponse ? std::string() : ToString(response.errorText);
  latest_.failure = failure;
  isAttemptOpen_ = !latest_.isCryptService;
  latest_.isKeyUpload = place.path.starts_with(kUploadPath);
  if (!place.path.empty() && !latest_.failed) facts_.TakeResponse(place.path, response.body);
}

std::uint32_t Operation::GetTraceLevel() const noexcept {
  if (client_.options.logLevel >= CRYPTCLI_LOG_REQUEST) return kRequestTrace;
  return watchesSigners_ ? kDetailTrace : kErrorTrace;
}

// Only the log uses bodies; facts are taken from the responses themselves. Without a log that reveals
// secrets, the class would format every body for nothing, and copy secrets that nobody asked for.
bool Operation::WantsBodies() const noexcept {
  return client_.options.logLevel >= CRYPTCLI_LOG_DEBUG && client_.options.revealSecrets;
}

void Operation::OnTrace(std::uint32_t, std::uint32_t level, const char*, std::uint32_t,
                        const char* text) noexcept {
  try {
    if (level == kDetailTrace) facts_.TakeTrace(text);
    if (level == kErrorTrace) TakeError(text);
    Log(level, text);
  } catch (...) {
    // A fact is missing now. The next one could be taken for it, such as the room of another signer.
    facts_.MarkIncomplete();
  }
}

// The first error after an exchange with a key server is the reason why the class goes on to the next server.
// No trace says whether it does go on. An error that no server caused is left out.
void Operation::TakeError(std::string_view text) {
  if (!isAttemptOpen_ || !TakePrefix(text, "CryptClient: Error: ")) return;
  // A warning about the other servers, once this one has given its part.
  if (text.starts_with("Could not get audit log from all key servers: ")) return;
  isAttemptOpen_ = false;
  const cryptcli_status code = Classify(text, GetFailedExchange());
  const bool isServers = code == CRYPTCLI_UNREACHABLE || code == CRYPTCLI_TIMEOUT ||
                         code == CRYPTCLI_UNAUTHORISED || code == CRYPTCLI_SERVER_ERROR;
  if (!latest_.failed && !isServers) return;
  // An operation can go through the list several times. The latest reason of a server says how it is now.
  const std::string base(KeyServerOf(latest_.url));
  std::erase_if(attempts_, [&](const Attempt& attempt) { return attempt.base == base; });
  Attempt attempt{.server = std::string(OriginOf(latest_.url)),
                  .code = latest_.failed ? ClassifyExchange(GetFailedExchange()) : code,
                  .message = std::string(text),
                  .base = base};
  attempt.retryable = IsWorthRetrying(attempt.code, text);
  if (latest_.failed) {
    attempt.httpStatus = latest_.status;
    attempt.url = WithoutQuery(latest_.url);
  }
  attempts_.push_back(std::move(attempt));
}

void Operation::Log(std::uint32_t level, std::string_view text) const {
  const cryptcli_options& options = client_.options;
  const cryptcli_log_level wanted = level >= kErrorTrace     ? CRYPTCLI_LOG_ERROR
                                    : level == kRequestTrace ? CRYPTCLI_LOG_REQUEST
                                                             : CRYPTCLI_LOG_DEBUG;
  if (options.log == nullptr || wanted > options.logLevel) return;
  // Bodies are traced nevertheless while a trace sink of the process asks for them.
  if (!options.revealSecrets && IsBody(text)) return;
  const std::string message = MakeUtf8(text);
  const ObserverPause pause;
  options.log(options.logContext, wanted, message.c_str());
}

void Operation::OnRead(std::uint64_t bytes) noexcept {
  if (call_ == nullptr || call_->progress == nullptr || passes_ == 0 || cancelled_) return;
  read_ += bytes;
  // The passes read a few more bytes than `size_` each, such as the ends of messages.
  const std::uint64_t done = std::min(read_ / passes_, size_);
  const ObserverPause pause;
  if (call_->progress(call_->progressContext, done, size_) == 0) cancelled_ = true;
}

const char* Operation::GetTemporaryDirectory() const noexcept {
  const std::string& directory = client_.options.temporaryDirectory;
  return directory.empty() ? nullptr : directory.c_str();
}

}  // namespace CryptCliC
