// Protects and opens files of random sizes on several threads over one transport for a limited time, while
// the servers of a local test environment fail in random ways. Every success must be byte-identical and
// verified, every failure must have a reason; without a fault nothing may fail; memory and descriptors must
// stay constant.
//
//   soak [--seconds N] [--threads N] [--seed N] [--dir DIR]
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "bench/arguments.h"
#include "bench/process.h"
#include "bench/storm.h"
#include "client/cryptcli.h"
#include "transport/curlhttp.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using OruGuiBase::AnsiStr;
using OruGuiBase::File;
using OruKalvix::CryptClient;

struct Options {
  int seconds = 1200;
  int threads = 4;
  unsigned seed = 1;
  std::string dir = ".";
};

struct Tally {
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
  std::uint64_t protectFailures = 0;
  std::uint64_t openFailures = 0;
  std::uint64_t unverified = 0;
  std::uint64_t calm = 0;  ///< operations during which no fault was set
  std::vector<std::string> violations;
  std::map<std::string, std::uint64_t> reasons;
};

/// What all threads share; outlives them.
struct Run {
  const Bench::Weather& weather;
  AnsiStr serviceUrl;
  OruKalvix::ICryptClientHttp* http;
  std::string dir;
  Clock::time_point end;
  std::mutex mutex{};
  Tally tally{};

  void Violate(const std::string& what) {
    const std::lock_guard lock(mutex);
    tally.violations.push_back(what);
  }
};

// Most files are small, some are empty, some take several chunks.
std::size_t RandomSize(std::mt19937& random) {
  const auto dice = random() % 20;
  if (dice == 0) return 0;
  if (dice < 12) return random() % 10000;
  if (dice < 19) return random() % 600000;
  return random() % 6000000;
}

std::string RandomBytes(std::mt19937& random, std::size_t size) {
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

std::string ReadAll(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// The reason without its digits, so that messages about different ports or sizes are counted as one.
std::string WithoutDigits(const std::string& reason) {
  std::string kept = reason.substr(0, 70);
  std::erase_if(kept, [](char c) { return c >= '0' && c <= '9'; });
  return kept;
}

/// One thread's work.
class Worker {
 public:
  Worker(Run& run, unsigned number, unsigned seed)
      : run_(run), random_(seed * 1000 + number), base_(run.dir + "/" + std::to_string(number)) {}

  void Work() {
    while (Clock::now() < run_.end) {
      const std::string bytes = RandomBytes(random_, RandomSize(random_));
      std::ofstream(base_ + ".plain", std::ios::binary) << bytes;
      if (Protect()) Open(bytes);
      const std::lock_guard lock(run_.mutex);
      ++run_.tally.files;
      run_.tally.bytes += bytes.size();
    }
  }

 private:
  File At(const char* ending) const { return File(AnsiStr((base_ + ending).c_str())); }

  bool Protect() {
    bool keyError = false;
    const std::uint64_t season = run_.weather.season;
    CryptClient client(run_.http, run_.serviceUrl, "", "demo");
    const bool done = client.Encrypt(At(".plain"), At(".secret"), keyError);
    Judge(done, season, "Encrypt", client.GetErrorMessage());
    if (!done) Count(&Tally::protectFailures);
    return done;
  }
  void Open(const std::string& bytes) {
    bool isSigned = false;
    bool isVerified = false;
    const std::uint64_t season = run_.weather.season;
    CryptClient client(run_.http, run_.serviceUrl, "", "demo");
    const bool done = client.Decrypt(At(".secret"), At(".opened"), isSigned, isVerified);
    Judge(done && isVerified, season, "Decrypt", client.GetErrorMessage());
    if (!done) return Count(&Tally::openFailures);
    if (!isVerified) Count(&Tally::unverified);
    if (!isSigned) run_.Violate("the signature is gone");
    if (ReadAll(base_ + ".opened") != bytes) run_.Violate("the bytes are not the same");
  }
  void Count(std::uint64_t Tally::*member) {
    const std::lock_guard lock(run_.mutex);
    ++(run_.tally.*member);
  }
  void Judge(bool done, std::uint64_t season, const char* operation, const AnsiStr& error) {
    // The same even number before and after: no fault was set at any moment of the operation.
    const bool wasCalm = season % 2 == 0 && run_.weather.season == season;
    const std::string reason = error.GetText();
    const std::lock_guard lock(run_.mutex);
    if (wasCalm) ++run_.tally.calm;
    if (done) return;
    ++run_.tally.reasons[WithoutDigits(reason)];
    if (reason.empty()) run_.tally.violations.push_back(std::string(operation) + " failed without a reason");
    if (wasCalm) run_.tally.violations.push_back(std::string(operation) + " failed in calm: " + reason);
  }

  Run& run_;
  std::mt19937 random_;
  std::string base_;
};

struct Sample {
  long residentKiB = 0;
  long descriptors = 0;
};

Sample TakeSample() {
  Sample sample;
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmRSS:")) sample.residentKiB = std::atol(line.c_str() + 6);
  }
  sample.descriptors = std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  return sample;
}

/// The maximum of each value over a part of the run.
Sample Largest(const std::vector<Sample>& samples, std::size_t from, std::size_t to) {
  Sample largest;
  for (std::size_t i = from; i < to; ++i) {
    largest.residentKiB = std::max(largest.residentKiB, samples[i].residentKiB);
    largest.descriptors = std::max(largest.descriptors, samples[i].descriptors);
  }
  return largest;
}

// Constant means: the last quarter of the run needs no more than the second did, with a margin of 10 % and of
// what one more file in progress takes.
bool ReportGrowth(const std::vector<Sample>& samples) {
  const std::size_t quarter = samples.size() / 4;
  if (quarter == 0) return true;
  const Sample early = Largest(samples, quarter, 2 * quarter);
  const Sample late = Largest(samples, samples.size() - quarter, samples.size());
  std::printf("resident memory: second quarter %ld KiB, last %ld KiB\n", early.residentKiB, late.residentKiB);
  std::printf("descriptors: second quarter %ld, last %ld\n", early.descriptors, late.descriptors);
  return late.residentKiB < early.residentKiB * 11 / 10 + 8192 && late.descriptors <= early.descriptors + 8;
}

// Temporary files, and staging files that were left beside their targets.
std::size_t CountLeftovers(const std::string& dir, const std::string& temporary) {
  const auto inTemporary = std::distance(fs::directory_iterator(temporary), fs::directory_iterator());
  const auto hidden = std::count_if(
      fs::directory_iterator(dir), fs::directory_iterator(),
      [](const fs::directory_entry& entry) { return entry.path().filename().string().starts_with("."); });
  return static_cast<std::size_t>(inTemporary + hidden);
}

int Report(const Run& run, const std::vector<Sample>& samples, const std::string& temporary) {
  const Tally& tally = run.tally;
  std::printf("%lu files, %.1f MiB, %lu faults set\n", tally.files,
              static_cast<double>(tally.bytes) / (1024 * 1024), run.weather.faults.load());
  std::printf("failed: %lu of Encrypt, %lu of Decrypt; opened without proof of origin, as reported: %lu\n",
              tally.protectFailures, tally.openFailures, tally.unverified);
  std::printf("operations without any fault: %lu\n", tally.calm);
  for (const auto& [reason, count] : tally.reasons) std::printf("  %6lu %s\n", count, reason.c_str());
  const bool isFlat = ReportGrowth(samples);
  const std::size_t leftovers = CountLeftovers(run.dir, temporary);
  std::printf("temporary and staging files left: %zu\n", leftovers);
  for (const std::string& violation : tally.violations) std::printf("VIOLATION: %s\n", violation.c_str());
  return tally.violations.empty() && isFlat && leftovers == 0 && tally.files > 0 ? 0 : 1;
}

// Makes the room's key before the threads start: if several make it at once, the service accepts only one,
// and the others fail without a fault.
bool MakeRoomKey(const Run& run) {
  bool keyError = false;
  std::ofstream(run.dir + "/first") << "first";
  const AnsiStr path((run.dir + "/first").c_str());
  return CryptClient(run.http, run.serviceUrl, "", "demo").Encrypt(File(path), File(path), keyError);
}

int Fail(const char* reason) {
  std::fprintf(stderr, "soak: %s\n", reason);
  return 1;
}

int RunAll(const Options& options, const std::string& dir) {
  const std::string temporary = dir + "/tmp";
  fs::create_directory(temporary);
  ::setenv("TMPDIR", temporary.c_str(), 1);
  Bench::Storm storm;
  AnsiStr reason;
  if (!storm.Start(options.seed)) return Fail("the servers cannot be started");
  const auto http = OruKalvix::CryptClientCurl::Create({}, reason);
  if (http == nullptr) return Fail(reason.GetText());
  Run run{storm.GetWeather(), AnsiStr(storm.GetServiceUrl().c_str()), http.get(), dir,
          Clock::now() + std::chrono::seconds(options.seconds)};
  if (!MakeRoomKey(run)) return Fail("the room's key cannot be made");
  std::vector<std::thread> threads;
  threads.reserve(static_cast<std::size_t>(options.threads));
  for (int i = 0; i < options.threads; ++i)
    threads.emplace_back([&run, &options, i] { Worker(run, static_cast<unsigned>(i), options.seed).Work(); });
  std::vector<Sample> samples;
  while (Clock::now() < run.end) {
    std::this_thread::sleep_for(std::chrono::seconds(1));
    samples.push_back(TakeSample());
  }
  for (std::thread& thread : threads) thread.join();
  return Report(run, samples, temporary);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  Bench::Arguments arguments("Files of random sizes there and back while servers fail", "soak");
  arguments.AddCount("--seconds", options.seconds, "how long");
  arguments.AddCount("--threads", options.threads, "threads of clients");
  arguments.AddSeed("--seed", options.seed, "start value of all random numbers");
  arguments.AddDirectory("--dir", options.dir, "where the files are made");
  if (const auto status = arguments.Parse(argc, argv)) return *status;
  const Bench::WorkFolder folder(options.dir, "soak");
  if (!folder.IsThere()) return 1;
  return RunAll(options, folder.GetPath());
}
