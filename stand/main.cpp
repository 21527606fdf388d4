// The program cryptstand: runs a test environment until SIGINT or SIGTERM. Scripts wait for its --url-file,
// which appears when all servers listen.
#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <iostream>
#include <optional>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "stand/announcement.h"
#include "stand/argument_checks.h"
#include "stand/exit_code.h"
#include "stand/ready_notification.h"
#include "stand/stand.h"
#include "stand/url_file.h"
#include "stand/version.h"

namespace {

using CryptStand::ExitCode;
using CryptStand::Options;
using CryptStand::Stand;
using CryptStand::UrlFile;

// A descriptor that the caller has closed would go to the next file or socket, which would then get the
// output.
void OpenStandardDescriptors() {
  int opened = 0;
  while (opened >= 0 && opened <= STDERR_FILENO) opened = open("/dev/null", O_RDWR);
  if (opened > STDERR_FILENO) close(opened);
}

// Blocks the signals that end the program, in this thread and in all that it starts.
sigset_t BlockEndSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

// For a parent that may crash: whatever ends it also closes its end of a pipe. The signal is pending until
// sigwait() gets it, so this may begin before the servers.
void StopAtEndOfInput() {
  std::thread([] {
    char ignored[256];
    ssize_t count = 1;
    while (count > 0 || (count < 0 && errno == EINTR)) count = read(STDIN_FILENO, ignored, sizeof ignored);
    kill(getpid(), SIGTERM);
  }).detach();
}

// The program runs on without its service manager, which then ends it after a while or takes it for unready.
void Notify(const char* state) {
  std::string error;
  if (!CryptStand::NotifyServiceManager(state, error)) std::cerr << "cryptstand: " << error << "\n";
}

// A second signal ends the program at once, should stopping take long.
void WaitForEnd(const sigset_t& signals) {
  int received = 0;
  sigwait(&signals, &received);
  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

ExitCode Fail(const std::string& reason, ExitCode code) {
  std::cerr << "cryptstand: " << reason << "\n";
  return code;
}

// From the start of the servers to their end. The warning waits until the address is known to be one that can
// be listened on.
ExitCode Serve(Stand& stand, const Options& options, UrlFile& urlFile, const sigset_t& signals) {
  std::string error;
  if (!stand.Start(error)) return Fail(error, ExitCodeOf(stand.GetStartFailure()));
  CryptStand::WarnOfOthers(options);
  CryptStand::PrintBanner(stand, options);
  if (!urlFile.Write(CryptStand::DescribeUrls(stand, options), error)) return Fail(error, ExitCode::Folder);
  Notify("READY=1");
  WaitForEnd(signals);
  urlFile.Remove();
  Notify("STOPPING=1");
  return ExitCode::Success;
}

void AddNetworkOptions(CLI::App& app, Options& options) {
  app.add_option("--listen", options.listen, "IP address to listen on; 127.0.0.1 by default")
      ->check(CryptStand::CheckListen);
  app.add_option("--announce", options.announce,
                 "Host in all URLs; by default the address, or localhost for 0.0.0.0 and ::")
      ->check(CryptStand::CheckAnnounce);
  CLI::Option* const tls =
      app.add_flag("--tls", options.tls, "Serve HTTPS; the authority's certificate is DIR/server-ca.pem");
  app.add_option(
         "--client-ca", options.clientCa,
         "Ask for client certificates of the authorities in this PEM file; \"make\" makes one, with a "
         "client in DIR/client.pem and DIR/client.key")
      ->needs(tls)
      ->check(CryptStand::CheckClientCa);
  app.add_option("--require-header", options.requiredHeaders,
                 "A header, 'Name: value', that the crypt service requires; may be given several times")
      ->allow_extra_args(false)
      ->check(CryptStand::CheckRequiredHeader);
  app.add_option("--proxy", options.proxyPort,
                 "Port of a forward proxy on 127.0.0.1, 0 for any; records what passes")
      ->check(CLI::Range(0, 65535));
}

void AddEnvironmentOptions(CLI::App& app, Options& options) {
  app.add_option("--dir", options.folder, "Folder that keeps keys and rooms")
      ->required()
      ->check(CryptStand::CheckFolder);
  app.add_option("--key-servers", options.keyServers, "Number of key servers")->check(CLI::Range(1, 100));
  app.add_option("--port", options.port, "Port of the crypt service; the key servers take those after it")
      ->check(CLI::Range(1, 65535));
  app.add_option("--room", options.rooms, "A room; may be given several times")
      ->allow_extra_args(false)
      ->check(CryptStand::CheckRoom);
  app.add_option("--record", options.recordFile,
                 "File that each exchange is appended to as JSON, with all secrets of the environment");
}

ExitCode Run(const Options& options, UrlFile urlFile, bool stopAtEof) {
  std::signal(SIGPIPE, SIG_IGN);  // the servers go on when nobody reads the program's output any more
  // Before the servers start their threads, which inherit the mask: only sigwait() gets the signals then.
  const sigset_t signals = BlockEndSignals();
  if (stopAtEof) StopAtEndOfInput();
  std::string error;
  if (!urlFile.Check(options.folder, error)) return Fail(error, ExitCode::Folder);
  std::optional<Stand> stand(std::in_place, options);
  std::string reason;
  const bool isReserved = stand->Reserve(reason);
  // The addresses may be those of the environment that uses the folder.
  const bool isRemovable = stand->GetStartFailure() != CryptStand::StartFailure::FolderInUse;
  if (isRemovable && !urlFile.RemoveOld(error)) return Fail(error, ExitCode::Folder);
  if (!isReserved) return Fail(reason, ExitCodeOf(stand->GetStartFailure()));
  CryptStand::PrintStart(options);
  const ExitCode code = Serve(*stand, options, urlFile, signals);
  stand.reset();  // whoever reads that it has stopped may start another one in the folder
  if (code == ExitCode::Success) std::cout << "cryptstand: stopped\n" << std::flush;
  return code;
}

ExitCode RunCommand(int argc, char** argv) {
  CLI::App app(
      "A local test environment: a crypt service and key servers on 127.0.0.1. Its keys are unencrypted "
      "in its folder.");
  Options options;
  AddEnvironmentOptions(app, options);
  std::string urlFile;
  app.add_option("--url-file", urlFile, "File that gets the addresses as JSON once all servers are up");
  app.add_option("--control-token", options.controlToken, "What changes need; random if left out")
      ->check(CryptStand::CheckControlToken);
  app.add_option("--allow-host", options.allowedHosts, "Another name of this machine for the page")
      ->allow_extra_args(false)
      ->check(CryptStand::CheckAllowedHost);
  AddNetworkOptions(app, options);
  bool stopAtEof = false;
  app.add_flag("--stop-at-eof", stopAtEof, "Stop when the standard input ends: for a parent that may crash");
  app.add_option(
         "--seed", options.seed,
         "Derives the serial numbers of certificates and the probabilities of faults from this number; "
         "keys, signatures and tokens stay random")
      ->check(CryptStand::CheckSeed);
  app.set_version_flag("--version", CryptStand::DescribeVersion());
  app.footer(CryptStand::DescribeExitCodes());
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const std::vector<std::string> unknown = app.remaining();
    // Help and version come as such errors, too; the parser's own codes are not part of our interface.
    if (error.get_exit_code() == 0 || unknown.empty())
      return app.exit(error) == 0 ? ExitCode::Success : ExitCode::Usage;
    // The parser would name a required option even if it is there and misspelt. The value may be a secret.
    const std::string word = unknown.front().substr(0, unknown.front().find('='));
    std::cerr << "cryptstand: unknown argument \"" << word << "\"; --help lists all options\n";
    return ExitCode::Usage;
  }
  return Run(options, UrlFile(urlFile), stopAtEof);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    OpenStandardDescriptors();
    return static_cast<int>(RunCommand(argc, argv));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "cryptstand: %s\n", error.what());
    return static_cast<int>(ExitCode::Failed);
  }
}
