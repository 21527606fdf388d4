#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "foundation/trace.h"

namespace OruGuiBase {

/// The trace sink of the process while it lives; keeps all events. For one thread.
class RecordingSink final : public OruGuiTrace::ITraceSink {
 public:
  /// The arguments of one call of OnTrace.
  struct Event {
    std::uint32_t category;
    std::uint32_t level;
    std::string source;
    std::uint32_t line;
    std::string text;
  };

  explicit RecordingSink(std::uint32_t leastLevel) { OruGuiTrace::SetTraceSink(this, leastLevel); }
  RecordingSink(const RecordingSink&) = delete;
  RecordingSink& operator=(const RecordingSink&) = delete;
  ~RecordingSink() { OruGuiTrace::SetTraceSink(nullptr, 0); }

  void OnTrace(std::uint32_t category, std::uint32_t level, const char* source, std::uint32_t line,
               const char* text) override {
    events.push_back({category, level, source, line, text});
  }

  std::vector<Event> events;
};

}  // namespace OruGuiBase
