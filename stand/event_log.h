#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "stand/recorded_exchange.h"

namespace CryptStand {

/// The crypt service, wherever key servers are named by their index.
inline constexpr int kCryptService = -1;
/// The forward proxy, likewise; only some environments have one.
inline constexpr int kProxy = -2;
/// "crypt", "proxy", or the index of a key server, as requests, replies and recordings name it.
std::string ServerName(int server);

/// One request to a server, with its result.
struct Event {
  std::uint64_t number = 0;  ///< Counts all requests from 1.
  int server = kCryptService;
  std::string method{};
  std::string target{};     ///< Path and query, escaped as they came.
  std::string operation{};  ///< Resource of the crypt service, "status", a list, or a request type name.
  int status = 0;           ///< HTTP status.
  std::string outcome{};    ///< "ok", or the reason of the refusal; with " (fault)" if a fault was applied.
  /// When the request was complete, and how long the server took to have its reply, faults included.
  std::chrono::system_clock::time_point time{};
  double durationMs = 0;
  std::string room{};                 ///< The room that the request is about; empty for none.
  std::vector<std::string> faults{};  ///< Names of the faults that were applied.
  std::string peer{};                 ///< Subject of the client's TLS certificate; empty without one.
  /// Shared, since lists of events are copied often and the bodies are large. May be null.
  std::shared_ptr<const RecordedExchange> exchange{};

  /// Whether the server did what it was asked to.
  bool IsGood() const { return outcome.starts_with("ok"); }
};

/// Which events to return.
struct EventFilter {
  std::uint64_t after = 0;  ///< Events with greater numbers only.
  std::size_t limit = 0;    ///< The latest ones, at most this many; 0 for all.
  std::optional<int> server{};
  std::optional<std::string> operation{};
  std::optional<bool> isGood{};

  bool Matches(const Event& event) const;
};

/// Some events, oldest first.
struct EventPage {
  std::vector<Event> events;
  std::uint64_t last = 0;     ///< Number of the latest event of all, whatever the filter.
  std::uint64_t dropped = 0;  ///< Events that made space for later ones since the log was cleared.
};

/// The latest events, oldest first; older ones are dropped. Also the place where followers wait for news:
/// events, and changes of the environment's state. Safe for any number of threads.
class EventLog {
 public:
  static constexpr std::size_t kCapacity = 10000;  ///< limits the memory of a long run
  /// Limit of all events together, in bytes. The latest event is kept whatever its size.
  static constexpr std::size_t kMaxWeight = 64U << 20U;
  /// Longer strings of an event are cut and end in " (cut)", which no target contains.
  static constexpr std::size_t kMaxText = 2048;

  /// Returns the number that the event got.
  std::uint64_t Add(Event event);
  std::vector<Event> Get() const;
  EventPage Get(const EventFilter& filter) const;
  std::optional<Event> Find(std::uint64_t number) const;
  /// Requests to a server since the start or the last Reset().
  std::uint64_t CountRequests(int server) const;
  /// Forgets the events; their numbers are not used again.
  void Clear();
  /// The same, and starts counting the requests of each server again.
  void Reset();

  /// Reports that the state changed: a fault, a room, a clock, a list.
  void NoteChange();
  std::uint64_t GetChanges() const;
  /// Waits until there is an event after `event`, or a change after `changes`. Returns at once when `stop` is
  /// requested, and after `patience` at the latest.
  void Wait(std::uint64_t event, std::uint64_t changes, std::chrono::milliseconds patience,
            const std::stop_token& stop) const;

 private:
  void DropFirst();

  mutable std::mutex mutex_;
  mutable std::condition_variable_any news_;
  // All guarded by mutex_.
  std::uint64_t count_ = 0;
  std::uint64_t changes_ = 0;
  std::uint64_t dropped_ = 0;
  std::size_t weight_ = 0;
  std::map<int, std::uint64_t> requests_;
  std::deque<Event> events_;
};

}  // namespace CryptStand
