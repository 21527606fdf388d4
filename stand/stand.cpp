// Puts the parts together: builds the servers over one realm, starts and stops them, and offers tests what
// control.cpp offers scripts.
#include "stand/stand.h"

#include <openssl/crypto.h>

#include "foundation/encoding.h"
#include "stand/control.h"
#include "stand/crypt_service.h"
#include "stand/folder_lock.h"
#include "stand/front.h"
#include "stand/key_server.h"

namespace CryptStand {
namespace {

constexpr int kMaxPort = 65535;

std::string UrlOf(const HttpServer& server) {
  return "http://127.0.0.1:" + std::to_string(server.GetPort());
}

}  // namespace

class Stand::Impl {
 public:
  explicit Impl(Options given)
      : options(std::move(given)),
        realm(options.folder.empty() && !options.ownKeys, options.seed),
        service(realm) {
    // A static Stand must be destroyed before OpenSSL's exit handler runs, since its threads use OpenSSL
    // until the servers are down. Exit handlers run in reverse order, so OpenSSL registers its own here,
    // before the constructor completes. It does so only if at least one option is given.
    OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr);
  }

  bool Start(Stand& stand, std::string& error);
  StartFailure LockFolder(std::string& error);
  StartFailure SetUp(std::string& error);
  bool AddRoom(const std::string& id, const std::string& group);
  bool Bind(std::string& error);
  bool BindKeyServer(int index, std::string& error);
  HttpServer* FindServer(int server);
  HttpReply ServeCrypt(Stand& stand, const HttpRequest& request, const std::stop_token& stop);

  const Options options;
  StartFailure failure = StartFailure::None;
  FolderLock lock;  // held until everything that uses the folder is destroyed
  Realm realm;
  CryptService service;
  std::unique_ptr<HttpServer> crypt;
  // Order matters: the HTTP servers (and their threads) are destroyed before the key servers that they call.
  std::vector<std::unique_ptr<KeyServer>> keyServers;
  std::vector<std::unique_ptr<HttpServer>> keyHttp;
};

StartFailure Stand::Impl::LockFolder(std::string& error) {
  if (options.folder.empty()) return StartFailure::None;
  if (!MakeFolder(options.folder, error)) return StartFailure::Folder;
  const FolderLock::Result result = lock.Take(options.folder, error);
  if (result == FolderLock::Result::InUse) return StartFailure::FolderInUse;
  return result == FolderLock::Result::Taken ? StartFailure::None : StartFailure::Folder;
}

StartFailure Stand::Impl::SetUp(std::string& error) {
  if (!realm.store.Open(options.folder, error)) return StartFailure::Folder;
  bool good = realm.store.AddGroup(options.group, options.groupName);
  for (const std::string& room : options.rooms) good = good && AddRoom(room, options.group);
  // Generates all keys of a new folder now, so that its first request is as fast as any other.
  if (good && !options.folder.empty()) good = realm.authority.Prepare();
  if (good) return StartFailure::None;
  error = "The state cannot be stored, or a room id is empty or not UTF-8";
  return StartFailure::Other;
}

// The id must be UTF-8, since it appears in JSON.
bool Stand::Impl::AddRoom(const std::string& id, const std::string& group) {
  const bool isText =
      !id.empty() && OruGuiBase::IsValidUTF8(id.data(), static_cast<std::uint32_t>(id.size()));
  return isText && realm.store.HasGroup(group) && realm.store.AddRoom(id, group);
}

bool Stand::Impl::Bind(std::string& error) {
  if (options.port < 0 || options.port + options.keyServers > kMaxPort) {
    error = "ports end at " + std::to_string(kMaxPort);
    return false;
  }
  if (!crypt->Bind(options.port, error)) return false;
  for (int i = 0; i < options.keyServers; ++i) {
    if (!BindKeyServer(i, error)) return false;
  }
  std::vector<std::string> urls;
  for (const auto& server : keyHttp) urls.push_back(UrlOf(*server));
  realm.settings.SetKeyServerUrls(std::move(urls));
  return true;
}

// The URL is known only once the port is bound, so the handler finds its key server by index. No request
// comes before Up().
bool Stand::Impl::BindKeyServer(int index, std::string& error) {
  const auto place = static_cast<std::size_t>(index);
  keyHttp.push_back(std::make_unique<HttpServer>(
      [this, index, place](const HttpRequest& request, const std::stop_token& stop) {
        const std::string operation = KeyServer::FindOperation(request);
        return Front(realm, index).Respond(request, operation, stop, [&] {
          return keyServers[place]->Serve(request, operation);
        });
      }));
  const int port = options.port == 0 ? 0 : options.port + 1 + index;
  if (!keyHttp.back()->Bind(port, error)) return false;
  keyServers.push_back(std::make_unique<KeyServer>(realm, index, UrlOf(*keyHttp.back())));
  return true;
}

HttpReply Stand::Impl::ServeCrypt(Stand& stand, const HttpRequest& request, const std::stop_token& stop) {
  if (IsControlRequest(request)) return ServeControl(stand, request);
  const auto route = CryptService::FindRoute(request);
  return Front(realm, kCryptService).Respond(request, route.has_value() ? route->operation : "", stop, [&] {
    return service.Serve(request, route);
  });
}

bool Stand::Impl::Start(Stand& stand, std::string& error) {
  crypt =
      std::make_unique<HttpServer>([this, &stand](const HttpRequest& request, const std::stop_token& stop) {
        return ServeCrypt(stand, request, stop);
      });
  // What can fail at once comes first: generating keys takes time.
  failure = LockFolder(error);
  if (failure == StartFailure::None && !Bind(error)) failure = StartFailure::Port;
  if (failure == StartFailure::None) failure = SetUp(error);
  if (failure != StartFailure::None) return false;
  failure = StartFailure::Other;
  // The crypt service comes last: a client that reaches it finds all key servers up.
  for (const auto& server : keyHttp) {
    if (!server->Up(error)) return false;
  }
  if (!crypt->Up(error)) return false;
  failure = StartFailure::None;
  return true;
}

HttpServer* Stand::Impl::FindServer(int server) {
  if (server == kCryptService) return crypt.get();
  const auto index = static_cast<std::size_t>(server);
  return server >= 0 && index < keyHttp.size() ? keyHttp[index].get() : nullptr;
}

Stand::Stand(Options options) : impl_(std::make_unique<Impl>(std::move(options))) {}

Stand::~Stand() {
  // The crypt service goes down first: its control path uses the key servers.
  if (impl_->crypt != nullptr) impl_->crypt->Down();
}

bool Stand::Start(std::string& error) {
  return impl_->Start(*this, error);
}

StartFailure Stand::GetStartFailure() const {
  return impl_->failure;
}

std::string Stand::GetServiceUrl() const {
  return UrlOf(*impl_->crypt) + "/";
}

std::vector<std::string> Stand::GetKeyServerUrls() const {
  return impl_->realm.settings.GetKeyServerUrls();
}

std::vector<std::string> Stand::GetRooms() const {
  return impl_->realm.store.GetRooms();
}

// Down is not stored among the faults, since a server that is down looks at none.
bool Stand::SetFault(int server, const Fault& fault) {
  HttpServer* http = impl_->FindServer(server);
  if (http == nullptr) return false;
  if (fault.type == FaultType::Down) {
    http->Down();
  } else {
    impl_->realm.faults.Set(server, fault);
  }
  return true;
}

bool Stand::ClearFaults(int server) {
  HttpServer* http = impl_->FindServer(server);
  if (http == nullptr) return false;
  impl_->realm.faults.Clear(server);
  std::string error;
  return http->Up(error);
}

bool Stand::AddRoom(const std::string& id, const std::string& group) {
  return impl_->AddRoom(id, group.empty() ? impl_->options.group : group);
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
