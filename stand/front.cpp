// What every request passes through, whichever server it is for: faults, the "Date" header, the event log.
#include "stand/front.h"

#include <chrono>
#include <condition_variable>
#include <ctime>

#include "stand/fault_reply.h"

namespace CryptStand {
namespace {

// Sleeps, but returns at once when the server goes down.
void Wait(int milliseconds, const std::stop_token& stop) {
  std::mutex mutex;
  std::condition_variable_any never;
  std::unique_lock<std::mutex> lock(mutex);
  never.wait_for(lock, stop, std::chrono::milliseconds(milliseconds), [] { return false; });
}

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

// A failed allocation, for example, costs one request and not the server.
Served ServeGuarded(const std::function<Served()>& serve) {
  try {
    return serve();
  } catch (const std::exception& failure) {
    return RefusedWith(500, kUnknownErrorId, failure.what());
  }
}

}  // namespace

HttpReply Front::Respond(const HttpRequest& request, const std::string& operation,
                         const std::stop_token& stop, const std::function<Served()>& serve) {
  const std::vector<Fault> faults = realm_.faults.Take(server_, operation);
  // Replacing faults come first, because the request must then not be carried out; the others change whatever
  // reply there is.
  std::optional<Served> served;
  for (const Fault& fault : faults) {
    if (fault.type == FaultType::Slow) Wait(fault.number, stop);
    auto reply = MakeFaultReply(fault, server_ != kCryptService);
    if (reply.has_value()) served = Served{*std::move(reply), "not served"};
  }
  if (!served.has_value()) served = ServeGuarded(serve);
  for (const Fault& fault : faults) SpoilReply(fault, served->reply);
  if (!faults.empty()) served->outcome += " (fault)";
  AddDate(faults, served->reply);
  // Before the reply is sent: a client that has its response finds the event in the log.
  realm_.log.Add(
      {0, server_, request.method, request.target, operation, served->reply.status, served->outcome});
  return std::move(served->reply);
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
