// How many requests a second cryptstand serves to clients on keep-alive connections, and how much processor
// time it needs for one. With --against it runs a second program, such as an earlier build, one after another
// in the same run, and prints the ratio of the processor times, which is what holds on other machines.
//
//   stand_bench [--program FILE] [--against FILE] [--clients N] [--milliseconds N] [--rounds N]
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "bench/arguments.h"
#include "bench/keep_alive.h"
#include "bench/process.h"
#include "stand/wire.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using Bench::KeepAlive;

struct Options {
  std::string program;
  std::string against;
  std::string parent;  // of the folders; a WorkFolder becomes the process's folder for temporary files
  unsigned clients = 16;
  unsigned milliseconds = 500;
  unsigned rounds = 3;
};

/// A running cryptstand in a new folder; the destructor ends it.
class Server {
 public:
  Server(const std::string& program, const std::string& folder) {
    const std::string urls = folder + "/urls";
    process_ = ::fork();
    if (process_ == 0) {
      // An interrupted benchmark leaves no server running.
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
      const std::string state = folder + "/state";
      ::execl(program.c_str(), program.c_str(), "--dir", state.c_str(), "--url-file", urls.c_str(), nullptr);
      ::_exit(127);
    }
    // The program writes the file when it serves; if it ends before that, IsUp() is false.
    while (!fs::exists(urls) && ::waitpid(process_, nullptr, WNOHANG) == 0)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::ifstream file(urls);
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    const auto found = CryptStand::ReadObject(text).value_or(CryptStand::KVMap());
    service_ = CryptStand::ReadText(found, "service").value_or("");
    const auto servers = CryptStand::ReadTexts(found, "keyservers");
    if (servers.has_value() && !servers->empty()) keyServer_ = servers->front();
    ::clock_getcpuclockid(process_, &clock_);
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  ~Server() {
    ::kill(process_, SIGTERM);
    ::waitpid(process_, nullptr, 0);
  }

  bool IsUp() const { return !keyServer_.empty(); }
  const std::string& GetService() const { return service_; }
  const std::string& GetKeyServer() const { return keyServer_; }
  double CpuSeconds() const {
    timespec time{};
    ::clock_gettime(clock_, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
  }

 private:
  pid_t process_ = -1;
  clockid_t clock_{};
  std::string service_;
  std::string keyServer_;
};

/// One client: a connection to the crypt service and one to the first key server.
class Client {
 public:
  explicit Client(const Server& server)
      : url_(server.GetKeyServer()), crypt_(server.GetService()), key_(server.GetKeyServer()) {}

  bool GetStatus() { return key_.Get("/status") == "alive\n"; }
  bool GetCertStore() { return key_.Get("/certstore").starts_with("-----BEGIN"); }
  bool GetRoomKey() { return Text(crypt_.Get("/crypt/key/demo"), "room") == "demo"; }
  bool GetToken() { return !Token("signRequest", kHandle).empty(); }
  bool Sign() {
    const std::string hash = CryptStand::ToBase64(std::string(64, 'h'));
    return Command("signRequest", kHandle,
                   R"("signatureKey":)" + std::string(kHandle) +
                       R"(,"algorithm":"RSASSA-PKCS1-v1_5-SHA-512","hashesToBeSigned":[")" + hash + "\"]")
               .find("signResponse") != std::string::npos;
  }
  bool Decrypt(const std::string& wrapped, const std::string& block) {
    return Command("decryptRequest", "",
                   R"("decryptionKey":{"type":"wrappedKey","encodedWrappedKey":")" + wrapped +
                       R"("},"algorithm":"RSAES-PKCS1-v1_5","encryptedData":[")" + block + "\"]")
               .find("decryptResponse") != std::string::npos;
  }
  /// Makes the room's key; the wrapped key and a content key that it can decrypt.
  bool MakeRoomKey(std::string& wrapped, std::string& block) {
    const std::string sequence =
        Text(crypt_.Post("/crypt/certlist/demo", R"({"keyserver":""})", ""), "seqnr");
    const auto made = CryptStand::ReadObject(
        Command("generateWrappedKeyRequest", "",
                R"("keyType":"","certificateSubject":"CN=demo-tr","encryptionKeys":[])"));
    const auto payload = made.has_value() ? CryptStand::ReadMap(*made, "payload") : std::nullopt;
    if (!payload.has_value()) return false;
    wrapped = CryptStand::ReadText(*payload, "encodedWrappedKey").value_or("");
    const auto certificate =
        CryptStand::CertFromText(CryptStand::ReadText(*payload, "encodedX509Certificate").value_or(""));
    block = CryptStand::ToBase64(certificate.GetPublicKey().Encrypt(std::string(32, 'k')));
    const std::string body = R"({"seqnr":")" + sequence + R"(","key":")" + wrapped + "\"}";
    return !block.empty() && crypt_.Post("/crypt/newkey/demo", body, "") == "{}";
  }

 private:
  static constexpr const char* kHandle = R"({"type":"handle","id":"integrity","subId":"1"})";

  static std::string Text(const std::string& body, const char* name) {
    const auto object = CryptStand::ReadObject(body);
    return object.has_value() ? CryptStand::ReadText(*object, name).value_or("") : "";
  }
  std::string Token(const std::string& operation, const std::string& key) {
    const std::string member = key.empty() ? "" : ",\"key\":" + key;
    return Text(
        crypt_.Post("/crypt/authztoken/demo",
                    R"({"keyserver":")" + url_ + R"(","operation":")" + operation + "\"" + member + "}", ""),
        "authztoken");
  }
  std::string Command(const std::string& type, const std::string& key, const std::string& members) {
    const std::string body =
        R"({"header":{"type":"standardVelmoraHeader","commandId":"","sessionId":"","path":["java-api-instance"],)"
        R"("protocolVersion":"2.0"},"payload":{"type":")" +
        type + "\"," + members + "}}";
    return key_.Post("/rest/json", body, Token(type, key));
  }

  std::string url_;
  KeepAlive crypt_;
  KeepAlive key_;
};

struct Figures {
  std::vector<double> perSecond;
  std::vector<double> cpuMicroseconds;  // of the server, for one operation
};

// All clients do the same for a while. False if an operation fails.
bool Measure(const Server& server, const Options& options, const std::function<bool(Client&)>& operation,
             Figures& figures) {
  std::atomic<bool> good = true;
  std::atomic<std::uint64_t> count = 0;
  const double cpu = server.CpuSeconds();
  const auto begin = Clock::now();
  const auto end = begin + std::chrono::milliseconds(options.milliseconds);
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < options.clients; ++i) {
    threads.emplace_back([&] {
      // Connects within the measured time: two connections weigh nothing beside hundreds of requests.
      Client client(server);
      for (; good && Clock::now() < end; ++count) good = good && operation(client);
    });
  }
  for (std::thread& thread : threads) thread.join();
  const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
  const auto total = static_cast<double>(std::max<std::uint64_t>(count, 1));
  figures.perSecond.push_back(total / seconds);
  figures.cpuMicroseconds.push_back((server.CpuSeconds() - cpu) * 1e6 / total);
  return good;
}

struct Operation {
  const char* name;
  std::function<bool(Client&, const std::string& wrapped, const std::string& block)> run;
};

const std::vector<Operation>& AllOperations() {
  static const std::vector<Operation> operations = {
      {"status", [](Client& client, auto&, auto&) { return client.GetStatus(); }},
      {"certstore", [](Client& client, auto&, auto&) { return client.GetCertStore(); }},
      {"room key", [](Client& client, auto&, auto&) { return client.GetRoomKey(); }},
      {"token", [](Client& client, auto&, auto&) { return client.GetToken(); }},
      {"token, sign", [](Client& client, auto&, auto&) { return client.Sign(); }},
      {"token, decrypt", [](Client& client, const std::string& wrapped,
                            const std::string& block) { return client.Decrypt(wrapped, block); }},
  };
  return operations;
}

bool RunProgram(const std::string& program, const Options& options, std::vector<Figures>& figures) {
  const Bench::WorkFolder folder(options.parent, "stand_bench");
  const Server server(program, folder.GetPath());
  std::string wrapped;
  std::string block;
  if (!server.IsUp() || !Client(server).MakeRoomKey(wrapped, block)) return false;
  bool good = true;
  for (std::size_t i = 0; i < figures.size(); ++i) {
    const auto operation = [&](Client& client) { return AllOperations()[i].run(client, wrapped, block); };
    good = good && Measure(server, options, operation, figures[i]);
  }
  return good;
}

bool RunAll(const Options& options) {
  std::vector<Figures> figures(AllOperations().size());
  std::vector<Figures> others(figures.size());
  for (unsigned round = 0; round < options.rounds; ++round) {
    if (!RunProgram(options.program, options, figures)) return false;
    if (!options.against.empty() && !RunProgram(options.against, options, others)) return false;
  }
  std::printf("%u clients, median of %u rounds\n", options.clients, options.rounds);
  for (std::size_t i = 0; i < figures.size(); ++i) {
    const double cpu = Bench::Median(figures[i].cpuMicroseconds);
    std::printf("%-15s %8.0f a second  %8.1f us of the server's CPU", AllOperations()[i].name,
                Bench::Median(figures[i].perSecond), cpu);
    if (!options.against.empty()) {
      const double other = Bench::Median(others[i].cpuMicroseconds);
      std::printf("   against: %8.0f a second  %8.1f us, ratio %.2f", Bench::Median(others[i].perSecond),
                  other, other / cpu);
    }
    std::printf("\n");
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  options.program = fs::path(Bench::OwnProgram()).parent_path() / "../stand/cryptstand";
  options.parent = fs::temp_directory_path();
  Bench::Arguments arguments("Requests that cryptstand serves to many clients at once", "stand_bench");
  const auto takeTo = [](std::string& target) {
    return [&target](const std::string& text) { return fs::exists(target = text); };
  };
  arguments.AddText("--program", takeTo(options.program), "a file", "the cryptstand to measure");
  arguments.AddText("--against", takeTo(options.against), "a file", "another cryptstand to compare with");
  arguments.AddCount("--clients", options.clients, "clients at once, each with a connection to each server");
  arguments.AddCount("--milliseconds", options.milliseconds,
                     "how long each operation is measured in a round");
  arguments.AddCount("--rounds", options.rounds, "number of rounds; the median is reported");
  if (const auto status = arguments.Parse(argc, argv)) return *status;
  const bool ok = RunAll(options);
  if (!ok) std::fprintf(stderr, "stand_bench: cryptstand did not start, or a request failed\n");
  return ok ? 0 : 1;
}
