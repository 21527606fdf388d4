// What the program says about itself when it starts: to its user, and to scripts that wait for it.
#include "stand/announcement.h"

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string_view>

#include "stand/socket.h"
#include "stand/wire.h"

namespace CryptStand {
namespace {

// Whoever reads the path may be in another folder.
std::string Absolute(const std::string& path) {
  std::error_code error;
  const auto absolute = std::filesystem::absolute(path, error);
  return error ? path : absolute.string();
}

// All but the unreserved characters of RFC 3986, 2.3: then no program on the way to the page gives one of
// them a meaning.
std::string PercentEncode(const std::string& text) {
  constexpr std::string_view kUnreserved =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (kUnreserved.find(c) != std::string_view::npos) {
      encoded += c;
    } else {
      encoded += {'%', kDigits[byte >> 4U], kDigits[byte & 15U]};
    }
  }
  return encoded;
}

// With the token in the fragment, which browsers send to nobody.
std::string PageUrl(const Stand& stand) {
  return stand.GetServiceUrl() + "#token=" + PercentEncode(stand.GetControlToken());
}

// A service manager keeps the output in a journal, which others may read.
void PrintPage(const Stand& stand, const Options& options) {
  const char* const manager = std::getenv("NOTIFY_SOCKET");
  if (manager == nullptr || *manager == '\0') {
    std::cout << "page " << PageUrl(stand) << "\n";
    return;
  }
  std::cout << "page " << stand.GetServiceUrl() << "\n"
            << "token in " << Absolute(options.folder) << "/control-token\n";
}

// As one word of a POSIX shell. Only a quote ends what is in quotes.
std::string ShellQuote(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

// What the command needs to reach the servers, besides the address.
std::string ClientArguments(const Stand& stand, const Options& options) {
  if (options.clientCa.empty()) return {};
  if (stand.GetClient().certificate.IsEmpty()) return "--client-cert CERTIFICATE --client-key KEY ";
  const std::string folder = Absolute(options.folder);
  return "--client-cert " + ShellQuote(folder + "/client.pem") + " --client-key " +
         ShellQuote(folder + "/client.key") + " ";
}

// A header's value may be a secret, which does not belong into the output.
std::string HeaderArguments(const Options& options) {
  std::string arguments;
  for (const std::string& header : options.requiredHeaders) {
    arguments += "--header " + ShellQuote(header.substr(0, header.find(':')) + ": VALUE") + " ";
  }
  return arguments;
}

std::string SecurityArguments(const Stand& stand, const Options& options) {
  const std::string headers = HeaderArguments(options);
  if (!options.tls) return headers;
  return "--ca-file " + ShellQuote(Absolute(stand.GetServerAuthorityFile())) + " " +
         ClientArguments(stand, options) + headers;
}

}  // namespace

void PrintStart(const Options& options) {
  // A folder that cannot be reached is not called new; the start finds out why.
  std::error_code error;
  const auto type = std::filesystem::status(options.folder + "/stand.sqlite", error).type();
  const bool isNew = type == std::filesystem::file_type::not_found;
  std::cout << "cryptstand: starting in " << options.folder
            << (isNew ? ", which is new: its keys are generated first\n" : "\n") << std::flush;
}

void WarnOfOthers(const Options& options) {
  if (IsLoopbackAddress(options.listen)) return;
  std::cerr
      << "cryptstand: warning: " << options.listen
      << " may be reached from other machines; private keys are unencrypted, and whoever reaches a port "
         "uses them: only in a container or an isolated network\n";
}

void PrintBanner(const Stand& stand, const Options& options) {
  const std::string command = " --service " + stand.GetServiceUrl() + " --room " +
                              ShellQuote(options.rooms.front()) + " " + SecurityArguments(stand, options);
  std::cout << "cryptstand: a local test environment, never for anything that has to be protected\n";
  PrintPage(stand, options);
  std::cout << "service " << stand.GetServiceUrl() << "\n";
  for (const std::string& url : stand.GetKeyServerUrls()) std::cout << "keyserver " << url << "\n";
  if (options.tls) std::cout << "ca-file " << Absolute(stand.GetServerAuthorityFile()) << "\n";
  if (!stand.GetProxyUrl().empty()) std::cout << "proxy " << stand.GetProxyUrl() << "\n";
  std::cout << "try:\n  cryptcli encrypt" << command << "FILE FILE.p7m\n  cryptcli decrypt" << command
            << "FILE.p7m FILE\n"
            << std::flush;
}

// The members are part of the interface: the fixtures and scripts of other projects read
// them.
std::string DescribeUrls(const Stand& stand, const Options& options) {
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
  return WriteObject(urls) + "\n";
}

}  // namespace CryptStand
