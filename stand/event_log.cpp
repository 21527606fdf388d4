// What tests read to see which requests a client sent. Front adds an event for each.
#include "stand/event_log.h"

namespace CryptStand {

void EventLog::Add(Event event) {
  const std::lock_guard<std::mutex> lock(mutex_);
  event.number = ++count_;
  if (events_.size() >= kCapacity) events_.pop_front();
  events_.push_back(std::move(event));
}

std::vector<Event> EventLog::Get() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return {events_.begin(), events_.end()};
}

void EventLog::Clear() {
  const std::lock_guard<std::mutex> lock(mutex_);
  events_.clear();
}

}  // namespace CryptStand
