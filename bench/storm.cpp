// The servers of the soak test, in a child process: it alternates between times without any fault and times
// with random ones.
#include "bench/storm.h"

#include <chrono>
#include <csignal>
#include <new>
#include <random>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "stand/stand.h"

namespace Bench {
namespace {

using CryptStand::Fault;
using CryptStand::FaultType;
using CryptStand::Stand;

constexpr int kServers = 3;
// Long enough for whole operations without a fault.
constexpr auto kCalm = std::chrono::seconds(4);
// Faults change often, so that many combinations are tried. Twelve gusts make the storm, at six seconds, a
// little longer than the calm.
constexpr auto kGust = std::chrono::milliseconds(500);
constexpr int kGusts = 12;

// Faults that concern every operation. Those of audit logs and tokens alone are left to the tests.
constexpr FaultType kTypes[] = {
    FaultType::Down,         FaultType::Slow,      FaultType::Status,       FaultType::MissingDate,
    FaultType::BrokenJson,   FaultType::JsonArray, FaultType::JsonNumber,   FaultType::JsonDeep,
    FaultType::JsonNotUtf8,  FaultType::EmptyBody, FaultType::WrongType,    FaultType::ErrorCode,
    FaultType::BadSignature, FaultType::BadBase64, FaultType::EmptyMembers, FaultType::OtherMembers,
    FaultType::Cut,
};

// Error codes reach beyond the documented ones at both ends. Only a server that is down stays so until the
// next gust: any other fault passes after a few uses, so that failing over is tried as well as failing.
Fault RandomFault(std::mt19937& random) {
  Fault fault;
  fault.type = kTypes[random() % std::size(kTypes)];
  if (fault.type == FaultType::Slow) fault.number = static_cast<int>(random() % 100);
  if (fault.type == FaultType::Status) fault.number = random() % 2 == 0 ? 500 : 403;
  if (fault.type == FaultType::ErrorCode) fault.number = 600 + static_cast<int>(random() % 30);
  if (fault.type != FaultType::Down) fault.uses = 1 + static_cast<int>(random() % 5);
  return fault;
}

void ClearAll(Stand& stand) {
  stand.ClearFaults(CryptStand::kCryptService);
  for (int server = 0; server < kServers; ++server) stand.ClearFaults(server);
}

// One fault in six is the crypt service's: rarer, since no other server can replace it.
void Blow(Stand& stand, Weather& weather, std::mt19937& random) {
  ClearAll(stand);
  for (auto i = random() % 4; i > 0; --i) {
    const bool isService = random() % 6 == 0;
    const int server = isService ? CryptStand::kCryptService : static_cast<int>(random() % kServers);
    if (stand.SetFault(server, RandomFault(random))) ++weather.faults;
  }
  std::this_thread::sleep_for(kGust);
}

// Dies with its parent, so that an interrupted soak test leaves no servers running.
[[noreturn]] void RunStand(int urlPipe, Weather& weather, unsigned seed) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  Stand stand;
  std::string error;
  if (!stand.Start(error)) ::_exit(1);
  const std::string url = stand.GetServiceUrl();
  if (::write(urlPipe, url.data(), url.size()) != static_cast<ssize_t>(url.size())) ::_exit(1);
  ::close(urlPipe);
  std::mt19937 random(seed);
  for (;;) {
    std::this_thread::sleep_for(kCalm);
    ++weather.season;
    for (int gust = 0; gust < kGusts; ++gust) Blow(stand, weather, random);
    ClearAll(stand);
    ++weather.season;
  }
}

}  // namespace

bool Storm::Start(unsigned seed) {
  void* const memory =
      ::mmap(nullptr, sizeof(Weather), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  int ends[2];
  if (memory == MAP_FAILED || ::pipe(ends) != 0) return false;
  weather_ = new (memory) Weather;
  process_ = ::fork();
  if (process_ == 0) {
    ::close(ends[0]);
    RunStand(ends[1], *weather_, seed);
  }
  ::close(ends[1]);
  char text[256];
  for (ssize_t got; (got = ::read(ends[0], text, sizeof text)) > 0;)
    serviceUrl_.append(text, static_cast<std::size_t>(got));
  ::close(ends[0]);
  return !serviceUrl_.empty();
}

Storm::~Storm() {
  if (process_ <= 0) return;
  ::kill(process_, SIGKILL);
  ::waitpid(process_, nullptr, 0);
}

}  // namespace Bench
