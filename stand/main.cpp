// The program cryptstand: runs a test environment until SIGINT or SIGTERM. Scripts wait for its --url-file,
// which appears when all servers listen.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>

#include "stand/private_file.h"
#include "stand/socket.h"
#include "stand/stand.h"
#include "stand/wire.h"

namespace {

using CryptStand::Options;
using CryptStand::Stand;

// Those of a bearer token (RFC 6750, 2.1).
constexpr const char* kTokenLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~+/=";

// Blocks the signals that end the program, in this thread and in all that it starts.
sigset_t BlockEndSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

// With the token in the fragment, which browsers send to nobody.
std::string PageUrl(const Stand& stand) {
  return stand.GetServiceUrl() + "#token=" + stand.GetControlToken();
}

// What the command needs to reach the servers, besides the address.
std::string SecurityArguments(const Stand& stand, const Options& options) {
  if (!options.tls) return {};
  std::string arguments = "--ca-file '" + stand.GetServerAuthorityFile() + "' ";
  if (stand.GetClient().certificate.IsEmpty()) return arguments;
  return arguments + "--client-cert '" + options.folder + "/client.pem' --client-key '" + options.folder +
         "/client.key' ";
}

void PrintBanner(const Stand& stand, const Options& options) {
  const std::string command = " --service " + stand.GetServiceUrl() + " --room '" + options.rooms.front() +
                              "' " + SecurityArguments(stand, options);
  std::cout << "cryptstand: a local test environment, never for anything that has to be protected\n"
            << "page " << PageUrl(stand) << "\n"
            << "service " << stand.GetServiceUrl() << "\n";
  for (const std::string& url : stand.GetKeyServerUrls()) std::cout << "keyserver " << url << "\n";
  if (options.tls) std::cout << "ca-file " << stand.GetServerAuthorityFile() << "\n";
  std::cout << "try:\n  cryptcli encrypt" << command << "FILE FILE.p7m\n  cryptcli decrypt" << command
            << "FILE.p7m FILE\n"
            << std::flush;
}

// The file appears as a whole, so that a waiting script never reads half of it.
bool WriteUrls(const Stand& stand, const Options& options, const std::string& path) {
  CryptStand::KVMap urls;
  urls.Set("service", CryptStand::TextVal(stand.GetServiceUrl()));
  urls.Set("keyservers", CryptStand::TextsVal(stand.GetKeyServerUrls()));
  urls.Set("rooms", CryptStand::TextsVal(stand.GetRooms()));
  urls.Set("token", CryptStand::TextVal(stand.GetControlToken()));
  urls.Set("page", CryptStand::TextVal(PageUrl(stand)));
  if (options.tls) urls.Set("caFile", CryptStand::TextVal(stand.GetServerAuthorityFile()));
  if (!stand.GetClient().certificate.IsEmpty()) {
    urls.Set("clientCertificate", CryptStand::TextVal(options.folder + "/client.pem"));
    urls.Set("clientKey", CryptStand::TextVal(options.folder + "/client.key"));
  }
  std::string error;
  return CryptStand::WritePrivateFile(path, CryptStand::WriteObject(urls) + "\n", error);
}

void WarnOfOthers(const Options& options) {
  if (CryptStand::IsLoopbackAddress(options.listen)) return;
  std::cerr
      << "cryptstand: warning: " << options.listen
      << " may be reached from other machines; private keys are unencrypted, and whoever reaches a port "
         "changes how the servers behave: only in a container or an isolated network\n";
}

int Run(const Options& options, const std::string& urlFile) {
  std::signal(SIGPIPE, SIG_IGN);  // the servers go on when nobody reads the program's output any more
  // Before the servers start their threads, which inherit the mask: sigwait() below then gets the signals.
  const sigset_t signals = BlockEndSignals();
  WarnOfOthers(options);
  Stand stand(options);
  std::string error;
  if (!stand.Start(error)) {
    std::cerr << "cryptstand: " << error << "\n";
    return 1;
  }
  PrintBanner(stand, options);
  if (!urlFile.empty() && !WriteUrls(stand, options, urlFile)) {
    std::cerr << "cryptstand: " << urlFile << " cannot be written\n";
    return 1;
  }
  int received = 0;
  sigwait(&signals, &received);
  std::cout << "cryptstand: stopped\n" << std::flush;
  return 0;
}

void AddNetworkOptions(CLI::App& app, Options& options) {
  app.add_option("--listen", options.listen, "IP address to listen on; 127.0.0.1 by default");
  app.add_option("--announce", options.announce,
                 "Host in all URLs; by default the address, or localhost for 0.0.0.0 and ::");
  CLI::Option* const tls =
      app.add_flag("--tls", options.tls, "Serve HTTPS; the authority's certificate is DIR/server-ca.pem");
  app.add_option(
         "--client-ca", options.clientCa,
         "Ask for client certificates of the authorities in this PEM file; \"make\" makes one, with a "
         "client in DIR/client.pem and DIR/client.key")
      ->needs(tls);
  app.add_option("--require-header", options.requiredHeaders,
                 "A header, 'Name: value', that the crypt service requires; may be given several times")
      ->allow_extra_args(false);
}

int RunCommand(int argc, char** argv) {
  CLI::App app(
      "A local test environment: a crypt service and key servers on 127.0.0.1. Its keys are unencrypted "
      "in its folder.");
  Options options;
  std::string urlFile;
  app.add_option("--dir", options.folder, "Folder that keeps keys and rooms")->required();
  app.add_option("--key-servers", options.keyServers, "Number of key servers")->check(CLI::Range(1, 100));
  app.add_option("--port", options.port, "Port of the crypt service; the key servers take those after it")
      ->check(CLI::Range(1, 65535));
  app.add_option("--room", options.rooms, "A room; may be given several times")->allow_extra_args(false);
  app.add_option("--url-file", urlFile, "File that gets the addresses as JSON once all servers are up");
  app.add_option("--control-token", options.controlToken, "What changes need; random if left out")
      ->check([](const std::string& token) {
        const bool isPrintable = token.find_first_not_of(kTokenLetters) == std::string::npos;
        return isPrintable && !token.empty() ? "" : "the token must be letters, digits and -._~+/=";
      });
  app.add_option("--allow-host", options.allowedHosts, "Another name of this machine for the page")
      ->allow_extra_args(false);
  AddNetworkOptions(app, options);
  CLI11_PARSE(app, argc, argv);
  return Run(options, urlFile);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return RunCommand(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "cryptstand: %s\n", error.what());
    return 1;
  }
}
