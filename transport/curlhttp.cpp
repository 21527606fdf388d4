// The public class of the transport. Each call of SendRequest is one CurlExchange; this class adds the
// reference count and turns exceptions into failures, since none may cross the library's boundary.
#include "transport/curlhttp.h"

#include <exception>
#include <new>

#include "foundation/reference.h"
#include "transport/exchange.h"
#include "transport/handle_pool.h"
#include "transport/settings.h"

namespace OruKalvix {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;

namespace {

// The transport that Create() returns. Deletes itself when its last reference is released. Safe for any
// number of threads: settings never change, and the pool has its own lock.
class CurlHttp final : public CryptClientCurl {
 public:
  explicit CurlHttp(const CurlSettings& settings)
      : settings_(settings), pool_(settings.options.maxIdleHandles) {}

  void* QueryInterface(const char*) noexcept override { return nullptr; }

  std::uint32_t AddRef() noexcept override {
    OruGuiBase::Reference::Link(count_);
    return count_.load(std::memory_order_relaxed);
  }

  std::uint32_t Release() noexcept override {
    if (!OruGuiBase::Reference::Unlink(count_)) return 1;
    delete this;
    return 0;
  }

  std::int32_t SendRequest(const AnsiStr& method, const AnsiStr& url, const KVMap& headers,
                           const AnsiStr& body, const HttpOptions& options,
                           HttpResponse& response) noexcept override {
    try {
      return CurlExchange(settings_, pool_).Run(method, url, headers, body, options, response) ? 0 : -1;
    } catch (const std::bad_alloc&) {
      response.errorText = "Out of memory";
    } catch (...) {
      response.errorText = "The request ended in an unknown failure";
    }
    return -1;
  }

 private:
  ~CurlHttp() = default;

  OruGuiBase::Reference::Count count_{1};
  const CurlSettings settings_;
  HandlePool pool_;
};

}  // namespace

CryptClientCurl::Ptr CryptClientCurl::Create(const CryptClientCurlOptions& options,
                                             AnsiStr& errorText) noexcept {
  try {
    CurlSettings settings;
    if (!HandlePool::InitLibrary()) {
      errorText = "Could not initialise libcurl";
    } else if (settings.Init(options, errorText)) {
      return Ptr(new CurlHttp(settings));
    }
  } catch (const std::exception&) {
    errorText = "Out of memory";
  }
  return nullptr;
}

const char* CryptClientCurl::GetLibraryVersions() noexcept {
  return curl_version();
}

}  // namespace OruKalvix
