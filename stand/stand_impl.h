#pragma once

#include <memory>
#include <stop_token>
#include <string>
#include <vector>

#include "stand/control.h"
#include "stand/crypt_service.h"
#include "stand/folder_lock.h"
#include "stand/key_server.h"
#include "stand/server_tls.h"
#include "stand/servers.h"
#include "stand/stand.h"

namespace CryptStand {

/// The parts of a test environment, which Stand owns and hides: the realm, the servers over it, and their
/// start.
class Stand::Impl : public Servers {
 public:
  explicit Impl(Options given);

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

}  // namespace CryptStand
