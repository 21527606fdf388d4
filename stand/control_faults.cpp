// The faults of the control interface: set, list, clear, and the generator behind probabilities.
#include <algorithm>

#include "stand/control_json.h"
#include "stand/control_routes.h"
#include "stand/crypt_service.h"
#include "stand/key_server.h"

namespace CryptStand {
namespace {

std::vector<std::string> FaultNames() {
  std::vector<std::string> names;
  for (const FaultTypeInfo& type : GetFaultTypes()) names.emplace_back(type.name);
  return names;
}

Val OptionalVal(const char* text) {
  return text != nullptr ? TextVal(text) : Val();
}

HttpReply ServeFaults(ControlCall& call) {
  OruGuiBase::Array<Val> types;
  for (const FaultTypeInfo& type : GetFaultTypes()) {
    KVMap object;
    object.Set("name", TextVal(type.name));
    object.Set("does", TextVal(type.does));
    object.Set("number", OptionalVal(type.number));
    object.Set("text", OptionalVal(type.text));
    types.Append(Val(object));
  }
  KVMap reply;
  reply.Set("set", FaultsVal(call.environment));
  reply.Set("types", Val(types));
  return JsonReply(reply);
}

bool Names(const std::vector<int>& servers, int server) {
  return std::find(servers.begin(), servers.end(), server) != servers.end();
}

// A server that is down has no requests that could be counted or chosen.
void CheckDown(ControlCall& call, const std::vector<int>& servers) {
  for (const char* member : {"operation", "uses", "number", "text", "probability"}) {
    if (call.input.Has(member)) {
      call.input.Refuse(member, "\"" + std::string(member) + "\" has no meaning for the fault \"down\"");
    }
  }
  // Down() waits for the threads of all requests, and this request is one of them.
  if (Names(servers, kCryptService)) {
    call.input.Refuse("server", "The crypt service cannot be taken down through itself");
  }
}

// The certificate is shown at the start of a connection, which has no requests yet.
void CheckCertificate(ControlCall& call, const std::vector<int>& servers, const Fault& fault) {
  for (const char* member : {"operation", "uses", "number", "probability"}) {
    if (call.input.Has(member)) {
      call.input.Refuse(
          member, "\"" + std::string(member) + "\" has no meaning for the fault \"server-certificate\"");
    }
  }
  if (Names(servers, kCryptService)) {
    call.input.Refuse("server",
                      "The crypt service keeps its certificate: this interface, which clears faults, would "
                      "no longer be reached by those who check it");
  }
  if (!call.environment.GetServers().HasTls()) {
    call.input.Refuse("fault", "The fault \"server-certificate\" needs servers that speak TLS (--tls)");
  } else if (!fault.text.empty() && !FindServerCertificate(fault.text).has_value()) {
    call.input.Refuse("text", "\"text\" must be \"expired\", \"wrong-host\" or \"self-signed\"");
  }
}

// The proxy does not look into what it forwards.
void CheckProxy(ControlCall& call, const Fault& fault) {
  constexpr FaultType kTypes[] = {FaultType::Down, FaultType::Slow, FaultType::Status, FaultType::Drop};
  if (std::find(std::begin(kTypes), std::end(kTypes), fault.type) != std::end(kTypes)) return;
  std::vector<std::string> names;
  for (const FaultType type : kTypes) names.emplace_back(NameOf(type));
  call.input.Refuse("fault", "The proxy knows only the faults that are allowed", std::move(names));
}

// These change the members of a key server's payload or its results. Responses of the crypt service have
// neither, so the fault would be listed as applied while the response is as always.
bool IsForKeyServersOnly(FaultType type) {
  return type == FaultType::WrongType || type == FaultType::BadSignature || type == FaultType::BadBase64;
}

// Down and ServerCertificate have checks of their own, which say why they cannot be set here.
void CheckCrypt(ControlCall& call, const Fault& fault) {
  if (!IsForKeyServersOnly(fault.type)) return;
  std::vector<std::string> names;
  for (const FaultTypeInfo& info : GetFaultTypes()) {
    const bool isOfConnections = info.type == FaultType::Down || info.type == FaultType::ServerCertificate;
    if (!isOfConnections && !IsForKeyServersOnly(info.type)) names.emplace_back(info.name);
  }
  call.input.Refuse("fault", "The fault \"" + std::string(NameOf(fault.type)) + "\" is for key servers only",
                    std::move(names));
}

// All key servers have the same.
std::vector<std::string> OperationsOf(int server) {
  if (server == kCryptService) return CryptService::GetOperations();
  if (server != kProxy) return KeyServer::GetOperations();
  return {"CONNECT", "GET", "HEAD", "POST", "PUT", "DELETE", "OPTIONS", "PATCH", "TRACE"};
}

// A fault for an operation that no request has would never apply, and nobody would notice.
void CheckOperation(ControlCall& call, const std::vector<int>& servers, const Fault& fault) {
  if (servers.empty() || fault.operation.empty()) return;
  auto known = OperationsOf(servers.front());
  if (std::find(known.begin(), known.end(), fault.operation) != known.end()) return;
  call.input.Refuse("operation", "\"operation\" must be one of this server, or empty for all",
                    std::move(known));
}

bool IsInHeader(FaultType type) {
  return type == FaultType::WrongDate || type == FaultType::WrongContentType || type == FaultType::SecStatus;
}

// A parameter that the type does not use would change nothing either.
void CheckParameters(ControlCall& call, const Fault& fault) {
  const auto types = GetFaultTypes();
  const auto info = std::find_if(types.begin(), types.end(),
                                 [&](const FaultTypeInfo& type) { return type.type == fault.type; });
  const std::string rest = " has no meaning for the fault \"" + std::string(info->name) + "\"";
  if (info->number == nullptr && fault.number != 0) call.input.Refuse("number", "\"number\"" + rest);
  if (info->text == nullptr && !fault.text.empty()) call.input.Refuse("text", "\"text\"" + rest);
  if (IsInHeader(fault.type) && !OruGuiBase::IsHeaderValue(fault.text)) {
    call.input.Refuse("text",
                      "\"text\" goes into a header, so it must be one line without control characters");
  }
}

// Each request has such a body in memory. With its frame it is larger than the responses that our client
// reads.
constexpr std::int64_t kMaxHugeSize = 64L << 20U;

// What a number may be depends on the type.
void CheckNumber(ControlCall& call, const Fault& fault) {
  const bool isStatus = fault.number == 0 || (fault.number >= 100 && fault.number <= 999);
  if (fault.type == FaultType::Status && !isStatus) {
    call.input.Refuse("number", "\"number\" must be a status from 100 to 999, or 0");
  }
  if (fault.type == FaultType::JsonHuge && fault.number > kMaxHugeSize) {
    call.input.Refuse("number", "\"number\" must be at most " + std::to_string(kMaxHugeSize) +
                                    " (64 MiB) for the fault \"json-huge\"");
  }
}

Fault ReadFault(ControlCall& call) {
  Fault fault;
  fault.type = FindFaultType(call.input.ReadChoice("fault", FaultNames())).value_or(FaultType::Status);
  fault.operation = call.input.ReadString("operation");
  fault.uses = static_cast<int>(call.input.ReadWhole("uses", 0, kMaxCount));
  fault.number = static_cast<int>(call.input.ReadWhole("number", 0, kMaxCount));
  fault.text = call.input.ReadString("text");
  fault.probability = call.input.ReadFraction("probability", 1);
  CheckNumber(call, fault);
  return fault;
}

HttpReply AddFault(ControlCall& call) {
  const auto servers = ReadServersOrProxy(call);
  const Fault fault = ReadFault(call);
  if (fault.type == FaultType::Down) CheckDown(call, servers);
  if (fault.type == FaultType::ServerCertificate) CheckCertificate(call, servers, fault);
  if (Names(servers, kProxy)) CheckProxy(call, fault);
  if (Names(servers, kCryptService)) CheckCrypt(call, fault);
  CheckParameters(call, fault);
  CheckOperation(call, servers, fault);
  if (call.input.GetError().has_value()) return ErrorReply(*call.input.GetError());
  OruGuiBase::Array<Val> ids;
  for (const int server : servers) {
    ids.Append(CountVal(call.environment.SetFault(server, fault).value_or(0)));
  }
  KVMap reply;
  reply.Set("id", ids[0]);
  reply.Set("ids", Val(ids));
  return JsonReply(reply);
}

HttpReply ClearFaults(ControlCall& call) {
  std::vector<int> servers = {kCryptService};
  for (int server = 0; server < call.environment.GetServers().CountKeyServers(); ++server) {
    servers.push_back(server);
  }
  if (call.environment.GetServers().GetProxy() != nullptr) servers.push_back(kProxy);
  if (call.input.Has("server")) servers = ReadServersOrProxy(call);
  if (call.input.GetError().has_value()) return ErrorReply(*call.input.GetError());
  bool isUp = true;
  for (const int server : servers) isUp = call.environment.ClearFaults(server) && isUp;
  return isUp ? DoneReply() : CannotStore();
}

HttpReply ClearFault(ControlCall& call) {
  const auto id = ReadPathNumber(call);
  return id.has_value() && call.environment.ClearFault(*id) ? DoneReply()
                                                            : NotFound("There is no fault with this id");
}

HttpReply SetSeed(ControlCall& call) {
  const auto seed = call.input.ReadWhole("seed", 0, std::numeric_limits<std::int64_t>::max());
  if (call.input.GetError().has_value()) return ErrorReply(*call.input.GetError());
  call.GetRealm().faults.SeedUntilReset(static_cast<std::uint64_t>(seed));
  return DoneReply();
}

}  // namespace

Val FaultsVal(Environment& environment) {
  OruGuiBase::Array<Val> faults;
  for (const ActiveFault& active : environment.GetRealm().faults.List()) {
    KVMap object;
    object.Set("id", CountVal(active.id));
    object.Set("server", TextVal(ServerName(active.server)));
    object.Set("fault", TextVal(NameOf(active.fault.type)));
    object.Set("operation", PrintableVal(active.fault.operation));
    object.Set("uses", Val(std::int64_t{active.fault.uses}));
    object.Set("number", Val(std::int64_t{active.fault.number}));
    object.Set("text", PrintableVal(active.fault.text));
    object.Set("probability", Val(active.fault.probability));
    object.Set("taken", CountVal(active.taken));
    object.Set("usesLeft", Val(std::int64_t{active.GetUsesLeft()}));
    faults.Append(Val(object));
  }
  return Val(faults);
}

std::vector<ControlRoute> FaultRoutes() {
  return {{"GET", "/stand/v1/faults", "the faults that are set, and all types", {}, ServeFaults},
          {"POST",
           "/stand/v1/faults",
           "sets a fault; one of the same type for the same operation is replaced",
           {{"server", "\"crypt\", \"proxy\", the index or the URL of a key server, or \"all\" key servers",
             true},
            {"fault", "name of the type", true},
            {"operation", "concerns this operation alone, as events name it; empty for all"},
            {"uses", "applies to so many requests; 0 until it is cleared"},
            {"number", "meaning by type"},
            {"text", "meaning by type"},
            {"probability", "applies to a request with this probability, 0 to 1"}},
           AddFault},
          {"DELETE",
           "/stand/v1/faults",
           "clears all faults and brings servers up",
           {{"server", "only those of this server"}},
           ClearFaults},
          {"DELETE", "/stand/v1/faults/ID", "clears one fault", {}, ClearFault},
          {"POST",
           "/stand/v1/seed",
           "starts the generator behind probabilities again",
           {{"seed", "an integer from 0", true}},
           SetSeed}};
}

}  // namespace CryptStand
