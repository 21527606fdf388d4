// What tests and the program call: each function passes its work on to the part that does it, which
// control.cpp offers scripts.
#include "stand/stand.h"

#include "stand/stand_impl.h"

namespace CryptStand {

Stand::Stand(Options options) : impl_(std::make_unique<Impl>(std::move(options))) {}

Stand::~Stand() {
  // The crypt service goes down first: its control interface uses the key servers.
  if (impl_->crypt != nullptr) impl_->crypt->Down();
}

bool Stand::Reserve(std::string& error) {
  impl_->failure = impl_->LockFolder(error);
  impl_->isReserved = impl_->failure == StartFailure::None;
  return impl_->isReserved;
}

bool Stand::Start(std::string& error) {
  return impl_->Start(error);
}

StartFailure Stand::GetStartFailure() const {
  return impl_->failure;
}

std::string Stand::GetServiceUrl() const {
  return impl_->UrlOf(*impl_->crypt) + "/";
}

std::vector<std::string> Stand::GetKeyServerUrls() const {
  return impl_->realm.settings.GetKeyServerUrls();
}

std::vector<std::string> Stand::GetRooms() const {
  return impl_->realm.store.GetRooms();
}

std::string Stand::GetServerAuthority() const {
  return impl_->options.tls ? impl_->tls.GetServerAuthority() : "";
}

std::string Stand::GetServerAuthorityFile() const {
  const Options& options = impl_->options;
  return options.tls && !options.folder.empty() ? options.folder + kAuthorityFile : "";
}

Identity Stand::GetClient() const {
  return impl_->tls.GetClient();
}

bool Stand::SetServerCertificate(int server, ServerCertificate type) {
  return impl_->Has(server) && impl_->Show(server, type);
}

bool Stand::EndConnections(int server) {
  if (server == kProxy || !impl_->Has(server)) return false;
  impl_->At(server).EndConnections();
  return true;
}

std::string Stand::GetProxyUrl() const {
  return impl_->Has(kProxy) ? impl_->GetUrl(kProxy) : "";
}

std::vector<ProxyRecord> Stand::GetProxyRecords() const {
  return impl_->proxy == nullptr ? std::vector<ProxyRecord>() : impl_->proxy->GetRecords();
}

void Stand::ClearProxyRecords() {
  if (impl_->proxy != nullptr) impl_->proxy->ClearRecords();
}

bool Stand::SetFault(int server, const Fault& fault) {
  return impl_->environment.SetFault(server, fault).has_value();
}

bool Stand::ClearFaults(int server) {
  return impl_->environment.ClearFaults(server);
}

bool Stand::AddRoom(const std::string& id, const std::string& group) {
  return impl_->environment.AddRoom(id, group);
}

bool Stand::Reset() {
  return impl_->environment.Reset();
}

const std::string& Stand::GetControlToken() const {
  return impl_->control.GetToken();
}

std::optional<GroupRecord> Stand::GetGroup(const std::string& id) const {
  return impl_->realm.store.GetGroup(id);
}

std::optional<RoomOptions> Stand::GetRoomOptions(const std::string& room) const {
  const auto record = impl_->realm.store.GetRoom(room);
  return record.has_value() ? std::optional(record->options) : std::nullopt;
}

bool Stand::SetRoomOptions(const std::string& room, const RoomOptions& options) {
  return impl_->realm.store.SetRoomOptions(room, options);
}

bool Stand::SetRoomCertificate(const std::string& room, RoomCertificate type) {
  return impl_->realm.rooms.SetRoomCertificate(room, type);
}

bool Stand::RenewIntegrityKey() {
  return impl_->realm.rooms.RenewIntegrityKey(impl_->options.group);
}

void Stand::SetTokenLifetime(std::chrono::milliseconds lifetime) {
  impl_->realm.tokens.SetLifetime(lifetime);
}

Settings& Stand::GetSettings() {
  return impl_->realm.settings;
}

std::vector<Event> Stand::GetEvents() const {
  return impl_->realm.log.Get();
}

void Stand::ClearEvents() {
  impl_->realm.log.Clear();
}

}  // namespace CryptStand
