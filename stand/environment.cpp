// The changes that tests and the control interface share, so that both do them in the same way: the faults
// that concern a server's socket, new rooms, and the way back to the state after the start.
#include "stand/environment.h"

#include "stand/wire.h"

namespace CryptStand {
namespace {

// A wrapped key has some kilobytes; opening one again costs a millisecond.
constexpr std::size_t kMaxViews = 1000;

}  // namespace

// Down and ServerCertificate are kept among the faults only to be listed and cleared: they come before any
// request.
std::optional<std::uint64_t> Environment::SetFault(int server, const Fault& fault) {
  if (!servers_.Has(server)) return std::nullopt;
  const auto lock = LockFor(server);
  if (fault.type == FaultType::ServerCertificate) {
    const auto type = FindServerCertificate(fault.text.empty() ? "expired" : fault.text);
    if (!type.has_value() || !servers_.Show(server, *type)) return std::nullopt;
  }
  const std::uint64_t id = realm_.faults.Set(server, fault);
  if (fault.type == FaultType::Down) servers_.Down(server);
  realm_.log.NoteChange();
  return id;
}

std::unique_lock<std::mutex> Environment::LockFor(int server) {
  return server == kCryptService ? std::unique_lock<std::mutex>() : std::unique_lock<std::mutex>(change_);
}

// The crypt service is up whenever one of its own requests comes here, and must not wait for itself: while it
// goes down, Up() waits for the end of its requests.
bool Environment::BringUp(int server) {
  std::string error;
  if (server == kCryptService && servers_.IsUp(server)) return true;
  return servers_.Up(server, error);
}

bool Environment::ClearFaults(int server) {
  if (!servers_.Has(server)) return false;
  const auto lock = LockFor(server);
  realm_.faults.Clear(server);
  servers_.Show(server, ServerCertificate::Good);
  realm_.log.NoteChange();
  return BringUp(server);
}

bool Environment::ClearFault(std::uint64_t id) {
  const std::lock_guard<std::mutex> lock(change_);
  const auto removed = realm_.faults.Remove(id);
  if (!removed.has_value()) return false;
  if (removed->fault.type == FaultType::ServerCertificate) {
    servers_.Show(removed->server, ServerCertificate::Good);
  }
  realm_.log.NoteChange();
  return removed->fault.type != FaultType::Down || BringUp(removed->server);
}

// The id must be UTF-8, since it appears in JSON.
bool Environment::AddRoom(const std::string& id, const std::string& group) {
  const std::string& wanted = group.empty() ? group_ : group;
  return !id.empty() && IsUtf8(id) && realm_.store.HasGroup(wanted) && realm_.store.AddRoom(id, wanted);
}

// Opens the key outside the lock: that takes about a millisecond, and two threads that open the same key at
// once do no harm.
std::optional<Environment::KeyView> Environment::ViewKey(const std::string& data) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = views_.find(data);
    if (found != views_.end()) return found->second;
  }
  const auto opened = realm_.rooms.OpenKey(data);
  if (!opened.has_value()) return std::nullopt;
  KeyView view{opened->certificate, {}};
  for (const Cert& reader : opened->readers) view.readers.push_back(reader.GetSubject());
  const std::lock_guard<std::mutex> lock(mutex_);
  if (views_.size() >= kMaxViews) views_.clear();
  return views_[data] = view;
}

// The store comes first: should it fail, nothing has changed. The log comes last, so that it keeps no event
// from before the reset.
bool Environment::Reset() {
  if (!realm_.store.Reset()) return false;
  realm_.tokens.Reset();
  realm_.settings.Reset();
  const std::lock_guard<std::mutex> lock(change_);
  realm_.faults.Reset();
  bool isUp = true;
  for (int server = kCryptService; server < servers_.CountKeyServers(); ++server) {
    servers_.Show(server, ServerCertificate::Good);
    isUp = BringUp(server) && isUp;
  }
  if (servers_.GetProxy() != nullptr) {
    servers_.GetProxy()->ClearRecords();
    isUp = BringUp(kProxy) && isUp;
  }
  realm_.log.Reset();
  realm_.log.NoteChange();
  return isUp;
}

}  // namespace CryptStand
