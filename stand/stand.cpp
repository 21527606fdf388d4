// Puts the parts together: builds the servers over one realm, starts and stops them, and offers tests what
// control.cpp offers scripts.
#include "stand/stand.h"

#include <filesystem>
#include <openssl/crypto.h>

#include "stand/control.h"
#include "stand/crypt_service.h"
#include "stand/folder_lock.h"
#include "stand/front.h"
#include "stand/host_name.h"
#include "stand/key_server.h"
#include "stand/page.h"
#include "stand/recording_lines.h"
#include "stand/required_headers.h"
#include "stand/server_tls.h"
#include "stand/socket.h"
#include "stand/text_file.h"

namespace CryptStand {
namespace {

constexpr int kMaxPort = 65535;
constexpr const char* kTokenFile = "/control-token";

ControlAccess MakeAccess(const Options& options) {
  std::vector<std::string> hosts;
  const auto allow = [&](const std::string& host) {
    for (std::string& form : HostHeaders(host)) hosts.push_back(std::move(form));
  };
  for (const std::string& host : options.allowedHosts) allow(host);
  allow(options.listen);
  if (!options.announce.empty()) allow(options.announce);
  return {options.controlToken.empty() ? ControlAccess::MakeToken() : options.controlToken, std::move(hosts)};
}

}  // namespace

class Stand::Impl : public Servers {
 public:
  explicit Impl(Options given)
      : options(std::move(given)),
        realm(options.folder.empty() && !options.ownKeys, options.seed),
        environment(realm, *this, options.group),
        control(environment, MakeAccess(options)),
        tls(realm.store, realm.log),
        service(realm) {
    // A static Stand must be destroyed before OpenSSL's exit handler runs, since its threads use OpenSSL
    // until the servers are down. Exit handlers run in reverse order, so OpenSSL registers its own here,
    // before the constructor completes. It does so only if at least one option is given.
    OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr);
  }

  bool Start(std::string& error);
  StartFailure LockFolder(std::string& error);
  StartFailure SetUp(std::string& error);
  bool WriteToken(std::string& error);
  bool SetUpHeaders(std::string& error);
  bool SetUpTls(std::string& error);
  bool BindProxy(std::string& error);
  std::string GetHost() const;
  std::string UrlOf(const HttpServer& server) const;
  bool CheckHosts(std::string& error) const;
  bool Bind(std::string& error);
  bool BringUp(std::string& error);
  bool OpenRecording(std::string& error);
  bool BindKeyServer(int index, std::string& error);
  HttpReply ServeCrypt(const HttpRequest& request, const std::stop_token& stop);

  // Servers. Not called for a server that does not exist.
  HttpServer& At(int server) const {
    return server == kCryptService ? *crypt : *keyHttp.at(static_cast<std::size_t>(server));
  }
  int CountKeyServers() const override { return static_cast<int>(keyHttp.size()); }
  std::string GetUrl(int server) const override {
    if (server == kProxy) return "http://127.0.0.1:" + std::to_string(proxy->GetPort());
    return UrlOf(At(server)) + (server == kCryptService ? "/" : "");
  }
  bool IsUp(int server) const override { return server == kProxy ? proxy->IsUp() : At(server).IsUp(); }
  bool Up(int server, std::string& error) override {
    return server == kProxy ? proxy->Up(error) : At(server).Up(error);
  }
  void Down(int server) override { server == kProxy ? proxy->Down() : At(server).Down(); }
  ForwardProxy* GetProxy() const override { return proxy.get(); }
  bool HasTls() const override { return options.tls; }
  bool AsksForCertificates() const override { return !options.clientCa.empty(); }
  ClientFiles GetClientFiles() const override;
  bool Show(int server, ServerCertificate type) override;

  const Options options;
  StartFailure failure = StartFailure::None;
  bool isReserved = false;
  FolderLock lock;  // held until everything that uses the folder is destroyed
  Realm realm;
  Environment environment;
  Control control;
  ServerTls tls;
  CryptService service;
  std::unique_ptr<HttpServer> crypt;
  // Order matters: the HTTP servers (and their threads) are destroyed before the key servers that they call.
  std::vector<std::unique_ptr<KeyServer>> keyServers;
  std::vector<std::unique_ptr<HttpServer>> keyHttp;
  std::unique_ptr<ForwardProxy> proxy;  // null without one
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
  for (const std::string& room : options.rooms) good = good && environment.AddRoom(room);
  // Generates all keys of a new folder now, so that its first request is as fast as any other.
  if (good && !options.folder.empty()) good = realm.authority.Prepare();
  if (!good || !realm.store.MarkStart()) {
    error = "The state cannot be stored, or a room id is empty or not UTF-8";
    return StartFailure::Other;
  }
  return WriteToken(error) && SetUpTls(error) ? StartFailure::None : StartFailure::Other;
}

bool Stand::Impl::WriteToken(std::string& error) {
  if (control.GetToken().empty()) {
    error = "no random bytes are available";
    return false;
  }
  return options.folder.empty() ||
         WriteTextFile(options.folder + kTokenFile, control.GetToken() + "\n", 0600, error);
}

bool Stand::Impl::SetUpHeaders(std::string& error) {
  std::vector<RequiredHeader> headers;
  for (const std::string& line : options.requiredHeaders) {
    auto header = ParseRequiredHeader(line);
    if (!header.has_value()) {
      error = "A required header is not of the form 'Name: value'";
      return false;
    }
    headers.push_back(*std::move(header));
  }
  realm.settings.SetRequiredHeaders(std::move(headers));
  return true;
}

bool Stand::Impl::BindProxy(std::string& error) {
  if (!options.proxyPort.has_value()) return true;
  proxy = std::make_unique<ForwardProxy>(realm.faults);
  if (*options.proxyPort >= 0 && *options.proxyPort <= kMaxPort) {
    return proxy->Bind(*options.proxyPort, error);
  }
  error = "ports end at " + std::to_string(kMaxPort);
  return false;
}

bool Stand::Impl::SetUpTls(std::string& error) {
  if (!options.tls) {
    if (!options.clientCa.empty()) error = "Client certificates need TLS";
    return options.clientCa.empty();
  }
  std::vector<std::string> hosts = {GetHost()};
  if (options.listen != "0.0.0.0" && options.listen != "::") hosts.push_back(options.listen);
  for (const std::string& host : options.allowedHosts) hosts.push_back(WithoutBrackets(host));
  return tls.Prepare(std::move(hosts), options.clientCa, error) &&
         (options.folder.empty() || tls.WriteFiles(options.folder, error));
}

bool Stand::Impl::Show(int server, ServerCertificate type) {
  if (!options.tls || server == kProxy) return false;
  if (tls.Show(server, type)) At(server).EndConnections();
  return true;
}

ClientFiles Stand::Impl::GetClientFiles() const {
  if (!options.tls || options.folder.empty()) return {};
  std::error_code error;
  const std::string folder = std::filesystem::absolute(options.folder, error).string();
  if (error) return {};
  const bool isMade = options.clientCa == kMakeClientCa;
  return {.authority = folder + kAuthorityFile,
          .certificate = isMade ? folder + "/client.pem" : "",
          .key = isMade ? folder + "/client.key" : ""};
}

// No client can connect to an address that stands for all of them.
std::string Stand::Impl::GetHost() const {
  if (!options.announce.empty()) return options.announce;
  return options.listen == "0.0.0.0" || options.listen == "::" ? "localhost" : options.listen;
}

std::string Stand::Impl::UrlOf(const HttpServer& server) const {
  return std::string(options.tls ? "https" : "http") + "://" + HostInUrl(GetHost()) + ":" +
         std::to_string(server.GetPort());
}

// They go into URLs and certificates.
bool Stand::Impl::CheckHosts(std::string& error) const {
  if (!options.announce.empty() && !IsHost(options.announce)) {
    error = "The announced host is neither a name nor an IP address";
    return false;
  }
  for (const std::string& host : options.allowedHosts) {
    if (IsHost(WithoutBrackets(host))) continue;
    error = "An allowed host is neither a name nor an IP address";
    return false;
  }
  return true;
}

bool Stand::Impl::Bind(std::string& error) {
  if (!CheckHosts(error)) return false;
  if (options.port < 0 || options.port + options.keyServers > kMaxPort) {
    error = "ports end at " + std::to_string(kMaxPort);
    return false;
  }
  if (!crypt->Bind(options.listen, options.port, error)) return false;
  for (int i = 0; i < options.keyServers; ++i) {
    if (!BindKeyServer(i, error)) return false;
  }
  std::vector<std::string> urls;
  for (const auto& server : keyHttp) urls.push_back(UrlOf(*server));
  realm.settings.SetKeyServerUrls(std::move(urls));
  return BindProxy(error);
}

// The URL is known only once the port is bound, so the handler finds its key server by index. No request
// comes before Up().
bool Stand::Impl::BindKeyServer(int index, std::string& error) {
  const auto place = static_cast<std::size_t>(index);
  keyHttp.push_back(
      std::make_unique<HttpServer>([this, index, place](const HttpRequest& request, const std::stop_token&) {
        const Subject subject = keyServers[place]->FindSubject(request);
        return Front(realm, index).Respond(request, subject, [&] {
          return keyServers[place]->Serve(request, subject.operation);
        });
      }));
  if (options.tls) tls.Secure(*keyHttp.back(), index);
  const int port = options.port == 0 ? 0 : options.port + 1 + index;
  if (!keyHttp.back()->Bind(options.listen, port, error)) return false;
  keyServers.push_back(std::make_unique<KeyServer>(realm, index, UrlOf(*keyHttp.back())));
  return true;
}

// After Bind(): the first line has the addresses.
bool Stand::Impl::OpenRecording(std::string& error) {
  if (options.recordFile.empty()) return true;
  const std::string start = MakeStartLine(GetUrl(kCryptService), realm.settings.GetKeyServerUrls());
  return realm.recording.Open(options.recordFile, start, error);
}

HttpReply Stand::Impl::ServeCrypt(const HttpRequest& request, const std::stop_token& stop) {
  if (IsPageRequest(request)) return control.RefuseForeign(request).value_or(ServePage());
  if (Control::IsFor(request)) return control.Serve(request, stop);
  const auto route = CryptService::FindRoute(request);
  const Subject subject = route.has_value() ? Subject{route->operation, route->id} : Subject();
  return Front(realm, kCryptService).Respond(request, subject, [&] { return service.Serve(request, route); });
}

// The crypt service comes after the key servers: a client that reaches it finds them all up.
bool Stand::Impl::BringUp(std::string& error) {
  for (const auto& server : keyHttp) {
    if (!server->Up(error)) return false;
  }
  return crypt->Up(error) && (proxy == nullptr || proxy->Up(error));
}

bool Stand::Impl::Start(std::string& error) {
  crypt = std::make_unique<HttpServer>(
      [this](const HttpRequest& request, const std::stop_token& stop) { return ServeCrypt(request, stop); });
  if (options.tls) tls.Secure(*crypt, kCryptService);
  // What can fail at once comes first: generating keys takes time.
  if (!isReserved) failure = LockFolder(error);
  if (failure == StartFailure::None && !Bind(error)) failure = StartFailure::Port;
  if (failure == StartFailure::None && !SetUpHeaders(error)) failure = StartFailure::Other;
  if (failure == StartFailure::None && !OpenRecording(error)) failure = StartFailure::Other;
  if (failure == StartFailure::None) failure = SetUp(error);
  // Two servers on one port are found only now: a port that is bound but has no listener can be bound again.
  if (failure == StartFailure::None && !BringUp(error)) failure = StartFailure::Port;
  return failure == StartFailure::None;
}

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
