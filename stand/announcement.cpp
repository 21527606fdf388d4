// What the program says about itself when it starts: to its user, and to scripts that wait for it.
#include "stand/announcement.h"

#include <filesystem>
#include <iostream>

#include "stand/socket.h"
#include "stand/text_file.h"
#include "stand/wire.h"

namespace CryptStand {
namespace {

// Whoever reads the path may be in another folder.
std::string Absolute(const std::string& path) {
  std::error_code error;
  const auto absolute = std::filesystem::absolute(path, error);
  return error ? path : absolute.string();
}

// With the token in the fragment, which browsers send to nobody.
std::string PageUrl(const Stand& stand) {
  return stand.GetServiceUrl() + "#token=" + stand.GetControlToken();
}

// What the command needs to reach the servers, besides the address.
std::string SecurityArguments(const Stand& stand, const Options& options) {
  if (!options.tls) return {};
  std::string arguments = "--ca-file '" + Absolute(stand.GetServerAuthorityFile()) + "' ";
  if (stand.GetClient().certificate.IsEmpty()) return arguments;
  const std::string folder = Absolute(options.folder);
  return arguments + "--client-cert '" + folder + "/client.pem' --client-key '" + folder + "/client.key' ";
}

}  // namespace

void PrintStart(const Options& options) {
  const bool isNew = !std::filesystem::exists(options.folder + "/stand.sqlite");
  std::cout << "cryptstand: starting in " << options.folder
            << (isNew ? ", which is new: its keys are generated first\n" : "\n") << std::flush;
}

void WarnOfOthers(const Options& options) {
  if (IsLoopbackAddress(options.listen)) return;
  std::cerr
      << "cryptstand: warning: " << options.listen
      << " may be reached from other machines; private keys are unencrypted, and whoever reaches a port "
         "changes how the servers behave: only in a container or an isolated network\n";
}

void PrintBanner(const Stand& stand, const Options& options) {
  const std::string command = " --service " + stand.GetServiceUrl() + " --room '" + options.rooms.front() +
                              "' " + SecurityArguments(stand, options);
  std::cout << "cryptstand: a local test environment, never for anything that has to be protected\n"
            << "page " << PageUrl(stand) << "\n"
            << "service " << stand.GetServiceUrl() << "\n";
  for (const std::string& url : stand.GetKeyServerUrls()) std::cout << "keyserver " << url << "\n";
  if (options.tls) std::cout << "ca-file " << Absolute(stand.GetServerAuthorityFile()) << "\n";
  if (!stand.GetProxyUrl().empty()) std::cout << "proxy " << stand.GetProxyUrl() << "\n";
  std::cout << "try:\n  cryptcli encrypt" << command << "FILE FILE.p7m\n  cryptcli decrypt" << command
            << "FILE.p7m FILE\n"
            << std::flush;
}

bool WriteUrls(const Stand& stand, const Options& options, const std::string& path) {
  KVMap urls;
  urls.Set("service", TextVal(stand.GetServiceUrl()));
  urls.Set("keyservers", TextsVal(stand.GetKeyServerUrls()));
  urls.Set("rooms", TextsVal(stand.GetRooms()));
  urls.Set("token", TextVal(stand.GetControlToken()));
  urls.Set("page", TextVal(PageUrl(stand)));
  if (options.tls) urls.Set("caFile", TextVal(Absolute(stand.GetServerAuthorityFile())));
  if (!stand.GetClient().certificate.IsEmpty()) {
    urls.Set("clientCertificate", TextVal(Absolute(options.folder + "/client.pem")));
    urls.Set("clientKey", TextVal(Absolute(options.folder + "/client.key")));
  }
  if (!stand.GetProxyUrl().empty()) urls.Set("proxy", TextVal(stand.GetProxyUrl()));
  std::string error;
  return WriteTextFile(path, WriteObject(urls) + "\n", 0600, error);
}

}  // namespace CryptStand
