// The table of the control interface, put together from the rows of the other control_*.cpp, and the replies
// and members that these have in common.
#include "stand/control_routes.h"

#include <algorithm>
#include <charconv>
#include <numeric>

namespace CryptStand {
namespace {

// Key servers and `servers`, for a member that names some of them.
std::vector<int> ReadServersAnd(ControlCall& call, std::vector<int> servers) {
  const Servers& all = call.environment.GetServers();
  const Val value = call.input.Get("server");
  const bool isNumber = value.GetType() == OruGuiBase::ValType::Integer;
  // Of another type it is none of those that are allowed.
  const std::string name =
      isNumber ? std::to_string(value.AsInteger()) : ReadText(call.input.GetMembers(), "server").value_or("");
  std::vector<int> keyServers(static_cast<std::size_t>(all.CountKeyServers()));
  std::iota(keyServers.begin(), keyServers.end(), 0);
  if (name == "all") return keyServers;
  std::vector<std::string> allowed;
  allowed.reserve(servers.size() + keyServers.size() + 1);
  for (const int server : servers) allowed.push_back(ServerName(server));
  allowed.emplace_back("all");
  for (const int server : keyServers) allowed.push_back(ServerName(server));
  servers.insert(servers.end(), keyServers.begin(), keyServers.end());
  const auto found = std::find_if(servers.begin(), servers.end(), [&](int server) {
    return name == ServerName(server) || name == all.GetUrl(server);
  });
  if (found != servers.end()) return {*found};
  call.input.Refuse("server", "\"server\" must be one of those that are allowed, or a server's URL", allowed);
  return {};
}

}  // namespace

// A function's static: the table does not change, and no other object needs it at its own construction.
const std::vector<ControlRoute>& GetControlRoutes() {
  static const std::vector<ControlRoute> routes = [] {
    std::vector<ControlRoute> all;
    for (const auto& part : {StateRoutes(), FaultRoutes(), RoomRoutes(), GroupRoutes(), ListRoutes(),
                             SettingRoutes(), EventRoutes(), ProxyRoutes()}) {
      all.insert(all.end(), part.begin(), part.end());
    }
    return all;
  }();
  return routes;
}

HttpReply DoneReply() {
  return JsonReply(KVMap());
}

HttpReply NotFound(std::string message) {
  return ErrorReply({.status = 404, .code = "not_found", .message = std::move(message)});
}

HttpReply Conflict(const char* member, std::string message) {
  return ErrorReply({.status = 409, .code = "conflict", .message = std::move(message), .member = member});
}

HttpReply CannotStore() {
  return ErrorReply(
      {.status = 500, .code = "internal", .message = "The change cannot be carried out or stored"});
}

std::optional<std::uint64_t> ReadPathNumber(const ControlCall& call) {
  const std::string& text = call.path.front();
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isNumber = error == std::errc() && end == text.data() + text.size();
  return isNumber ? std::optional(number) : std::nullopt;
}

std::vector<int> ReadServers(ControlCall& call) {
  return ReadServersAnd(call, {kCryptService});
}

std::vector<int> ReadServersOrProxy(ControlCall& call) {
  const bool hasProxy = call.environment.GetServers().GetProxy() != nullptr;
  return hasProxy ? ReadServersAnd(call, {kCryptService, kProxy}) : ReadServers(call);
}

std::vector<int> ReadKeyServers(ControlCall& call) {
  return ReadServersAnd(call, {});
}

}  // namespace CryptStand
