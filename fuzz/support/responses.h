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

struct HttpAnswer {
  std::uint32_t status = 200;
  Headers headers;
  std::string body;
};

/// A request as it concerns the answer.
struct Request {
  std::string method;
  std::string url;
  std::string body;
};

/// The kind of a request: by the last fixed part of a URL, for a key-server command by its request type, or
/// empty.
std::string StepOf(const Request& request);
/// All kinds that have an answer.
const std::vector<std::string>& GetSteps();

/// The usual answer to a request of the kind. Signatures and opened keys are computed from the request.
HttpAnswer UsualAnswer(const std::string& step, const Request& request);
/// The number of unusual answers of a kind; and one of them.
std::uint32_t CountVariants(const std::string& step);
HttpAnswer Variant(const std::string& step, std::uint32_t index);

}  // namespace Fuzz
