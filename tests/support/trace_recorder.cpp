#include "tests/support/trace_recorder.h"

#include <string_view>

namespace TestSupport {

std::vector<TraceEvent> TraceRecorder::GetEvents() const {
  const std::lock_guard lock(mutex_);
  return events_;
}

std::vector<std::string> TraceRecorder::GetTexts(std::uint32_t level) const {
  std::vector<std::string> texts;
  for (const TraceEvent& event : GetEvents()) {
    if (event.level == level && event.source == "cryptcli") texts.push_back(event.text);
  }
  return texts;
}

std::vector<std::uint32_t> TraceRecorder::GetInvalidTypes() const {
  constexpr std::string_view kBegin = "Val::ReportInvalidType: read as type ";
  std::vector<std::uint32_t> types;
  for (const TraceEvent& event : GetEvents()) {
    if (event.text.starts_with(kBegin)) {
      types.push_back(static_cast<std::uint32_t>(std::stoul(event.text.substr(kBegin.size()))));
    }
  }
  return types;
}

void TraceRecorder::Clear() {
  const std::lock_guard lock(mutex_);
  events_.clear();
}

void TraceRecorder::OnTrace(std::uint32_t category, std::uint32_t level, const char* source,
                            std::uint32_t line, const char* text) {
  const std::lock_guard lock(mutex_);
  events_.push_back({category, level, source, line, text});
}

}  // namespace TestSupport
