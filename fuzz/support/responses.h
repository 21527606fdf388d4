#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Responses of well-behaved servers, and of some that are not. Fuzz data chooses among them and then changes
// them.
namespace Fuzz {

using Headers = std::vector<std::pair<std::string, std::string>>;

/// What a server sends: a plain value that HostileHttp may change before it delivers it.
struct CannedResponse {
  std::uint32_t status = 200;
  Headers headers;
  std::string body;
};

/// The parts of a request that the response depends on.
struct Request {
  std::string method;
  std::string url;
  std::string body;
};

/// The step that a request belongs to: the last fixed part of its URL, the request type of a key-server
/// command, or empty.
std::string StepOf(const Request& request);
/// All steps that have a response.
const std::vector<std::string>& GetSteps();

/// The usual response to a request of the step. Signatures and decrypted keys are computed from the request.
CannedResponse UsualResponse(const std::string& step, const Request& request);
/// The number of unusual responses of a step, and one of them.
std::uint32_t CountVariants(const std::string& step);
CannedResponse Variant(const std::string& step, std::uint32_t index);

}  // namespace Fuzz
