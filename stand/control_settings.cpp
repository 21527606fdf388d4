// Clocks, audit logs and the settings of the crypt service, as the control interface changes them.
#include "stand/control_routes.h"

namespace CryptStand {
namespace {

// A hundred years either way: enough for any certificate to be too early or too late.
constexpr std::int64_t kMaxClockOffset = 100L * 366 * 86400;
// A day: no test keeps a token for longer.
constexpr std::int64_t kMaxLifetimeMs = 86400L * 1000;

HttpReply SetClock(ControlCall& call) {
  const auto servers = ReadServers(call);
  const auto seconds = call.input.ReadWhole("seconds", -kMaxClockOffset, kMaxClockOffset);
  if (call.input.GetError().has_value()) return ErrorReply(*call.input.GetError());
  for (const int server : servers) call.GetRealm().settings.SetClockOffset(server, seconds);
  return DoneReply();
}

HttpReply SetAudit(ControlCall& call) {
  const auto servers = ReadKeyServers(call);
  const auto rows = call.input.ReadWhole("rows", 0, std::numeric_limits<std::int64_t>::max());
  if (call.input.GetError().has_value()) return ErrorReply(*call.input.GetError());
  for (const int server : servers) {
    call.GetRealm().settings.SetGeneratedAudit(server, static_cast<std::uint64_t>(rows));
  }
  return DoneReply();
}

// All members are read before any is set, so that a wrong one leaves everything as it was.
HttpReply SetSettings(ControlCall& call) {
  Realm& realm = call.GetRealm();
  ControlInput& input = call.input;
  const std::string timeout = input.ReadString("statusTimeout", realm.settings.GetStatusTimeout());
  const auto lifetime =
      input.ReadWhole("tokenLifetimeMs", 0, kMaxLifetimeMs, realm.tokens.GetLifetime().count());
  const bool perRequest = input.ReadFlag("sequencePerRequest", realm.settings.IsSequencePerRequest());
  const auto urls = input.Has("announcedUrls") ? input.ReadStringsOrNull("announcedUrls")
                                               : realm.settings.GetAnnouncedInstead();
  if (input.GetError().has_value()) return ErrorReply(*input.GetError());
  realm.settings.SetStatusTimeout(timeout);
  realm.tokens.SetLifetime(std::chrono::milliseconds(lifetime));
  realm.settings.SetSequencePerRequest(perRequest);
  realm.settings.SetAnnouncedUrls(urls);
  return JsonReply(SettingsVal(call.environment).AsMap());
}

}  // namespace

Val SettingsVal(Environment& environment) {
  const Realm& realm = environment.GetRealm();
  const auto urls = realm.settings.GetAnnouncedInstead();
  KVMap object;
  object.Set("statusTimeout", TextVal(realm.settings.GetStatusTimeout()));
  object.Set("tokenLifetimeMs", Val(std::int64_t{realm.tokens.GetLifetime().count()}));
  object.Set("sequencePerRequest", Val(realm.settings.IsSequencePerRequest()));
  object.Set("announcedUrls", urls.has_value() ? TextsVal(*urls) : Val());
  return Val(object);
}

std::vector<ControlRoute> SettingRoutes() {
  const ControlMember server = {
      "server", "\"crypt\", the index or the URL of a key server, or \"all\" key servers", true};
  const ControlMember keyServer = {"server", "the index or the URL of a key server, or \"all\" key servers",
                                   true};
  return {{"PUT",
           "/stand/v1/clocks",
           "sets a server's clock",
           {server, {"seconds", "by which it is ahead; negative for behind", true}},
           SetClock},
          {"PUT",
           "/stand/v1/audit",
           "adds made-up records to a key server's audit log",
           {keyServer, {"rows", "how many", true}},
           SetAudit},
          {"PUT",
           "/stand/v1/settings",
           "changes settings of the crypt service; members that are left out stay as they are",
           {{"statusTimeout", "\"statustimeout\" of responses, a string"},
            {"tokenLifetimeMs", "how long tokens issued from now on are valid, in milliseconds"},
            {"sequencePerRequest", "whether each request makes earlier sequence numbers stale"},
            {"announcedUrls", "key servers that responses name; null for the real ones"}},
           SetSettings}};
}

}  // namespace CryptStand
