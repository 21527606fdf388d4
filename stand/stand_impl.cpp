// Puts the parts of a test environment together: builds the servers over one realm and starts them. For
// stand.cpp.
#include "stand/stand_impl.h"

#include <filesystem>
#include <openssl/crypto.h>

#include "stand/front.h"
#include "stand/host_name.h"
#include "stand/page.h"
#include "stand/recording_lines.h"
#include "stand/required_headers.h"
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

Stand::Impl::Impl(Options given)
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

}  // namespace CryptStand
