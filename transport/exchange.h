#pragma once

#include <cstddef>
#include <cstdint>
#include <curl/curl.h>
#include <memory>

#include "exchange/icryptclienthttp.h"
#include "transport/body_sink.h"
#include "transport/handle_pool.h"
#include "transport/header_list.h"
#include "transport/settings.h"

namespace OruKalvix {

/// One request and its response on one handle from the pool. Lives for one call of SendRequest, on one
/// thread; `settings` and `pool` must outlive it.
class CurlExchange {
 public:
  CurlExchange(const CurlSettings& settings, HandlePool& pool) noexcept;
  CurlExchange(const CurlExchange&) = delete;
  CurlExchange& operator=(const CurlExchange&) = delete;
  ~CurlExchange() = default;

  /// Carries the exchange out and fills the response. False with the reason in `response.errorText`.
  bool Run(const OruGuiBase::AnsiStr& method, const OruGuiBase::AnsiStr& url,
           const OruGuiBase::KVMap& headers, const OruGuiBase::AnsiStr& body, const HttpOptions& options,
           HttpResponse& response);

 private:
  bool Prepare(const OruGuiBase::AnsiStr& method, const OruGuiBase::AnsiStr& url,
               const OruGuiBase::KVMap& headers, OruGuiBase::AnsiStr& errorText);
  bool AddCredentials(const OruGuiBase::AnsiStr& method, const OruGuiBase::AnsiStr& url, HeaderList& list,
                      OruGuiBase::AnsiStr& errorText) const;
  void SetRoute(const OruGuiBase::AnsiStr& url);
  void SetTrust();
  void SetFile(CURLoption path, CURLoption content, const OruGuiBase::AnsiStr& name,
               const OruGuiBase::AnsiStr& bytes);
  void SetRequest();
  void SetTimeouts(const HttpOptions& options, std::int64_t elapsedMs);
  CURLcode Perform(const HttpOptions& options);
  bool MayRepeat(CURLcode code) const;
  bool WasSentWhole() const;
  bool TakeResponse(HttpResponse& response);
  OruGuiBase::AnsiStr GetFailure(CURLcode code) const;

  static std::size_t OnRead(char* buffer, std::size_t one, std::size_t size, void* self) noexcept;
  static int OnSeek(void* self, curl_off_t offset, int origin) noexcept;
  static std::size_t OnHeader(char* data, std::size_t one, std::size_t size, void* self) noexcept;
  static int OnProgress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) noexcept;
  static std::size_t OnBody(char* data, std::size_t one, std::size_t size, void* self) noexcept;

  template <class Value>
  void Set(CURLoption option, Value value);

  const CurlSettings& settings_;
  BodySink sink_;
  SlistPtr lines_;
  UrlParts target_;
  bool isPost_ = false;
  OruGuiBase::AnsiStr body_;
  std::uint32_t bodyRead_ = 0;
  std::size_t headerBytes_ = 0;
  std::size_t headers_ = 0;  // lines of interim responses and trailers among them
  bool headEnded_ = false;
  bool refusedRewind_ = false;
  OruGuiBase::AnsiStr headError_;
  char detail_[CURL_ERROR_SIZE] = {};
  HandlePool::Lease handle_;  // last, so that it is reset before the members that its options point to
};

}  // namespace OruKalvix
