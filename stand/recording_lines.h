#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "stand/event_log.h"
#include "stand/http.h"

// The lines of a recording; docs/stand-in-tests.md describes them. A change that a reader of version 1 would
// misunderstand needs another version.
namespace CryptStand {

inline constexpr int kRecordingVersion = 1;

/// The line of a start: what the file is, and the addresses that the following exchanges went to.
std::string MakeStartLine(const std::string& service, const std::vector<std::string>& keyServers);

/// Whether a line is that of a start, in a version that this program continues.
bool IsStartLine(const std::string& line);

/// What was sent of a response.
struct SentBody {
  std::string_view bytes;
  bool isWhole = true;
};

std::string MakeExchangeLine(const Event& event, const HttpRequest& request, const HttpReply& reply,
                             const SentBody& sent);

}  // namespace CryptStand
