// Server-sent events (WHATWG HTML, 9.2): a body without end that grows with each event. The thread of the
// follower's connection waits for news, so followers delay nobody else; one that does not read ends by the
// server's transfer timeout.
#include "stand/control_follow.h"

#include <algorithm>
#include <charconv>
#include <memory>
#include <utility>

#include "stand/control_events.h"

namespace CryptStand {
namespace {

// Keeps connections open that something in between would close for silence.
constexpr std::chrono::seconds kHeartbeat{15};
// A follower that comes back after a long time gets the rest in the next chunk.
constexpr std::size_t kMaxEventsInChunk = 500;
constexpr const char* kRetry = "retry: 1000\n\n";  // milliseconds until a browser connects again

std::string StateText() {
  return "event: state\ndata: {}\n\n";
}

std::string ExchangeText(const Event& event) {
  return "id: " + std::to_string(event.number) +
         "\nevent: exchange\ndata: " + WriteObject(EventObject(event)) + "\n\n";
}

// One follower: what it has seen, and where the next news comes from. The log outlives it, since the
// connection ends before the environment does.
class Follower {
 public:
  Follower(const EventLog& log, std::stop_token stop, std::uint64_t seen)
      : log_(log), stop_(std::move(stop)), seen_(seen), changes_(log.GetChanges()) {}

  // An empty string ends the body: the server goes down.
  std::string Next() {
    if (std::exchange(isFirst_, false)) return kRetry;
    log_.Wait(seen_, changes_, kHeartbeat, stop_);
    if (stop_.stop_requested()) return {};
    std::string news;
    const std::uint64_t changes = log_.GetChanges();
    if (std::exchange(changes_, changes) != changes) news += StateText();
    news += ReadEvents();
    return news.empty() ? ": still here\n\n" : news;
  }

 private:
  // Counts events as seen that were cleared or dropped in the meantime: there is no use in waiting for them.
  std::string ReadEvents() {
    const EventPage page = log_.Get({.after = seen_});
    std::string news;
    std::size_t count = 0;
    for (const Event& event : page.events) {
      if (++count > kMaxEventsInChunk) return news;
      news += ExchangeText(event);
      seen_ = event.number;
    }
    seen_ = page.last;
    return news;
  }

  const EventLog& log_;
  const std::stop_token stop_;
  std::uint64_t seen_;
  std::uint64_t changes_;
  bool isFirst_ = true;
};

// The number after which a browser wants to go on. One from before a restart of the program says nothing
// about the events of this run, so all of them are new.
std::optional<std::uint64_t> ReadLastId(const HttpRequest& request, std::uint64_t last) {
  const auto values = request.HeaderValues("Last-Event-ID");
  if (values.size() != 1) return std::nullopt;
  std::uint64_t id = 0;
  const std::string& text = values.front();
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
  const bool isId = error == std::errc() && end == text.data() + text.size();
  return isId && id <= last ? id : 0;
}

}  // namespace

HttpReply FollowEvents(ControlCall& call) {
  const EventLog& log = call.GetRealm().log;
  const std::uint64_t last = log.Get({.limit = 1}).last;
  const auto after = static_cast<std::uint64_t>(call.input.ReadWhole(
      "after", 0, std::numeric_limits<std::int64_t>::max(), static_cast<std::int64_t>(last)));
  if (call.input.GetError().has_value()) return ErrorReply(*call.input.GetError());
  const std::uint64_t seen = ReadLastId(call.request, last).value_or(std::min(after, last));
  HttpReply reply;
  reply.contentType = "text/event-stream";
  reply.openBody = [&log, stop = call.stop, seen]() -> BodySource {
    return [follower = std::make_shared<Follower>(log, stop, seen)] { return follower->Next(); };
  };
  return reply;
}

}  // namespace CryptStand
