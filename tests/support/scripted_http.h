#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "exchange/icryptclienthttp.h"

namespace TestSupport {

using Headers = std::vector<std::pair<std::string, std::string>>;

/// What the client asked of the transport, as it was at the time of the call.
struct RecordedRequest {
  std::string method;
  std::string url;
  Headers headers;
  std::string body;
  OruKalvix::HttpOptions options;
  std::string targetFile;
};

/// The outcome of one exchange, as the test wants it.
struct CannedResponse {
  std::int32_t result = 0;  ///< negative: no exchange took place, and `errorText` says why
  std::string errorText;
  std::uint32_t status = 200;
  Headers headers;
  std::string body;  ///< goes to the target file when the request names one
};

/// Responses of the common types.
CannedResponse Json(std::string body);
CannedResponse Status(std::uint32_t status, std::string body = "");
CannedResponse NoExchange(std::string errorText);
/// Status 200 with a "Date" header of the value.
CannedResponse DateResponse(std::string date);

using Responder = std::function<CannedResponse(const RecordedRequest&)>;

/// A transport with canned responses.
///
/// A request takes the next response of the line (Then). When the line is empty it takes the first rule whose
/// method and URL part fit (On); such a rule serves any number of requests. A request without a response
/// fails the test and the exchange. So does, at the end of the object, a response of the line that nobody
/// asked for.
class ScriptedHttp final : public OruKalvix::ICryptClientHttp {
 public:
  ScriptedHttp() = default;
  ScriptedHttp(const ScriptedHttp&) = delete;
  ScriptedHttp& operator=(const ScriptedHttp&) = delete;
  ~ScriptedHttp();

  /// Adds to the end of the line.
  ScriptedHttp& Then(CannedResponse response);
  ScriptedHttp& Then(Responder responder);
  /// Adds a rule; an empty method or part fits everything.
  ScriptedHttp& On(std::string method, std::string urlPart, CannedResponse response);
  ScriptedHttp& On(std::string method, std::string urlPart, Responder responder);

  std::vector<RecordedRequest> GetRequests() const;
  /// The request at an index; fails the test when there were fewer.
  RecordedRequest GetRequest(std::size_t index) const;
  std::size_t GetRequestCount() const;
  /// "METHOD url" of each request without its query, to compare the order of requests.
  std::vector<std::string> GetLines() const;

  std::uint32_t GetAddRefs() const { return addRefs_; }
  std::uint32_t GetReleases() const { return releases_; }
  std::uint32_t GetQueries() const { return queries_; }

  void* QueryInterface(const char* name) override;
  std::uint32_t AddRef() override;
  std::uint32_t Release() override;
  std::int32_t SendRequest(const OruGuiBase::AnsiStr& method, const OruGuiBase::AnsiStr& url,
                           const OruGuiBase::KVMap& headers, const OruGuiBase::AnsiStr& body,
                           const OruKalvix::HttpOptions& options, OruKalvix::HttpResponse& response) override;

 private:
  struct Rule {
    std::string method;
    std::string urlPart;
    Responder responder;
  };

  Responder TakeResponder(const RecordedRequest& request);

  mutable std::mutex mutex_;
  std::deque<Responder> line_;
  std::vector<Rule> rules_;
  std::vector<RecordedRequest> requests_;
  std::atomic<std::uint32_t> addRefs_{0};
  std::atomic<std::uint32_t> releases_{0};
  std::atomic<std::uint32_t> queries_{0};
};

/// The value of a request header, or "(none)".
std::string HeaderOf(const RecordedRequest& request, const std::string& name);

}  // namespace TestSupport
