#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "foundation/trace.h"

namespace TestSupport {

/// The arguments of one call of OnTrace.
struct TraceEvent {
  std::uint32_t category = 0;
  std::uint32_t level = 0;
  std::string source;
  std::uint32_t line = 0;
  std::string text;
};

/// Records all traces of the process while it lives. One at a time.
class TraceRecorder final : public OruGuiTrace::ITraceSink {
 public:
  TraceRecorder() { OruGuiTrace::SetTraceSink(this, 0); }
  ~TraceRecorder() { OruGuiTrace::SetTraceSink(nullptr, 0); }
  TraceRecorder(const TraceRecorder&) = delete;
  TraceRecorder& operator=(const TraceRecorder&) = delete;

  std::vector<TraceEvent> GetEvents() const;
  /// The messages of a level, in order, only those of the source "cryptcli".
  std::vector<std::string> GetTexts(std::uint32_t level) const;
  /// The types as which values of another type were read, in the order of the reports.
  std::vector<std::uint32_t> GetInvalidTypes() const;
  void Clear();

  void OnTrace(std::uint32_t category, std::uint32_t level, const char* source, std::uint32_t line,
               const char* text) override;

 private:
  mutable std::mutex mutex_;
  std::vector<TraceEvent> events_;
};

}  // namespace TestSupport
