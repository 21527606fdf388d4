// Measures what the C interface costs over the class: CPU time of protecting and opening a file through each,
// as a ratio in one run on one machine. Servers are in this process, and the time that they take is left out.
//
//   c_layer_bench [--rounds N] [--dir DIR] [--size BYTES]
//   c_layer_bench --only c|class --size BYTES --times N    one side alone, for a profiler
#include <algorithm>
#include <cryptcli/cryptcli.h>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "bench/arguments.h"
#include "bench/process.h"
#include "bench/service.h"
#include "client/cryptcli.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::File;
using OruGuiBase::KVMap;

namespace {

struct Settings {
  int rounds = 31;
  std::string dir = ".";
  std::string only;
  std::size_t size = 0;  ///< 0 for the usual ones
  unsigned times = 1;
};

// ---- The servers

/// The service, and how much CPU time it has taken: that would be spent on other machines.
class TimedService final : public Bench::UncountedHttp {
 public:
  std::int32_t SendRequest(const AnsiStr& method, const AnsiStr& url, const KVMap& headers,
                           const AnsiStr& body, const OruKalvix::HttpOptions& options,
                           OruKalvix::HttpResponse& response) override {
    const double begin = Bench::ThreadCpuSeconds();
    const std::int32_t result = service_.SendRequest(method, url, headers, body, options, response);
    seconds_ += Bench::ThreadCpuSeconds() - begin;
    return result;
  }
  double GetSeconds() const { return seconds_; }

 private:
  Bench::Service service_;
  double seconds_ = 0;
};

// ---- The two sides

/// Protects "plain" as "secret" and opens that as "opened", in one directory.
class Side {
 public:
  Side(const Side&) = delete;
  Side& operator=(const Side&) = delete;
  virtual ~Side() = default;
  virtual bool Run() = 0;

 protected:
  Side(TimedService& service, const std::string& dir)
      : service_(service), plain_(dir + "/plain"), secret_(dir + "/secret"), opened_(dir + "/opened") {}

  TimedService& service_;
  std::string plain_;
  std::string secret_;
  std::string opened_;
};

/// As an application uses the class: a client for each operation.
class ClassSide final : public Side {
 public:
  ClassSide(TimedService& service, const std::string& dir) : Side(service, dir) {}

  bool Run() override {
    bool keyError = false;
    bool isSigned = false;
    bool isVerified = false;
    OruKalvix::CryptClient there(&service_, Bench::Service::kUrl, AnsiStr(), Bench::Service::kRoom);
    if (!there.Encrypt(File(plain_.c_str()), File(secret_.c_str()), keyError)) return false;
    OruKalvix::CryptClient back(&service_, Bench::Service::kUrl, AnsiStr(), Bench::Service::kRoom);
    return back.Decrypt(File(secret_.c_str()), File(opened_.c_str()), isSigned, isVerified) && isVerified;
  }
};

class CSide final : public Side {
 public:
  CSide(TimedService& service, const std::string& dir) : Side(service, dir) {
    cryptcli_options* const options = cryptcli_options_new();
    cryptcli_options_set_service(options, Bench::Service::kUrl, nullptr);
    cryptcli_options_set_transport(options, &CSide::Send, &service_);
    cryptcli_client_new(options, &client_, nullptr);
    cryptcli_options_free(options);
  }
  CSide(const CSide&) = delete;
  CSide& operator=(const CSide&) = delete;
  ~CSide() override { cryptcli_client_free(client_); }

  bool Run() override {
    cryptcli_report* report = nullptr;
    cryptcli_error* error = nullptr;
    const bool done =
        cryptcli_encrypt(client_, Bench::Service::kRoom, cryptcli_path(plain_.c_str()),
                         cryptcli_path(secret_.c_str()), nullptr, nullptr, &error) == CRYPTCLI_OK &&
        cryptcli_decrypt(client_, Bench::Service::kRoom, cryptcli_path(secret_.c_str()),
                         cryptcli_path(opened_.c_str()), nullptr, &report, &error) == CRYPTCLI_OK;
    if (!done) std::fprintf(stderr, "c_layer_bench: %s\n", cryptcli_error_message(error));
    cryptcli_error_free(error);
    cryptcli_report_free(report);
    return done;
  }

 private:
  static std::int32_t Send(void* context, const cryptcli_request* request, cryptcli_response* response) {
    std::size_t size = 0;
    const auto* body = static_cast<const char*>(cryptcli_request_body(request, &size));
    OruKalvix::HttpResponse given;
    static_cast<TimedService*>(context)->SendRequest(
        cryptcli_request_method(request), cryptcli_request_url(request), KVMap(),
        AnsiStr(body, static_cast<std::uint32_t>(size)), OruKalvix::HttpOptions(), given);
    cryptcli_response_set_status(response, given.status);
    cryptcli_response_add_header(response, "Date", given.headers.Get("Date").AsString().GetText());
    return cryptcli_response_append_body(response, given.body.GetText(), given.body.GetLength());
  }

  cryptcli_client* client_ = nullptr;
};

// ---- The measurement

bool MakePlain(const std::string& dir, std::size_t size) {
  std::ofstream file(dir + "/plain", std::ios::binary);
  for (std::size_t i = 0; i < size; ++i) file.put(static_cast<char>(i * 2654435761U >> 24U));
  file.close();
  return file.good();
}

/// Microseconds of the client's own CPU time for one run; negative on failure.
double Measure(Side& side, const TimedService& service, unsigned times) {
  const double servers = service.GetSeconds();
  const double begin = Bench::ThreadCpuSeconds();
  for (unsigned i = 0; i < times; ++i) {
    if (!side.Run()) return -1;
  }
  const double spent = Bench::ThreadCpuSeconds() - begin - (service.GetSeconds() - servers);
  return spent / times * 1e6;
}

// Batches alternate, so that a busy moment of the machine affects both sides alike; which one is first
// alternates, too.
bool Compare(const Settings& settings, const std::string& dir, std::size_t size) {
  constexpr double kBatchMicroseconds = 50'000;
  TimedService service;
  ClassSide ofClass(service, dir);
  CSide ofC(service, dir);
  if (!MakePlain(dir, size)) return false;
  const double first = Measure(ofClass, service, 2);
  if (first < 0 || Measure(ofC, service, 2) < 0) return false;
  const auto times = static_cast<unsigned>(std::clamp(kBatchMicroseconds / first, 1.0, 1000.0));
  std::vector<double> classTimes;
  std::vector<double> cTimes;
  std::vector<double> ratios;
  for (int round = 0; round < settings.rounds; ++round) {
    const bool isClassFirst = round % 2 == 0;
    const double one = Measure(isClassFirst ? static_cast<Side&>(ofClass) : ofC, service, times);
    const double two = Measure(isClassFirst ? static_cast<Side&>(ofC) : ofClass, service, times);
    if (one < 0 || two < 0) return false;
    classTimes.push_back(isClassFirst ? one : two);
    cTimes.push_back(isClassFirst ? two : one);
    ratios.push_back(cTimes.back() / classTimes.back());
  }
  std::printf("%9zu bytes: class %10.1f us, C interface %10.1f us, ratio %.3f (least times: %.3f)\n", size,
              Bench::Median(classTimes), Bench::Median(cTimes), Bench::Median(ratios),
              *std::min_element(cTimes.begin(), cTimes.end()) /
                  *std::min_element(classTimes.begin(), classTimes.end()));
  return true;
}

bool CompareAll(const Settings& settings, const std::string& dir) {
  if (settings.size != 0) return Compare(settings, dir, settings.size);
  for (const std::size_t size : {1024UL, 64UL * 1024, 16UL * 1024 * 1024}) {
    if (!Compare(settings, dir, size)) return false;
  }
  return true;
}

bool RunOnly(const Settings& settings, const std::string& dir) {
  TimedService service;
  if (!MakePlain(dir, settings.size)) return false;
  std::unique_ptr<Side> side;
  if (settings.only == "c") {
    side = std::make_unique<CSide>(service, dir);
  } else {
    side = std::make_unique<ClassSide>(service, dir);
  }
  return Measure(*side, service, settings.times) >= 0;
}

}  // namespace

int main(int argc, char** argv) {
  Settings settings;
  Bench::Arguments arguments("What the C interface costs over the class", "c_layer_bench");
  arguments.AddCount("--rounds", settings.rounds, "number of rounds; medians are reported");
  arguments.AddDirectory("--dir", settings.dir, "where the files are made");
  const auto isSide = [&](const std::string& side) {
    settings.only = side;
    return side == "c" || side == "class";
  };
  arguments.AddText("--only", isSide, "c or class", "one side alone");
  arguments.AddSize("--size", settings.size, "bytes of the file; 1 KiB, 64 KiB and 16 MiB otherwise");
  arguments.AddCount("--times", settings.times, "how often, with --only");
  if (const auto status = arguments.Parse(argc, argv)) return *status;
  const Bench::WorkFolder folder(settings.dir, "c_layer_bench");
  if (!folder.IsThere()) return 1;
  const bool ok =
      settings.only.empty() ? CompareAll(settings, folder.GetPath()) : RunOnly(settings, folder.GetPath());
  if (!ok) std::fprintf(stderr, "c_layer_bench: an operation failed\n");
  return ok ? 0 : 1;
}
