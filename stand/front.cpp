// What every request passes through, whichever server it is for: faults, the "Date" header, the event log.
#include "stand/front.h"

#include <algorithm>
#include <chrono>
#include <ctime>

#include "stand/fault_reply.h"

namespace CryptStand {
namespace {

// The form of RFC 9110, 5.6.7. Not with strftime, which would use the locale's names of days and months.
std::string DateText(std::time_t time) {
  constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  std::tm fields = {};
  gmtime_r(&time, &fields);
  char text[64];
  std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d GMT", kDays[fields.tm_wday],
                fields.tm_mday, kMonths[fields.tm_mon], fields.tm_year + 1900, fields.tm_hour, fields.tm_min,
                fields.tm_sec);
  return text;
}

// Operations that change rooms, groups or their keys.
bool ChangesState(std::string_view operation) {
  constexpr std::string_view kChanging[] = {"newkey", "configGroupRequest", "reencryptRequest",
                                            "importKeyRequest", "deleteKeyRequest"};
  return std::find(std::begin(kChanging), std::end(kChanging), operation) != std::end(kChanging);
}

// A failed allocation, for example, costs one request and not the server.
Served ServeGuarded(const std::function<Served()>& serve) {
  try {
    return serve();
  } catch (const std::exception& failure) {
    return RefusedWith(500, kUnknownErrorId, failure.what());
  }
}

}  // namespace

HttpReply Front::Respond(const HttpRequest& request, const Subject& subject,
                         const std::function<Served()>& serve) {
  Event event{.server = server_, .method = request.method, .target = request.target};
  event.operation = subject.operation;
  event.time = std::chrono::system_clock::now();
  const auto begin = std::chrono::steady_clock::now();
  const std::vector<Fault> faults = realm_.faults.Take(server_, subject.operation);
  Served served = Apply(faults, request, serve);
  AddDate(faults, served.reply);
  for (const Fault& fault : faults) event.faults.emplace_back(NameOf(fault.type));
  event.status = served.reply.status;
  event.outcome = faults.empty() ? served.outcome : served.outcome + " (fault)";
  event.room = FindRoom(subject.id);
  event.peer = request.peer;
  event.exchange = std::make_shared<const RecordedExchange>(RecordExchange(request, served.reply));
  event.durationMs =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
  // Before the reply is sent: a client that has its response finds the event in the log.
  event.number = realm_.log.Add(event);
  // Followers then read the state again: the uses of a fault, or the keys of a room.
  if (!faults.empty() || ChangesState(subject.operation)) realm_.log.NoteChange();
  Record(realm_.recording, event, request, served.reply);
  return std::move(served.reply);
}

// Replacing faults come first, because the request must then not be carried out; the others change whatever
// reply there is.
Served Front::Apply(const std::vector<Fault>& faults, const HttpRequest& request,
                    const std::function<Served()>& serve) const {
  std::optional<Served> served;
  for (const Fault& fault : faults) {
    // Ends early when nobody waits for the reply any more: the client has left, or the server goes down.
    if (fault.type == FaultType::Slow) {
      realm_.faults.Delay(server_, fault, [&](int step) { return request.pause && request.pause(step); });
    }
    auto reply = MakeFaultReply(fault, server_ != kCryptService);
    if (reply.has_value()) served = Served{*std::move(reply), "not served"};
  }
  if (!served.has_value()) served = ServeGuarded(serve);
  for (const Fault& fault : faults) SpoilReply(fault, served->reply);
  return *std::move(served);
}

std::string Front::FindRoom(const std::string& id) const {
  return !id.empty() && realm_.store.GetRoom(id).has_value() ? id : "";
}

void Front::AddDate(const std::vector<Fault>& faults, HttpReply& reply) const {
  std::string date = DateText(std::time(nullptr) + realm_.settings.GetClockOffset(server_));
  for (const Fault& fault : faults) {
    if (fault.type == FaultType::MissingDate) return;
    if (fault.type == FaultType::WrongDate) date = fault.text;
  }
  reply.headers.emplace_back("Date", date);
}

}  // namespace CryptStand
