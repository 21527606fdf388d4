#pragma once

#include <cstdint>

#include "foundation/trace.h"

namespace CryptCli {

/// Prints the library's traces on standard error as long as it exists. One at a time in the process.
class TraceSink final : public OruGuiTrace::ITraceSink {
 public:
  /// 0 shows nothing, 1 request lines and errors, 2 also the bodies of requests and responses, passwords,
  /// tokens and keys included.
  explicit TraceSink(int depth) noexcept;
  TraceSink(const TraceSink&) = delete;
  TraceSink& operator=(const TraceSink&) = delete;
  ~TraceSink();

  void OnTrace(std::uint32_t category, std::uint32_t level, const char* source, std::uint32_t line,
               const char* text) override;

 private:
  const int depth_;
};

}  // namespace CryptCli
