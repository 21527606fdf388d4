// Measures protecting and opening a file: CPU seconds as ratios to the arithmetic that cannot be avoided and
// to OpenSSL's cms tool doing the same work, in one run on one machine, and peak memory.
//
//   file_bench [--size MIB] [--runs N] [--dir DIR] [--no-tool]
//
// DIR must be on a disk file system with space for four times the size.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "bench/arguments.h"
#include "bench/limit.h"
#include "bench/process.h"
#include "bench/service.h"
#include "client/cryptcli.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::File;
namespace fs = std::filesystem;

namespace {

constexpr std::size_t kMiB = 1024UL * 1024;

struct Options {
  std::size_t mib = 1024;
  int runs = 5;
  std::string dir = ".";
  bool tool = true;
};

struct Paths {
  std::string plain, secret, opened, toolSigned, toolSecret, toolOpened, holes, pki;

  explicit Paths(const std::string& dir)
      : plain(dir + "/plain"),
        secret(dir + "/secret"),
        opened(dir + "/opened"),
        toolSigned(dir + "/tool.signed"),
        toolSecret(dir + "/tool.secret"),
        toolOpened(dir + "/tool.opened"),
        holes(dir + "/holes"),
        pki(dir + "/pki.") {}
};

void WriteText(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

// Bytes without a pattern, the same in each run.
bool MakePlainFile(const std::string& path, std::size_t mib) {
  std::ofstream file(path, std::ios::binary);
  std::vector<std::uint64_t> chunk(kMiB / sizeof(std::uint64_t));
  std::uint64_t state = 88172645463325252U;
  for (std::size_t i = 0; i < mib && file; ++i) {
    for (std::uint64_t& word : chunk) {
      state ^= state << 13;
      state ^= state >> 7;
      state ^= state << 17;
      word = state;
    }
    file.write(reinterpret_cast<const char*>(chunk.data()), static_cast<std::streamsize>(kMiB));
  }
  return file.good();
}

bool SameBytes(const std::string& a, const std::string& b) {
  return Bench::RunProcess({"cmp", "-s", a, b}).ok;
}

// Runs in a process of its own, so that its peak memory is that of the two operations. Prints CPU seconds and
// peak memory of encrypting, CPU seconds of decrypting, and peak memory of both.
int RunFileOperations(const std::string& dir) {
  const Paths paths(dir);
  Bench::Service service;
  bool keyError = false;
  bool isSigned = false;
  bool isVerified = false;
  OruKalvix::CryptClient client(&service, Bench::Service::kUrl, AnsiStr(), Bench::Service::kRoom);
  const double start = Bench::OwnCpuSeconds();
  const bool there = client.Encrypt(File(paths.plain.c_str()), File(paths.secret.c_str()), keyError);
  const double middle = Bench::OwnCpuSeconds();
  const long peakThere = Bench::OwnPeakKiB();
  const bool back =
      there && client.Decrypt(File(paths.secret.c_str()), File(paths.opened.c_str()), isSigned, isVerified);
  const double end = Bench::OwnCpuSeconds();
  if (!there || !back || !isSigned || !isVerified) {
    std::fprintf(stderr, "file_bench: %s\n", client.GetErrorMessage().GetText());
    return 1;
  }
  std::printf("%f %ld %f %ld\n", middle - start, peakThere, end - middle, Bench::OwnPeakKiB());
  return 0;
}

struct Series {
  std::vector<double> limitThere, traffic, limitBack, oursThere, oursBack, toolThere, toolBack;
  long peakThere = 0;
  long peak = 0;
};

bool MeasureOurs(const std::string& dir, Series& series) {
  const Bench::Usage usage = Bench::RunProcess({Bench::OwnProgram(), "--operations", dir});
  double there = 0;
  double back = 0;
  long peakThere = 0;
  long peak = 0;
  if (!usage.ok ||
      std::sscanf(usage.output.c_str(), "%lf %ld %lf %ld", &there, &peakThere, &back, &peak) != 4)
    return false;
  series.oursThere.push_back(there);
  series.oursBack.push_back(back);
  series.peakThere = std::max(series.peakThere, peakThere);
  series.peak = std::max(series.peak, peak);
  return true;
}

// The same format with the openssl tool: sign, then encrypt, and back; all streaming, from file to file.
bool MeasureTool(const Paths& paths, Series& series) {
  const Bench::Usage sign =
      Bench::RunProcess({"openssl", "cms", "-sign", "-binary", "-nodetach", "-stream", "-nosmimecap", "-md",
                         "sha512", "-outform", "DER", "-signer", paths.pki + "integrity.crt", "-inkey",
                         paths.pki + "integrity.key", "-in", paths.plain, "-out", paths.toolSigned});
  const Bench::Usage encrypt =
      Bench::RunProcess({"openssl", "cms", "-encrypt", "-binary", "-stream", "-aes-256-cbc", "-outform",
                         "DER", "-in", paths.toolSigned, "-out", paths.toolSecret, paths.pki + "room.crt"});
  if (!sign.ok || !encrypt.ok) return false;
  series.toolThere.push_back(sign.cpuSeconds + encrypt.cpuSeconds);
  const Bench::Usage decrypt = Bench::RunProcess({"openssl", "cms", "-decrypt", "-binary", "-inform", "DER",
                                                  "-in", paths.toolSecret, "-out", paths.toolSigned, "-inkey",
                                                  paths.pki + "room.key", "-recip", paths.pki + "room.crt"});
  const Bench::Usage verify = Bench::RunProcess({"openssl", "cms", "-verify", "-binary", "-inform", "DER",
                                                 "-purpose", "any", "-CAfile", paths.pki + "root.crt", "-in",
                                                 paths.toolSigned, "-out", paths.toolOpened});
  if (!decrypt.ok || !verify.ok) return false;
  series.toolBack.push_back(decrypt.cpuSeconds + verify.cpuSeconds);
  return true;
}

void Report(const Options& options, const Series& series) {
  using Bench::Median;
  const double limitThere = Median(series.limitThere);
  const double limitBack = Median(series.limitBack);
  const double traffic = Median(series.traffic);
  const double there = Median(series.oursThere);
  const double back = Median(series.oursBack);
  std::printf("size %zu MiB, median of %d runs\n", options.mib, options.runs);
  std::printf("protect: limit %.3f s, ours %.3f s, ratio %.2f\n", limitThere, there, there / limitThere);
  std::printf(
      "         file to file twice without arithmetic %.3f s; with the limit %.3f s, ours %.2f times that\n",
      traffic, limitThere + traffic, there / (limitThere + traffic));
  std::printf("open:    limit %.3f s, ours %.3f s, ratio %.2f\n", limitBack, back, back / limitBack);
  if (!series.toolThere.empty()) {
    const double toolThere = Median(series.toolThere);
    const double toolBack = Median(series.toolBack);
    std::printf("openssl cms, protect: %.3f s, %.2f times ours\n", toolThere, toolThere / there);
    std::printf("openssl cms, open:    %.3f s, %.2f times ours\n", toolBack, toolBack / back);
  }
  std::printf("peak memory: protect %.1f MiB, both %.1f MiB\n", static_cast<double>(series.peakThere) / 1024,
              static_cast<double>(series.peak) / 1024);
}

void WritePki(const Paths& paths) {
  const Bench::Service service;
  WriteText(paths.pki + "room.crt", service.GetRoomKey().certificate.ToPEM());
  WriteText(paths.pki + "room.key", service.GetRoomKey().key.ToPEM());
  WriteText(paths.pki + "integrity.crt", service.GetIntegrityKey().certificate.ToPEM());
  WriteText(paths.pki + "integrity.key", service.GetIntegrityKey().key.ToPEM());
  WriteText(paths.pki + "root.crt", service.GetRoot().certificate.ToPEM());
}

// The same state of the page cache before each measurement, with the source in it.
bool Settle(const Paths& paths) {
  return Bench::FillPageCache(paths.holes) && Bench::ReadThrough(paths.plain);
}

bool RunAll(const Options& options, const std::string& dir) {
  const Paths paths(dir);
  Series series;
  WritePki(paths);
  if (!MakePlainFile(paths.plain, options.mib)) return false;
  for (int run = 0; run < options.runs; ++run) {
    // Truncating an old target would count as work of this round.
    for (const std::string& path :
         {paths.secret, paths.opened, paths.toolSigned, paths.toolSecret, paths.toolOpened})
      fs::remove(path);
    series.limitThere.push_back(Bench::ProtectLimit(paths.plain));
    series.limitBack.push_back(Bench::OpenLimit(paths.plain));
    if (!Settle(paths)) return false;
    series.traffic.push_back(Bench::ProtectTraffic(paths.plain, paths.toolSigned, paths.secret));
    if (!Settle(paths) || !MeasureOurs(dir, series)) return false;
    if (run == 0 && !SameBytes(paths.plain, paths.opened)) return false;
    if (options.tool && (!Settle(paths) || !MeasureTool(paths, series))) return false;
  }
  Report(options, series);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--operations") == 0) return RunFileOperations(argv[2]);
  Options options;
  Bench::Arguments arguments("What protecting and opening a file costs", "file_bench");
  arguments.AddCount("--size", options.mib, "size of the file in MiB");
  arguments.AddCount("--runs", options.runs, "number of runs; the median is reported");
  arguments.AddDirectory("--dir", options.dir, "where the files are made");
  arguments.AddFlag("!--no-tool", options.tool, "leave OpenSSL's tool out");
  if (const auto status = arguments.Parse(argc, argv)) return *status;
  const Bench::WorkFolder folder(options.dir, "file_bench");
  if (!folder.IsThere()) return 1;
  const bool ok = RunAll(options, folder.GetPath());
  if (!ok) std::fprintf(stderr, "file_bench: a step failed\n");
  return ok ? 0 : 1;
}
