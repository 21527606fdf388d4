// Measures the merge of audit logs: CPU and elapsed time as ratios to cat of the same files, in one run on
// one machine, and peak memory.
//
//   audit_log_bench [--size MIB] [--servers N] [--runs N] [--dir DIR] [--crlf]
//
// Both read the same files from the page cache and write one new file. The transport delivers a log by giving
// the file a second name (a hard link), so that no copy of its own is counted. DIR must be on a disk file
// system with space for three times the size. --crlf ends the lines of the logs with CR LF: the merge drops
// the CR, cat does not.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "bench/arguments.h"
#include "bench/process.h"
#include "bench/uncounted_http.h"
#include "client/cryptcli.h"
#include "foundation/format.h"

using Bench::Median;
using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using OruGuiBase::Val;
namespace fs = std::filesystem;

namespace {

constexpr std::size_t kMiB = 1024UL * 1024;
constexpr const char* kServiceUrl = "bench://service";

struct Options {
  std::size_t mib = 1024;
  std::size_t servers = 4;
  int runs = 5;
  std::string dir = ".";
  bool crlf = false;
};

std::string LogName(const std::string& dir, std::size_t server) {
  return dir + "/server-" + std::to_string(server) + ".csv";
}

// ---- The logs

std::string Row(std::uint64_t number) {
  char row[256];
  std::snprintf(
      row, sizeof row,
      "2026-03-%02u %02u:%02u:%02u,user-%llu@example.org,\"%s\",room %llu,192.0.2.%llu,%llx,%s",
      static_cast<unsigned>(number % 28 + 1), static_cast<unsigned>(number / 3600 % 24),
      static_cast<unsigned>(number / 60 % 60), static_cast<unsigned>(number % 60),
      static_cast<unsigned long long>(number * 7919 % 5000),
      number % 5 == 0 ? "key exported, wrapped again" : "signed",
      static_cast<unsigned long long>(number * 104729 % 900), static_cast<unsigned long long>(number % 254),
      static_cast<unsigned long long>(number * 0x9E3779B97F4A7C15U), number % 11 == 0 ? "refused" : "ok");
  return row;
}

bool MakeLog(const std::string& path, std::size_t size, const char* lineEnd) {
  std::ofstream file(path, std::ios::binary);
  std::string chunk = std::string("time,user,action,object,address,request,outcome") + lineEnd;
  std::size_t written = 0;
  for (std::uint64_t number = 0; written < size && file; ++number) {
    chunk += Row(number) + lineEnd;
    if (chunk.size() < kMiB && written + chunk.size() < size) continue;
    file.write(chunk.data(), static_cast<std::streamsize>(chunk.size()));
    written += chunk.size();
    chunk.clear();
  }
  return file.good();
}

// ---- The merge, in a process of its own, so that its peak memory is that of the merge

/// A crypt service and key servers in this process, each with a log.
class LogService final : public Bench::UncountedHttp {
 public:
  LogService(std::string dir, std::size_t servers) : dir_(std::move(dir)), servers_(servers) {}

  std::int32_t SendRequest(const AnsiStr&, const AnsiStr&, const KVMap&, const AnsiStr&,
                           const OruKalvix::HttpOptions&, OruKalvix::HttpResponse& response) override {
    response.status = 200;
    response.headers.Set("Date", "Sun, 06 Nov 1994 08:49:37 GMT");
    if (response.targetFile.IsEmpty()) {
      response.body = R"({"authztoken":"token"})";
      return 0;
    }
    response.headers.Set("Content-Type", "text/csv; charset=utf-8");
    return HandOver(response.targetFile.GetText()) ? 0 : -1;
  }

 private:
  bool HandOver(const std::string& target) {
    if (next_ == servers_) return false;
    std::error_code error;
    fs::create_hard_link(LogName(dir_, next_++), target + ".log", error);
    if (!error) fs::rename(target + ".log", target, error);
    return !error;
  }

  std::string dir_;
  std::size_t servers_;
  std::size_t next_ = 0;
};

KVMap Arguments(std::size_t servers) {
  OruGuiBase::Array<Val> urls;
  for (std::size_t i = 0; i < servers; ++i) urls.Append(Val(OruGuiBase::FmtArgs("bench://key-%zu", i)));
  KVMap arguments;
  arguments.Set("keyserver", Val(urls));
  arguments.Set("group", "QOB.1");
  arguments.Set("groupname", "bench");
  return arguments;
}

// Prints CPU seconds, elapsed seconds, peak memory and the name of the merged log.
int RunMerge(const std::string& dir, std::size_t servers) {
  LogService service(dir, servers);
  const KVMap arguments = Arguments(servers);
  Val result;
  AnsiStr error;
  const double cpu = Bench::OwnCpuSeconds();
  const auto begin = std::chrono::steady_clock::now();
  const std::int32_t status = OruKalvix::CryptClient::PerformOperation(
      &service, kServiceUrl, "", "GetAuditLog", arguments, result, error);
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - begin;
  const double cpuSeconds = Bench::OwnCpuSeconds() - cpu;
  if (status != 0 || !error.IsEmpty()) {
    std::fprintf(stderr, "audit_log_bench: %s\n", error.GetText());
    return 1;
  }
  std::printf("%f %f %ld %s\n", cpuSeconds, wall.count(), Bench::OwnPeakKiB(),
              result.AsMap().Get("filename").AsString().GetText());
  return 0;
}

// ---- The comparison

struct Series {
  std::vector<double> mergeCpu, mergeWall, catCpu, catWall;
  long peakKiB = 0;
};

// Compares with the expected result: the first log, then every other one without its header.
bool IsMerged(const Options& options, const std::string& dir, const std::string& merged) {
  std::string command = "{ cat '" + LogName(dir, 0) + "'";
  for (std::size_t i = 1; i < options.servers; ++i) command += "; tail -n +2 '" + LogName(dir, i) + "'";
  command += options.crlf ? "; } | tr -d '\\r'" : "; }";
  return Bench::RunProcess({"sh", "-c", command + " | cmp -s - '" + merged + "'"}).ok;
}

bool MeasureMerge(const Options& options, const std::string& dir, Series& series) {
  const Bench::Usage usage =
      Bench::RunProcess({Bench::OwnProgram(), "--merge", dir, std::to_string(options.servers)});
  double cpu = 0;
  double wall = 0;
  long peakKiB = 0;
  int name = 0;
  if (!usage.ok || std::sscanf(usage.output.c_str(), "%lf %lf %ld %n", &cpu, &wall, &peakKiB, &name) != 3)
    return false;
  std::string merged = usage.output.substr(static_cast<std::size_t>(name));
  if (merged.ends_with('\n')) merged.pop_back();
  const bool right = !series.mergeCpu.empty() || IsMerged(options, dir, merged);
  series.mergeCpu.push_back(cpu);
  series.mergeWall.push_back(wall);
  series.peakKiB = std::max(series.peakKiB, peakKiB);
  return fs::remove(merged) && right;
}

bool MeasureCat(const Options& options, const std::string& dir, Series& series) {
  const std::string target = dir + "/cat.csv";
  std::string command = "exec cat";
  for (std::size_t i = 0; i < options.servers; ++i) command += " '" + LogName(dir, i) + "'";
  const Bench::Usage usage = Bench::RunProcess({"sh", "-c", command + " >'" + target + "'"});
  series.catCpu.push_back(usage.cpuSeconds);
  series.catWall.push_back(usage.wallSeconds);
  return usage.ok && fs::remove(target);
}

// Writes of one measurement must reach the disk before the next one starts.
bool Settle(const Options& options, const std::string& dir) {
  ::sync();
  bool ok = Bench::FillPageCache(dir + "/holes");
  for (std::size_t i = 0; ok && i < options.servers; ++i) ok = Bench::ReadThrough(LogName(dir, i));
  return ok;
}

void Report(const Options& options, const Series& series) {
  const double mergeCpu = Median(series.mergeCpu);
  const double mergeWall = Median(series.mergeWall);
  const double catCpu = Median(series.catCpu);
  const double catWall = Median(series.catWall);
  std::printf("%zu MiB from %zu key servers, line ends %s, median of %d runs\n", options.mib, options.servers,
              options.crlf ? "CR LF" : "LF", options.runs);
  std::printf("CPU:     merge %.3f s, cat %.3f s; the merge runs at %.2f times the speed of cat\n", mergeCpu,
              catCpu, catCpu / mergeCpu);
  std::printf("elapsed: merge %.3f s, cat %.3f s; the merge runs at %.2f times the speed of cat\n", mergeWall,
              catWall, catWall / mergeWall);
  std::printf("peak memory of the merge: %.1f MiB\n", static_cast<double>(series.peakKiB) / 1024);
}

bool RunAll(const Options& options, const std::string& dir) {
  for (std::size_t i = 0; i < options.servers; ++i) {
    if (!MakeLog(LogName(dir, i), options.mib * kMiB / options.servers, options.crlf ? "\r\n" : "\n"))
      return false;
  }
  Series series;
  for (int run = 0; run < options.runs; ++run) {
    if (!Settle(options, dir) || !MeasureMerge(options, dir, series)) return false;
    if (!Settle(options, dir) || !MeasureCat(options, dir, series)) return false;
  }
  Report(options, series);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 4 && std::strcmp(argv[1], "--merge") == 0)
    return RunMerge(argv[2], std::strtoull(argv[3], nullptr, 10));
  Options options;
  Bench::Arguments arguments("What merging audit logs costs", "audit_log_bench");
  arguments.AddCount("--size", options.mib, "size of all logs in MiB");
  arguments.AddCount("--servers", options.servers, "logs to merge");
  arguments.AddCount("--runs", options.runs, "number of runs; the median is reported");
  arguments.AddDirectory("--dir", options.dir, "where the files are made");
  arguments.AddFlag("--crlf", options.crlf, "end the logs' lines with CR LF");
  if (const auto status = arguments.Parse(argc, argv)) return *status;
  const Bench::WorkFolder folder(options.dir, "audit_log_bench");  // The merge's files lie beside the logs.
  if (!folder.IsThere()) return 1;
  const bool ok = RunAll(options, folder.GetPath());
  if (!ok) std::fprintf(stderr, "audit_log_bench: a step failed\n");
  return ok ? 0 : 1;
}
