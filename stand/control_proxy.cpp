// The forward proxy in the control interface: what passed through it. Its faults are set like those of
// servers.
#include "stand/control_json.h"
#include "stand/control_routes.h"

namespace CryptStand {
namespace {

HttpReply NoProxy() {
  return NotFound("There is no proxy; --proxy starts one");
}

// Method, host and outcome may have any bytes that a client has sent.
KVMap RecordObject(const ProxyRecord& record) {
  KVMap object;
  object.Set("number", CountVal(record.number));
  object.Set("time", TextVal(TimeText(record.time)));
  object.Set("durationMs", Val(static_cast<std::int64_t>(record.duration.count())));
  object.Set("method", PrintableVal(record.method));
  object.Set("host", PrintableVal(record.host));
  object.Set("port", Val(std::int64_t{record.port}));
  object.Set("bytesToServer", CountVal(record.bytesToServer));
  object.Set("bytesToClient", CountVal(record.bytesToClient));
  object.Set("status", Val(std::int64_t{record.status}));
  object.Set("outcome", PrintableVal(record.outcome));
  return object;
}

HttpReply ServeProxy(ControlCall& call) {
  const Servers& servers = call.environment.GetServers();
  const ForwardProxy* const proxy = servers.GetProxy();
  if (proxy == nullptr) return NoProxy();
  OruGuiBase::Array<Val> records;
  for (const ProxyRecord& record : proxy->GetRecords()) records.Append(Val(RecordObject(record)));
  KVMap reply;
  reply.Set("url", TextVal(servers.GetUrl(kProxy)));
  reply.Set("up", Val(proxy->IsUp()));
  reply.Set("records", Val(records));
  return JsonReply(reply);
}

HttpReply ClearProxy(ControlCall& call) {
  ForwardProxy* const proxy = call.environment.GetServers().GetProxy();
  if (proxy == nullptr) return NoProxy();
  proxy->ClearRecords();
  return DoneReply();
}

}  // namespace

std::vector<ControlRoute> ProxyRoutes() {
  return {{"GET", "/stand/v1/proxy", "the forward proxy and what passed through it", {}, ServeProxy},
          {"DELETE", "/stand/v1/proxy", "clears the proxy's records", {}, ClearProxy}};
}

}  // namespace CryptStand
