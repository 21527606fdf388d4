#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "stand/http.h"

namespace CryptStand {

/// One side of an exchange as the event log keeps it.
struct RecordedMessage {
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;  ///< The first bytes of the body, at most kMaxRecordedBody.
  std::size_t size =
      0;  ///< Bytes of the whole body; of a streamed body that is too long, of the recorded part.
  bool isTruncated = false;
};

/// A request with its response. Nothing in it is hidden: whoever shows it removes secrets.
struct RecordedExchange {
  RecordedMessage request;
  RecordedMessage response;

  /// Bytes that it occupies, roughly.
  std::size_t GetWeight() const;
};

/// Larger bodies are truncated in the log. A wrapped key or a list has some kilobytes; only audit logs and
/// the bodies of faults are larger.
inline constexpr std::size_t kMaxRecordedBody = 256U << 10U;

/// Copies what is worth keeping. A streamed body is opened once more and read up to the limit.
RecordedExchange RecordExchange(const HttpRequest& request, const HttpReply& reply);

}  // namespace CryptStand
