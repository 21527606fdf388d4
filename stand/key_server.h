#pragma once

#include <string>

#include "stand/commands.h"
#include "stand/front.h"
#include "stand/realm.h"
#include "stand/served.h"

namespace CryptStand {

/// One key server. Its resources, below its URL:
///
///   GET  status      alive; the time is in the "Date" header that every response has
///   GET  certstore   root and intermediate certificates as PEM
///   GET  truststore  trusted issuing certificates as PEM
///   POST rest/json   one command, allowed by the token in "X-SEC-AUTHZTOKEN"
///
/// A command that is refused gets status 200 and a payload of type "status" with the number in "code"; an
/// audit log has the number in the header "x-sec-status" with an empty CSV body instead. The envelope is
/// checked to the letter before the token, the token before the command. `realm` must outlive the server.
class KeyServer {
 public:
  KeyServer(Realm& realm, int server, std::string url)
      : realm_(realm), server_(server), url_(std::move(url)) {}

  /// "status", "certstore", "truststore", or the request type of a command; empty when there is none.
  static std::string FindOperation(const HttpRequest& request);
  /// All that FindOperation() may find in a valid request.
  static std::vector<std::string> GetOperations();
  /// The operation, and the room or group that the request's token is for.
  Subject FindSubject(const HttpRequest& request) const;
  Served Serve(const HttpRequest& request, const std::string& operation);

 private:
  Served ServeList(const std::string& operation);
  Served ServeCommand(const HttpRequest& request, const std::string& operation);
  CommandResult RunCommand(const HttpRequest& request, const Command* command);
  void AddAudit(const TokenClaim& claim, const std::string& outcome);

  Realm& realm_;
  const int server_;  // index
  const std::string url_;
};

}  // namespace CryptStand
