#pragma once

#include <functional>
#include <string>
#include <vector>

#include "stand/realm.h"
#include "stand/served.h"

namespace CryptStand {

/// What a request is about, as far as it shows before it is served.
struct Subject {
  std::string operation;
  std::string id;  ///< Room or group; empty for none.
};

/// What every request to a server passes through: the faults that are set, the "Date" header, the event log.
/// Lives for one request; `realm` must outlive it.
class Front {
 public:
  /// `server` is the index of a key server or kCryptService.
  Front(Realm& realm, int server) : realm_(realm), server_(server) {}

  /// The reply to a request. Calls `serve` unless a fault replaces the reply; if it throws, the reply has
  /// status 500.
  HttpReply Respond(const HttpRequest& request, const Subject& subject, const std::function<Served()>& serve);

 private:
  Served Apply(const std::vector<Fault>& faults, const HttpRequest& request,
               const std::function<Served()>& serve) const;
  void AddDate(const std::vector<Fault>& faults, HttpReply& reply) const;
  /// A group has no rooms of its name, so that only rooms are shown as such.
  std::string FindRoom(const std::string& id) const;

  Realm& realm_;
  const int server_;
};

}  // namespace CryptStand
