#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace CryptStand {

/// The crypt service, wherever key servers are named by their index.
inline constexpr int kCryptService = -1;

/// One request to a server, with its result.
struct Event {
  std::uint64_t number = 0;  ///< Counts all requests from 1.
  int server = kCryptService;
  std::string method;
  std::string target;     ///< Path and query, escaped as they came.
  std::string operation;  ///< Resource of the crypt service, "status", a list, or a request type name.
  int status = 0;         ///< HTTP status.
  std::string outcome;    ///< "ok", or the reason of the refusal.
};

/// The latest events, oldest first; older ones are dropped. Safe for any number of threads.
class EventLog {
 public:
  static constexpr std::size_t kCapacity = 10000;  ///< limits the memory of a long run

  void Add(Event event);
  std::vector<Event> Get() const;
  void Clear();

 private:
  mutable std::mutex mutex_;
  std::uint64_t count_ = 0;   // guarded by mutex_
  std::deque<Event> events_;  // guarded by mutex_
};

}  // namespace CryptStand
