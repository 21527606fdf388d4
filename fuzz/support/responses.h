#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// What well-behaved servers answer, and some that are not. Fuzz data chooses among these answers and then
// changes them.
namespace Fuzz {

using Headers = std::vector<std::pair<std::string, std::string>>;

struct CannedResponse {
  std::uint32_t status = 200;
  Headers headers;
  std::string body;
};

/// A request as it concerns the response.
struct Request {
  std::string method;
  std::string url;
  std::string body;
};

/// The type of a request: by the last fixed part of a URL, for a key-server command by its request type, or
/// empty.
std::string StepOf(const Request& request);
/// All types that have a response.
const std::vector<std::string>& GetSteps();

/// The usual answer to a request of the type. Signatures and opened keys are computed from the request.
CannedResponse UsualResponse(const std::string& step, const Request& request);
/// The number of unusual answers of a type; and one of them.
std::uint32_t CountVariants(const std::string& step);
CannedResponse Variant(const std::string& step, std::uint32_t index);

}  // namespace Fuzz
