#pragma once

#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "stand/control_input.h"
#include "stand/environment.h"

namespace CryptStand {

/// A control request that was found to be allowed and well-formed.
struct ControlCall {
  Environment& environment;
  const HttpRequest& request;
  const std::stop_token& stop;
  bool isAuthorized;              ///< The request has the token. Changes always have it here.
  std::vector<std::string> path;  ///< The values of the placeholders in the route's path.
  ControlInput input;             ///< Has the route's members only, and all required ones.

  Realm& GetRealm() const { return environment.GetRealm(); }
};

/// A member of a route's body; of its query for GET and DELETE.
struct ControlMember {
  const char* name;
  const char* does;
  bool isRequired = false;
};

/// One resource of the control interface with one method.
struct ControlRoute {
  const char* method;
  const char* path;  ///< Segments in capitals stand for any value.
  const char* does;
  std::vector<ControlMember> members;
  HttpReply (*serve)(ControlCall& call);
};

/// All routes. The table is at once the dispatcher and the documentation (GET /stand/).
const std::vector<ControlRoute>& GetControlRoutes();

/// The rows of the table, each part in the source that serves it (control_state.cpp, control_faults.cpp ...).
std::vector<ControlRoute> StateRoutes();
std::vector<ControlRoute> FaultRoutes();
std::vector<ControlRoute> RoomRoutes();
std::vector<ControlRoute> GroupRoutes();
std::vector<ControlRoute> ListRoutes();
std::vector<ControlRoute> SettingRoutes();
std::vector<ControlRoute> EventRoutes();
std::vector<ControlRoute> ProxyRoutes();

/// What the routes have in common. DoneReply() is {}.
HttpReply DoneReply();
HttpReply NotFound(std::string message);
HttpReply Conflict(const char* member, std::string message);
HttpReply CannotStore();
/// The path's first value as a number; none if it is anything else.
std::optional<std::uint64_t> ReadPathNumber(const ControlCall& call);
/// The servers that "server" names: "crypt", an index (as a string or a number), a URL, or "all" for each key
/// server. Empty after a failure, which is recorded in the input.
std::vector<int> ReadServers(ControlCall& call);
/// The same, and "proxy" where there is one.
std::vector<int> ReadServersOrProxy(ControlCall& call);
/// Those of ReadServers() without "crypt", for what only key servers have.
std::vector<int> ReadKeyServers(ControlCall& call);

/// The parts of GET /stand/v1/state that have resources of their own, each from the source with its rows.
Val FaultsVal(Environment& environment);
Val RoomsVal(Environment& environment);
Val GroupsVal(Environment& environment);
Val ListsVal(Environment& environment);
Val SettingsVal(Environment& environment);

}  // namespace CryptStand
