// What tests, the page and the control interface read to see which requests a client sent. Front adds an
// event for each request, before its reply is sent.
#include "stand/event_log.h"

#include <algorithm>

namespace CryptStand {
namespace {

std::size_t WeightOf(const Event& event) {
  std::size_t weight = sizeof event + (event.exchange != nullptr ? event.exchange->GetWeight() : 0);
  for (const std::string* text :
       {&event.method, &event.target, &event.operation, &event.outcome, &event.room, &event.peer}) {
    weight += text->size();
  }
  for (const std::string& fault : event.faults) weight += sizeof(std::string) + fault.size();
  return weight;
}

// Lists and followers copy these strings, and a client may send up to 64 KiB of target. The request's headers
// and body stay as they are.
void CutTexts(Event& event) {
  for (std::string* text :
       {&event.method, &event.target, &event.operation, &event.outcome, &event.room, &event.peer}) {
    if (text->size() > EventLog::kMaxText) text->replace(EventLog::kMaxText, std::string::npos, " (cut)");
  }
}

}  // namespace

std::string ServerName(int server) {
  if (server == kProxy) return "proxy";
  return server == kCryptService ? "crypt" : std::to_string(server);
}

bool EventFilter::Matches(const Event& event) const {
  return event.number > after && (!server.has_value() || event.server == *server) &&
         (!operation.has_value() || event.operation == *operation) &&
         (!isGood.has_value() || event.IsGood() == *isGood);
}

std::uint64_t EventLog::Add(Event event) {
  CutTexts(event);
  std::uint64_t number = 0;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    number = event.number = ++count_;
    ++requests_[event.server];
    weight_ += WeightOf(event);
    events_.push_back(std::move(event));
    while (events_.size() > kCapacity || (weight_ > kMaxWeight && events_.size() > 1)) DropFirst();
  }
  news_.notify_all();
  return number;
}

void EventLog::DropFirst() {
  weight_ -= WeightOf(events_.front());
  events_.pop_front();
  ++dropped_;
}

std::vector<Event> EventLog::Get() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return {events_.begin(), events_.end()};
}

// From the end, so that a limit costs no more than the events that it lets through.
EventPage EventLog::Get(const EventFilter& filter) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  EventPage page{{}, count_, dropped_};
  for (auto event = events_.rbegin(); event != events_.rend() && event->number > filter.after; ++event) {
    if (filter.limit != 0 && page.events.size() >= filter.limit) break;
    if (filter.Matches(*event)) page.events.push_back(*event);
  }
  std::reverse(page.events.begin(), page.events.end());
  return page;
}

std::optional<Event> EventLog::Find(std::uint64_t number) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found =
      std::lower_bound(events_.begin(), events_.end(), number,
                       [](const Event& event, std::uint64_t wanted) { return event.number < wanted; });
  return found != events_.end() && found->number == number ? std::optional(*found) : std::nullopt;
}

std::uint64_t EventLog::CountRequests(int server) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = requests_.find(server);
  return found != requests_.end() ? found->second : 0;
}

void EventLog::Clear() {
  const std::lock_guard<std::mutex> lock(mutex_);
  events_.clear();
  weight_ = 0;
  dropped_ = 0;
}

void EventLog::Reset() {
  Clear();
  const std::lock_guard<std::mutex> lock(mutex_);
  requests_.clear();
}

void EventLog::NoteChange() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++changes_;
  }
  news_.notify_all();
}

std::uint64_t EventLog::GetChanges() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return changes_;
}

void EventLog::Wait(std::uint64_t event, std::uint64_t changes, std::chrono::milliseconds patience,
                    const std::stop_token& stop) const {
  std::unique_lock<std::mutex> lock(mutex_);
  news_.wait_for(lock, stop, patience, [&] { return count_ > event || changes_ > changes; });
}

}  // namespace CryptStand
