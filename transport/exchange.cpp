// One HTTP exchange with libcurl: sets all options, runs it, repeats it where that is safe. Created by
// CurlHttp for each request and used by one thread. Options are set on a handle without any, so nothing is
// left of an earlier exchange.
#include "transport/exchange.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <exception>
#include <new>
#include <string_view>

#include "foundation/threadobserver.h"
#include "transport/curl_error.h"
#include "transport/sigpipe_guard.h"
#include "transport/tls_context.h"

namespace OruKalvix {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;

namespace {

constexpr std::size_t kMaxHeaderBytes = 256UL * 1024;
// Servers send tens. libcurl walks the whole list for each header that it returns, so reading takes quadratic
// time and the number needs a limit of its own.
constexpr std::size_t kMaxHeaders = 1000;
constexpr long kMaxConnections = 8;     // one handle talks to the crypt service and a few key servers
constexpr long kMaxConnectionAge = 60;  // seconds; servers have often closed older ones
constexpr long kKeepAliveSeconds = 60;  // so that a dead peer is noticed although no timeout is set
constexpr const char* kUserAgent = "cryptcli/" CRYPTCLI_VERSION;

bool UsesOpenSSL() {
  const char* const library = curl_version_info(CURLVERSION_NOW)->ssl_version;
  return library != nullptr && std::string_view(library).starts_with("OpenSSL/");
}

std::int64_t NowMs() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

}  // namespace

CurlExchange::CurlExchange(const CurlSettings& settings, HandlePool& pool) noexcept
    : settings_(settings), sink_(settings.options.maxBody), handle_(nullptr, HandlePool::Returner{&pool}) {}

template <class Value>
void CurlExchange::Set(CURLoption option, Value value) {
  const CURLcode code = curl_easy_setopt(handle_.get(), option, value);
  // The libcurl version that the build requires has every option used here, so only memory can be missing.
  if (code != CURLE_OK) throw std::bad_alloc();
}

bool CurlExchange::Run(const AnsiStr& method, const AnsiStr& url, const KVMap& headers, const AnsiStr& body,
                       const HttpOptions& options, HttpResponse& response) {
  body_ = body;
  if (!Prepare(method, url, headers, response.errorText)) return false;
  // Only now: a request that is wrong in itself costs no handle and no connection.
  handle_ = handle_.get_deleter().pool->Take();
  SetRoute(url);
  SetTrust();
  SetRequest();
  // Before anything is sent: a command that the server has carried out must not fail for a local reason.
  if (!response.targetFile.IsEmpty() && !sink_.OpenFile(response.targetFile)) {
    response.errorText = GetFailure(CURLE_WRITE_ERROR);
    return false;
  }
  const CURLcode code = Perform(options);
  if (code == CURLE_OK && TakeResponse(response)) return true;
  response.errorText = GetFailure(code != CURLE_OK ? code : CURLE_WRITE_ERROR);
  return false;
}

bool CurlExchange::Prepare(const AnsiStr& method, const AnsiStr& url, const KVMap& headers,
                           AnsiStr& errorText) {
  if (!ParseUrl(url, target_, errorText)) return false;
  isPost_ = method == "POST";
  if (!isPost_ && method != "GET") {
    errorText = "Invalid method: only GET and POST are supported";
    return false;
  }
  if (!isPost_ && !body_.IsEmpty()) {
    errorText = "Invalid request: a GET has no body";
    return false;
  }
  // Later headers replace earlier ones of the same name, so this is the order of precedence.
  HeaderList list;
  if (!list.Add(settings_.options.headers, errorText) || !AddCredentials(method, url, list, errorText) ||
      !list.Add(headers, errorText)) {
    return false;
  }
  lines_ = list.MakeLines();
  if (!list.Has("Expect")) AppendLine(lines_, "Expect:");  // or libcurl waits for a 100 before large bodies
  if (isPost_ && !list.Has("Content-Type"))
    AppendLine(lines_, "Content-Type:");  // libcurl would claim a form
  return true;
}

bool CurlExchange::AddCredentials(const AnsiStr& method, const AnsiStr& url, HeaderList& list,
                                  AnsiStr& errorText) const {
  const CredentialCallback& ask = settings_.options.credentials;
  if (!ask || !IsAtOrBelow(settings_.service, target_)) return true;
  KVMap headers;
  AnsiStr reason;
  bool given = false;
  try {
    given = ask(method, url, headers, reason);
  } catch (const std::exception& failure) {
    reason = failure.what();
  }
  if (given) return list.Add(headers, errorText);
  errorText = AnsiStr("Could not get credentials for ") + target_.GetAuthority();
  if (!reason.IsEmpty()) errorText += AnsiStr(": ") + reason;
  return false;
}

void CurlExchange::SetRoute(const AnsiStr& url) {
  const CryptClientCurlOptions& options = settings_.options;
  Set(CURLOPT_ERRORBUFFER, detail_);
  Set(CURLOPT_URL, url.GetText());
  // The path goes out as the caller wrote it: a server may treat dot segments in its own way.
  Set(CURLOPT_PATH_AS_IS, 1L);
  Set(CURLOPT_DISALLOW_USERNAME_IN_URL, 1L);
  Set(CURLOPT_PROTOCOLS_STR, "http,https");
  Set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  // A redirect could send tokens and request bodies to another host.
  Set(CURLOPT_FOLLOWLOCATION, 0L);
  // Set even if empty: otherwise libcurl takes both from the environment.
  Set(CURLOPT_PROXY, options.proxy.GetText());
  Set(CURLOPT_NOPROXY, "");
  Set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  // Otherwise libcurl may use SIGALRM for name resolution, which is not safe with threads.
  Set(CURLOPT_NOSIGNAL, 1L);
  // HTTP/2 would gain nothing: one handle has one exchange at a time, so a connection has one stream.
  Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  Set(CURLOPT_MAXCONNECTS, kMaxConnections);
  Set(CURLOPT_MAXAGE_CONN, kMaxConnectionAge);
  Set(CURLOPT_TCP_KEEPALIVE, 1L);
  Set(CURLOPT_TCP_KEEPIDLE, kKeepAliveSeconds);
  Set(CURLOPT_TCP_KEEPINTVL, kKeepAliveSeconds);
}

// Gives libcurl what was read when the transport was created. Its other TLS libraries do not take all of that
// from memory; with one of them it reads the files at each connection.
void CurlExchange::SetFile(CURLoption path, CURLoption content, const AnsiStr& name, const AnsiStr& bytes) {
  if (!UsesOpenSSL()) {
    Set(path, name.GetText());
    return;
  }
  // The settings outlive the exchange, and the handle is reset at its end: no copy, which nobody would wipe.
  curl_blob blob{const_cast<char*>(bytes.GetText()), bytes.GetLength(),
                 CURL_BLOB_NOCOPY};  // NOLINT(*-const-cast)
  Set(content, &blob);
}

void CurlExchange::SetTrust() {
  const CryptClientCurlOptions& options = settings_.options;
  Set(CURLOPT_SSL_VERIFYPEER, 1L);
  Set(CURLOPT_SSL_VERIFYHOST, 2L);
  Set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  if (PrepareTls(handle_.get()) != CURLE_OK) throw std::bad_alloc();
  const TlsFiles& files = settings_.files;
  if (!options.caFile.IsEmpty()) {
    SetFile(CURLOPT_CAINFO, CURLOPT_CAINFO_BLOB, options.caFile, files.authorities);
    SetFile(CURLOPT_PROXY_CAINFO, CURLOPT_PROXY_CAINFO_BLOB, options.caFile, files.authorities);
    // Otherwise the system's directory would be trusted as well as the file.
    Set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    Set(CURLOPT_PROXY_CAPATH, static_cast<const char*>(nullptr));
  }
  if (options.clientCertificate.IsEmpty()) return;
  SetFile(CURLOPT_SSLCERT, CURLOPT_SSLCERT_BLOB, options.clientCertificate, files.certificates);
  const AnsiStr& keyFile = options.clientKey.IsEmpty() ? options.clientCertificate : options.clientKey;
  SetFile(CURLOPT_SSLKEY, CURLOPT_SSLKEY_BLOB, keyFile, files.key);
  // Set even if empty: without a password the TLS library would ask for one at the terminal.
  Set(CURLOPT_KEYPASSWD, options.clientKeyPassword.GetText());
}

void CurlExchange::SetRequest() {
  Set(CURLOPT_HTTPHEADER, lines_.get());
  Set(CURLOPT_USERAGENT, kUserAgent);
  Set(CURLOPT_HEADERFUNCTION, &CurlExchange::OnHeader);
  Set(CURLOPT_HEADERDATA, static_cast<void*>(this));
  Set(CURLOPT_WRITEFUNCTION, &CurlExchange::OnBody);
  Set(CURLOPT_WRITEDATA, static_cast<void*>(this));
  Set(CURLOPT_XFERINFOFUNCTION, &CurlExchange::OnProgress);
  Set(CURLOPT_NOPROGRESS, 0L);
  if (!isPost_) {
    Set(CURLOPT_HTTPGET, 1L);
    return;
  }
  // The body goes through a callback because libcurl must then call OnSeek before it sends it again, and
  // OnSeek can refuse. With CURLOPT_POSTFIELDS it would repeat every request that a closed connection left
  // without a response, although the server may have carried it out.
  Set(CURLOPT_POST, 1L);
  Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body_.GetLength()));
  Set(CURLOPT_READFUNCTION, &CurlExchange::OnRead);
  Set(CURLOPT_READDATA, static_cast<void*>(this));
  Set(CURLOPT_SEEKFUNCTION, &CurlExchange::OnSeek);
  Set(CURLOPT_SEEKDATA, static_cast<void*>(this));
  // Without a body OnSeek is never called, so only a new connection keeps libcurl from repeating the request.
  if (body_.IsEmpty()) Set(CURLOPT_FRESH_CONNECT, 1L);
}

void CurlExchange::SetTimeouts(const HttpOptions& options, std::int64_t elapsedMs) {
  constexpr std::int64_t kLongest = 0x7FFFFFFF;
  if (options.useTimeouts && options.timeouts[0] != 0) {
    Set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(std::min<std::int64_t>(options.timeouts[0], kLongest)));
  }
  if (options.useTimeouts && options.timeouts[2] != 0) {
    const std::int64_t left = std::max<std::int64_t>(options.timeouts[2] - elapsedMs, 1);
    Set(CURLOPT_TIMEOUT_MS, static_cast<long>(std::min(left, kLongest)));
  }
  if (settings_.options.stallSeconds == 0) return;
  Set(CURLOPT_LOW_SPEED_LIMIT, 1L);
  Set(CURLOPT_LOW_SPEED_TIME,
      static_cast<long>(std::min<std::int64_t>(settings_.options.stallSeconds, kLongest)));
}

CURLcode CurlExchange::Perform(const HttpOptions& options) {
  const SigPipeGuard guard;  // with CURLOPT_NOSIGNAL libcurl does not keep SIGPIPE away
  const std::int64_t start = NowMs();
  SetTimeouts(options, 0);
  ForgetHandshakes();
  CURLcode code = curl_easy_perform(handle_.get());
  if (!MayRepeat(code)) return code;
  bodyRead_ = 0;
  headerBytes_ = 0;
  headers_ = 0;
  refusedRewind_ = false;
  // The caller's limit is for the whole exchange, so the second attempt gets the rest of the time.
  SetTimeouts(options, NowMs() - start);
  Set(CURLOPT_FRESH_CONNECT, 1L);
  return curl_easy_perform(handle_.get());
}

// libcurl repeats a GET by itself in most of these cases; this covers the others.
bool CurlExchange::MayRepeat(CURLcode code) const {
  const bool broken = code == CURLE_SEND_ERROR || code == CURLE_RECV_ERROR || code == CURLE_GOT_NOTHING ||
                      code == CURLE_SEND_FAIL_REWIND;
  // Without a new connection the attempt used a kept one, which the server may have closed while it was idle.
  // On a new connection the same error is a real failure.
  long connects = 0;
  curl_easy_getinfo(handle_.get(), CURLINFO_NUM_CONNECTS, &connects);
  return broken && connects == 0 && headerBytes_ == 0 && !(isPost_ && WasSentWhole());
}

bool CurlExchange::WasSentWhole() const {
  curl_off_t sent = 0;
  curl_easy_getinfo(handle_.get(), CURLINFO_SIZE_UPLOAD_T, &sent);
  return sent >= static_cast<curl_off_t>(body_.GetLength());
}

bool CurlExchange::TakeResponse(HttpResponse& response) {
  // libcurl reports success when the connection closes in the middle of the headers.
  if (!headEnded_) headError_ = "its headers are cut short";
  if (!headEnded_ || !sink_.Finish()) return false;
  long status = 0;
  curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &status);
  KVMap headers;
  curl_header* header = nullptr;
  while ((header = curl_easy_nextheader(handle_.get(), CURLH_HEADER, -1, header)) != nullptr) {
    if (!headers.Set(header->name, header->value)) throw std::bad_alloc();
  }
  response.status = static_cast<std::uint32_t>(status);
  response.headers = headers;
  response.body = sink_.TakeBody();
  return true;
}

AnsiStr CurlExchange::GetFailure(CURLcode code) const {
  CurlFailure failure;
  failure.handle = handle_.get();
  failure.code = code;
  failure.detail = detail_;
  failure.authority = target_.GetAuthority();
  failure.sinkError = sink_.GetError().IsEmpty() ? headError_ : sink_.GetError();
  failure.viaProxy = !settings_.options.proxy.IsEmpty();
  failure.hasClientCertificate = !settings_.options.clientCertificate.IsEmpty();
  failure.wasCertificateRequested = WasCertificateRequested();
  failure.clientRefusal = GetClientRefusal();
  failure.mayBeCarriedOut = refusedRewind_;
  return DescribeFailure(failure);
}

std::size_t CurlExchange::OnRead(char* buffer, std::size_t one, std::size_t size, void* self) noexcept {
  CurlExchange& exchange = *static_cast<CurlExchange*>(self);
  const std::size_t left = exchange.body_.GetLength() - exchange.bodyRead_;
  const std::size_t count = std::min(one * size, left);
  std::memcpy(buffer, exchange.body_.GetText() + exchange.bodyRead_, count);
  exchange.bodyRead_ += static_cast<std::uint32_t>(count);
  return count;
}

int CurlExchange::OnSeek(void* self, curl_off_t offset, int origin) noexcept {
  // Only a body that was not read to its end may start again: the server cannot have all of it.
  CurlExchange& exchange = *static_cast<CurlExchange*>(self);
  if (offset != 0 || origin != SEEK_SET || exchange.bodyRead_ >= exchange.body_.GetLength()) {
    exchange.refusedRewind_ = true;
    return CURL_SEEKFUNC_FAIL;
  }
  exchange.bodyRead_ = 0;
  return CURL_SEEKFUNC_OK;
}

std::size_t CurlExchange::OnHeader(char* data, std::size_t one, std::size_t size, void* self) noexcept {
  CurlExchange& exchange = *static_cast<CurlExchange*>(self);
  const std::string_view line(data, one * size);
  exchange.headerBytes_ += line.size();
  // Interim responses come first and have a status line of their own (RFC 9110, 15.2); their headers count
  // too.
  const bool isFirst = line.starts_with("HTTP/");
  const bool isEnd = line == "\r\n" || line == "\n";
  if (isFirst) exchange.headEnded_ = false;
  if (isEnd) exchange.headEnded_ = true;
  if (!isFirst && !isEnd && ++exchange.headers_ > kMaxHeaders) {
    exchange.headError_ = "its headers are more than 1000";
  } else if (exchange.headerBytes_ > kMaxHeaderBytes) {
    exchange.headError_ = "its headers are longer than 262144 bytes";
  } else {
    return one * size;
  }
  return 0;
}

// Called about once a second even when nothing moves.
int CurlExchange::OnProgress(void*, curl_off_t, curl_off_t, curl_off_t, curl_off_t) noexcept {
  OruGuiBase::IThreadObserver* const observer = OruGuiBase::GetThreadObserver();
  return observer != nullptr && observer->IsCancelled() ? 1 : 0;
}

std::size_t CurlExchange::OnBody(char* data, std::size_t one, std::size_t size, void* self) noexcept {
  return static_cast<CurlExchange*>(self)->sink_.Put(data, one * size) ? one * size : 0;
}

}  // namespace OruKalvix
