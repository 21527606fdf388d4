#pragma once

#include <ctime>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/kvmap.h"
#include "tests/support/scripted_http.h"

namespace TestSupport {

inline constexpr const char* kServiceUrl = "https://crypt.example/api";
inline constexpr const char* kKeyServerUrl = "https://one.example";
inline constexpr const char* kGroup = "QOB.group-1";
inline constexpr const char* kIntegrityKeyId = "integrity";
inline constexpr const char* kIntegritySubId = "7";
/// The key server's clock, and the same as Unix time.
inline constexpr const char* kServicesDate = "Wed, 15 May 2024 12:00:00 GMT";
inline constexpr std::time_t kServicesTime = 1715774400;

/// A crypt service and a key server that work, with the keys of Pki. A test replaces the response of a step
/// to make it fail.
///
/// Steps are named by the last fixed part of their URL: "key", "certlist", "newkey", "integrity",
/// "authztoken" of the crypt service, "status", "certstore", "truststore" of a key server; a key-server
/// command by its request type ("signRequest").
class ScriptedServices {
 public:
  ScriptedServices();

  /// Replaces the response of a step for good.
  void Set(const std::string& step, CannedResponse response);
  void Set(const std::string& step, Responder responder);
  /// The responses of the step's next requests; those after them get the usual one.
  void Once(const std::string& step, CannedResponse response);
  void Once(const std::string& step, Responder responder);

  /// The steps in the order in which they were asked for.
  std::vector<std::string> GetSteps() const;
  std::vector<RecordedRequest> GetRequests(const std::string& step) const;
  std::size_t Count(const std::string& step) const { return GetRequests(step).size(); }

  /// The usual response of the crypt service to a request for the room's key, to be changed and set again.
  static OruGuiBase::KVMap RoomKeyResponse();
  static OruGuiBase::KVMap RoomCertsResponse();
  /// The usual responses of a key server.
  static CannedResponse Generated();
  static CannedResponse IntegrityKeyResponse();
  static CannedResponse Signed(const RecordedRequest& request);
  static CannedResponse Decrypted(const RecordedRequest& request);

  ScriptedHttp http;

 private:
  CannedResponse Respond(const RecordedRequest& request);

  std::map<std::string, Responder> steps_;
  std::map<std::string, std::deque<Responder>> once_;
};

/// A response with the map as its body.
CannedResponse Json(const OruGuiBase::KVMap& map);
/// A map with one member set to a JSON value.
OruGuiBase::KVMap With(const OruGuiBase::KVMap& map, std::string_view name, std::string_view json);

}  // namespace TestSupport
