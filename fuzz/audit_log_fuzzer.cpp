// Merges the audit logs of some key servers, all fuzz data, through the client. The result is compared with
// this target's own merge: the header of the first log that has one, and the lines of all.
#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "client/cryptcli.h"
#include "fuzz/support/input.h"
#include "fuzz/support/require.h"
#include "fuzz/support/scratch.h"
#include "fuzz/support/text.h"
#include "fuzz/support/world.h"

namespace {

using Fuzz::Require;
using Fuzz::Scratch;
using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using OruKalvix::HttpResponse;

// A log counts by its media type, in any case and with any parameters; blanks inside it make it another type.
struct ContentType {
  const char* text;
  bool isLog;
};
constexpr std::array<ContentType, 8> kContentTypes = {{{"text/csv", true},
                                                       {"TEXT/csv ; charset=utf-8", true},
                                                       {" text/csv;", true},
                                                       {"application/json", false},
                                                       {"text/csvx", false},
                                                       {"", false},
                                                       {";text/csv", false},
                                                       {"text/ csv", false}}};

/// The expected result of the merge, computed from the responses as they are sent.
class Merge {
 public:
  void Add(std::string_view log) {
    hasLog_ = true;
    bool isHeader = true;
    while (!log.empty()) {
      const std::string_view line = TakeLine(log);
      if (!isHeader || text_.empty()) text_.append(line).push_back('\n');
      isHeader = false;
    }
  }
  void Stop() { isStopped_ = true; }

  bool IsDone() const { return hasLog_ && !isStopped_; }
  const std::string& GetText() const { return text_; }

 private:
  // A line with or without its end; only a CR directly before the LF belongs to the end.
  static std::string_view TakeLine(std::string_view& log) {
    const std::size_t end = log.find('\n');
    std::string_view line = log.substr(0, end);
    log.remove_prefix(end == std::string_view::npos ? log.size() : end + 1);
    if (end != std::string_view::npos && line.ends_with('\r')) line.remove_suffix(1);
    return line;
  }

  std::string text_;
  bool hasLog_ = false;
  bool isStopped_ = false;
};

// Delivers one log for each server and records in `merge` what the client should make of it. Lives on the
// stack, so it does not count references.
class LogServers final : public OruKalvix::ICryptClientHttp {
 public:
  LogServers(Fuzz::Input& input, Merge& merge) : input_(input), merge_(merge) {}
  ~LogServers() = default;

  void* QueryInterface(const char*) override { return nullptr; }
  std::uint32_t AddRef() override { return 2; }
  std::uint32_t Release() override { return 1; }

  std::int32_t SendRequest(const AnsiStr& method, const AnsiStr& url, const KVMap&, const AnsiStr&,
                           const OruKalvix::HttpOptions&, HttpResponse& response) override {
    response.status = 200;
    if (method == "GET") return RespondToProbe(response);
    if (url.View().starts_with(Fuzz::kServiceUrl)) return GiveToken(response);
    return GiveLog(response);
  }

 private:
  // 0, which a used-up input returns, is the usual case: most servers have to give a log to merge.
  bool IsRare() { return input_.Below(16) == 15; }

  std::int32_t RespondToProbe(HttpResponse& response) {
    response.headers.Set("Date", Fuzz::Ansi(Fuzz::kDate));
    response.errorText = "down";
    return IsRare() ? -1 : 0;
  }

  std::int32_t GiveToken(HttpResponse& response) {
    const bool isGiven = !IsRare();
    if (!isGiven) merge_.Stop();
    response.body = isGiven ? R"({"authztoken":"token"})" : "{}";
    return 0;
  }

  std::int32_t GiveLog(HttpResponse& response) {
    const ContentType& type = kContentTypes[IsRare() ? input_.Below(kContentTypes.size()) : 0];
    const std::string code = IsRare() ? input_.Text() : "";
    const std::string log = input_.Text();
    response.headers.Set("Content-TYPE", type.text);
    response.headers.Set("X-Sec-Status", Fuzz::Ansi(code));
    if (IsRare()) response.status = 500;
    // Written even for a refusal: the client must not merge the body of one.
    std::ofstream out(Fuzz::Str(response.targetFile), std::ios::binary);
    out << log;
    if (response.status == 200 && type.isLog && code.empty()) merge_.Add(log);
    return 0;
  }

  Fuzz::Input& input_;
  Merge& merge_;
};

void CheckFile(const std::string& name, const Merge& merge) {
  Require(merge.IsDone(), "a merged log needs at least one log");
  Require(std::filesystem::is_regular_file(name), "a merged log is a file");
  Require(Scratch::ReadFile(name) == merge.GetText(), "a merged log is one header and the lines of all");
  std::filesystem::remove(name);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Input input(data, size);
  const Scratch& scratch = Scratch::Get();
  const auto servers =
      Fuzz::Strings({"https://one.example", "https://two.example/", "https://three.example"});
  const AnsiStr groupName = Fuzz::Ansi(input.Text());
  Merge merge;
  LogServers http(input, merge);
  OruKalvix::CryptClient client(&http, Fuzz::Ansi(Fuzz::kServiceUrl), "", Fuzz::Ansi(Fuzz::kGroup));
  client.SetKeyServer(servers);
  AnsiStr fileName;
  if (client.GetAuditLog(Fuzz::Ansi(Fuzz::kGroup), groupName, fileName)) {
    CheckFile(Fuzz::Str(fileName), merge);
  } else {
    Require(!merge.IsDone(), "a log that some server gave is delivered");
    Require(!client.GetErrorMessage().IsEmpty(), "a failure has a reason");
  }
  Require(scratch.IsTemporaryEmpty(), "no temporary file is left");
  return 0;
}
