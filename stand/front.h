#pragma once

#include <functional>
#include <stop_token>
#include <string>
#include <vector>

#include "stand/realm.h"
#include "stand/served.h"

namespace CryptStand {

/// What stands before every server: the faults that are set, the "Date" header, the event log.
class Front {
 public:
  /// `server` is the index of a key server or kCryptService.
  Front(Realm& realm, int server) : realm_(realm), server_(server) {}

  /// Answers a request. `serve` is asked unless a fault answers in its place; what it throws becomes an
  /// answer with status 500.
  HttpReply Respond(const HttpRequest& request, const std::string& operation, const std::stop_token& stop,
                    const std::function<Served()>& serve);

 private:
  void AddDate(const std::vector<Fault>& faults, HttpReply& reply) const;

  Realm& realm_;
  const int server_;
};

}  // namespace CryptStand
