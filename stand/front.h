#pragma once

#include <functional>
#include <stop_token>
#include <string>
#include <vector>

#include "stand/realm.h"
#include "stand/served.h"

namespace CryptStand {

/// What every request to a server passes through: the faults that are set, the "Date" header, the event log.
/// Lives for one request; `realm` must outlive it.
class Front {
 public:
  /// `server` is the index of a key server or kCryptService.
  Front(Realm& realm, int server) : realm_(realm), server_(server) {}

  /// The reply to a request. Calls `serve` unless a fault replaces the reply; if it throws, the reply has
  /// status 500.
  HttpReply Respond(const HttpRequest& request, const std::string& operation, const std::stop_token& stop,
                    const std::function<Served()>& serve);

 private:
  void AddDate(const std::vector<Fault>& faults, HttpReply& reply) const;

  Realm& realm_;
  const int server_;
};

}  // namespace CryptStand
