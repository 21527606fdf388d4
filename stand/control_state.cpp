// What concerns the environment as a whole in the control interface: the list of resources, the state, the
// reset.
#include "stand/control_json.h"
#include "stand/control_routes.h"
#include "stand/version.h"

namespace CryptStand {
namespace {

// The number in the paths ("/stand/v1/").
constexpr std::int64_t kInterfaceVersion = 1;

Val MembersVal(const std::vector<ControlMember>& members) {
  KVMap object;
  for (const ControlMember& member : members) {
    object.Set(member.name, TextVal(std::string(member.does) + (member.isRequired ? " (required)" : "")));
  }
  return Val(object);
}

HttpReply ServeIndex(ControlCall&) {
  OruGuiBase::Array<Val> resources;
  for (const ControlRoute& route : GetControlRoutes()) {
    KVMap resource;
    resource.Set("method", TextVal(route.method));
    resource.Set("path", TextVal(route.path));
    resource.Set("does", TextVal(route.does));
    resource.Set("members", MembersVal(route.members));
    resources.Append(Val(resource));
  }
  KVMap index;
  index.Set("program", TextVal("cryptstand"));
  index.Set("version", TextVal(GetVersion()));
  index.Set("interface", Val(kInterfaceVersion));
  index.Set("resources", Val(resources));
  return JsonReply(index);
}

KVMap ServerObject(Environment& environment, int server) {
  const Realm& realm = environment.GetRealm();
  KVMap object;
  if (server != kCryptService) object.Set("name", TextVal(ServerName(server)));
  object.Set("url", TextVal(environment.GetServers().GetUrl(server)));
  object.Set("up", Val(environment.GetServers().IsUp(server)));
  object.Set("clockOffset", Val(realm.settings.GetClockOffset(server)));
  object.Set("requests", CountVal(realm.log.CountRequests(server)));
  if (server != kCryptService)
    object.Set("generatedAudit", CountVal(realm.settings.GetGeneratedAudit(server)));
  return object;
}

Val PathVal(const std::string& path) {
  return path.empty() ? Val() : TextVal(path);
}

// What a command needs besides the address. Of required headers the names alone: the values are credentials,
// and anybody may read the state.
void SetClientNeeds(KVMap& state, Environment& environment) {
  const Servers& servers = environment.GetServers();
  const ClientFiles files = servers.GetClientFiles();
  std::vector<std::string> headers;
  for (const auto& [name, value] : environment.GetRealm().settings.GetRequiredHeaders()) {
    headers.push_back(name);
  }
  state.Set("tls", Val(servers.HasTls()));
  state.Set("caFile", PathVal(files.authority));
  state.Set("asksForCertificate", Val(servers.AsksForCertificates()));
  state.Set("clientCertificate", PathVal(files.certificate));
  state.Set("clientKey", PathVal(files.key));
  state.Set("requiredHeaders", TextsVal(headers));
}

// What passed through it has a resource of its own.
Val ProxyVal(const Servers& servers) {
  if (servers.GetProxy() == nullptr) return {};
  KVMap object;
  object.Set("url", TextVal(servers.GetUrl(kProxy)));
  object.Set("up", Val(servers.IsUp(kProxy)));
  return Val(object);
}

HttpReply ServeState(ControlCall& call) {
  Environment& environment = call.environment;
  OruGuiBase::Array<Val> servers;
  for (int server = 0; server < environment.GetServers().CountKeyServers(); ++server) {
    servers.Append(Val(ServerObject(environment, server)));
  }
  const auto seed = call.GetRealm().faults.GetSeed();
  KVMap state;
  state.Set("started", TextVal(TimeText(call.environment.GetStart())));
  state.Set("service", Val(ServerObject(environment, kCryptService)));
  state.Set("servers", Val(servers));
  state.Set("faults", FaultsVal(environment));
  state.Set("rooms", RoomsVal(environment));
  state.Set("groups", GroupsVal(environment));
  state.Set("lists", ListsVal(environment));
  state.Set("settings", SettingsVal(environment));
  state.Set("seed", seed.has_value() ? CountVal(*seed) : Val());
  SetClientNeeds(state, environment);
  state.Set("proxy", ProxyVal(environment.GetServers()));
  state.Set("lastEvent", CountVal(call.GetRealm().log.Get({.limit = 1}).last));
  return JsonReply(state);
}

HttpReply ServeReset(ControlCall& call) {
  return call.environment.Reset() ? DoneReply() : CannotStore();
}

}  // namespace

std::vector<ControlRoute> StateRoutes() {
  return {
      {"GET", "/stand/", "this list", {}, ServeIndex},
      {"GET", "/stand/v1/state", "everything that can be changed, with its present value", {}, ServeState},
      {"POST",
       "/stand/v1/reset",
       "restores the state after the start; authorities, identities and integrity keys stay",
       {},
       ServeReset}};
}

}  // namespace CryptStand
