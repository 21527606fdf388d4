// Many files in one run of "encrypt", "decrypt", "verify" or "rekey": one client, several threads, one result
// for each file and a summary. file_list.cpp says which files, task_runner.cpp runs the work on them,
// bulk_report.cpp shows the results.
#include "tools/bulk.h"

#include <CLI/Option.hpp>
#include <algorithm>
#include <filesystem>
#include <set>
#include <string_view>
#include <thread>
#include <utility>

#include "tools/bulk_report.h"
#include "tools/origin.h"
#include "tools/resume.h"
#include "tools/staging_file.h"
#include "tools/task_runner.h"
#include "tools/value_check.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;

namespace {

constexpr const char* kManyFiles = "Many files";
// Far above what servers and disks take: a guard against a typing error.
constexpr unsigned kMostJobs = 256;

/// Adds what one file contributes to the progress of all. Used by the thread that works on the file.
class Share {
 public:
  Share(Progress& progress, std::uint64_t size) : progress_(progress), size_(size) {}
  Share(const Share&) = delete;
  Share& operator=(const Share&) = delete;
  // A file that failed or was shorter than expected is done all the same.
  ~Share() { progress_.done += size_ - added_; }

  void Show(std::uint64_t done) {
    const std::uint64_t now = std::clamp(done, added_, size_);
    progress_.done += now - added_;
    added_ = now;
  }

 private:
  Progress& progress_;
  const std::uint64_t size_;
  std::uint64_t added_ = 0;
};

/// What the work on one file leaves. Written by its thread, read under the runner's lock afterwards.
struct Outcome {
  std::optional<Report> report;
  std::uint64_t bytes = 0;
  bool isSkipped = false;
  bool isNotable = false;
};

BulkFormat GetFormat(const BulkWork& work, const BulkOptions& options, const SessionOptions& session,
                     std::function<void()> clearProgress) {
  BulkFormat format;
  format.operation = work.operation;
  format.done = work.done;
  format.json = session.json;
  format.jsonLines = options.jsonLines;
  format.quiet = session.quiet;
  // With targets a success is silent, as with cp; without them the verdict is the result and is shown.
  format.showsAll = session.verbose || !work.targetNames;
  format.clearProgress = std::move(clearProgress);
  return format;
}

// Two threads that replace one file would hinder each other. By path and not by inode: of a file with several
// hard links, each name is replaced on its own.
void DropRepeated(FileList& list) {
  std::set<std::filesystem::path> seen;
  std::vector<FileItem> items;
  for (FileItem& item : list.items) {
    std::error_code error;
    const std::filesystem::path path = std::filesystem::canonical(item.source, error);
    if (error || seen.insert(path).second) {
      items.push_back(std::move(item));
    } else {
      list.ignored.push_back(item.source + " (named before)");
    }
  }
  list.items = std::move(items);
}

SessionOptions GetSession(SessionOptions session, const BulkOptions& options) {
  session.json = session.json || options.jsonLines;
  return session;
}

/// One run over many files. Lives on the stack of RunBulk; work and options must outlive it.
class BulkRun {
 public:
  BulkRun(const BulkWork& work, const BulkOptions& options, const SessionOptions& session)
      : work_(work),
        options_(options),
        sessionOptions_(GetSession(session, options)),
        report_(GetFormat(work, options, session, [this] { session_.ClearProgress(); })),
        session_(work.operation, sessionOptions_) {}

  ExitCode Do(const std::vector<std::string>& files) {
    // Folders may be large, and whoever writes the list may take any time.
    ExitCode code = session_.Awaited([&] { return Plan(files); });
    if (code == ExitCode::Success) code = session_.Open();
    if (code == ExitCode::Success) code = session_.Watched(DescribeWork().c_str(), [&] { return DoAll(); });
    code = session_.Finish(code);
    return code == ExitCode::Success && !report_.IsWritten() ? ExitCode::NotReported : code;
  }

 private:
  ExitCode Plan(const std::vector<std::string>& files) {
    if (files.empty() && options_.filesFrom.empty()) {
      return session_.Fail(ExitCode::Usage, "Name the files, or a list of them with --files-from");
    }
    if (work_.targetNames && options_.outputFolder.empty()) {
      return Refuse(" is for many files: name a folder for their results with --output-dir");
    }
    if (files.size() == 1 && files.front() == kStandardStream && options_.IsGiven()) {
      return Refuse(" is for many files, of which standard input cannot be one");
    }
    FileListOptions listed;
    listed.files = files;
    listed.filesFrom = options_.filesFrom;
    listed.isNullSeparated = options_.isNullSeparated;
    listed.recursive = options_.recursive;
    listed.followLinks = options_.followLinks;
    listed.onlyProtected = work_.onlyProtected;
    listed.outputFolder = options_.outputFolder;
    listed.stop = session_.MakeCall().stop;
    std::string errorText;
    bool isPlanned = CollectFiles(listed, list_, errorText);
    if (isPlanned && work_.targetNames) {
      isPlanned = PlanTargets(options_.outputFolder, *work_.targetNames, list_.items, errorText);
    }
    if (!isPlanned) return session_.Fail(ExitCode::Usage, AnsiStr(errorText));
    if (std::string_view(work_.operation) == "rekey") DropRepeated(list_);
    ShowIgnored();
    if (work_.targetNames || !list_.items.empty() || !list_.failures.empty()) return ExitCode::Success;
    // Success would be taken for "all files are good".
    return session_.Fail(ExitCode::Usage, "No file to work on: a folder gives only files that end in .p7m");
  }

  ExitCode Refuse(const char* reason) {
    return session_.Fail(ExitCode::Usage, AnsiStr(options_.GetFirst()) + reason);
  }

  void ShowIgnored() {
    OruGuiBase::Array<OruGuiBase::Val> names;
    for (const std::string& name : list_.ignored) {
      names.Append(OruGuiBase::Val(ToUTF8(AnsiStr(name))));
      if (sessionOptions_.verbose) session_.GetReport().Line(AnsiStr("Ignored " + name));
    }
    session_.GetReport().Set("ignored", names);
  }

  // The progress on a terminal is that of all files: several are in progress at a time.
  std::string DescribeWork() const {
    const std::size_t count = list_.items.size();
    return std::string(work_.label) + " " + std::to_string(count) + (count == 1 ? " file" : " files");
  }

  // Once for all files. A run of which nothing is there yet needs no such request.
  ExitCode LearnRecipient() {
    const bool isNeeded = options_.resume && work_.targetNames == NameRule::AddSuffix;
    const auto isThere = [](const FileItem& item) {
      std::error_code ignored;
      return std::filesystem::exists(item.target, ignored);
    };
    if (!isNeeded || std::none_of(list_.items.begin(), list_.items.end(), isThere)) return ExitCode::Success;
    const auto found =
        FindRecipient(session_.GetClient(), sessionOptions_.connection.room, session_.MakeCall());
    if (!found) return session_.Fail(found.error());
    recipient_ = *found;
    return ExitCode::Success;
  }

  ExitCode DoAll() {
    const ExitCode learned = LearnRecipient();
    if (learned != ExitCode::Success) return learned;
    ExitCode worst = list_.failures.empty() ? ExitCode::Success : ExitCode::Failed;
    for (std::size_t i = 0; i < list_.failures.size(); ++i) ReportUnlisted(i);
    for (const FileItem& item : list_.items)
      session_.GetProgress().total += SourceState(item.source).GetSize();
    outcomes_.resize(list_.items.size());
    TaskOptions tasks;
    tasks.jobs =
        LimitJobs(options_.jobs > 0 ? options_.jobs : std::max(std::thread::hardware_concurrency(), 1U));
    tasks.failFast = options_.failFast;
    tasks.stop = session_.MakeCall().stop;
    const auto codes = RunTasks(
        list_.items.size(), tasks, [this](std::size_t index, const auto&) { return DoOne(index); },
        [this](std::size_t index, ExitCode code) { ReportOne(index, code); });
    std::size_t notStarted = 0;
    for (const auto& code : codes) {
      if (!code) ++notStarted;
      worst = Worse(worst, code.value_or(ExitCode::Success));
    }
    report_.Summarise(session_.GetReport(), notStarted, list_.ignored.size());
    return notStarted > 0 && session_.IsCancelled() ? ExitCode::Interrupted : worst;
  }

  // Called on several threads at once, each time for another file.
  ExitCode DoOne(std::size_t index) {
    const FileItem& item = list_.items[index];
    Outcome& outcome = outcomes_[index];
    Report& report = outcome.report.emplace(report_.MakeReport());
    report.Set("file", AnsiStr(item.source));
    if (!item.target.empty()) report.Set("target", AnsiStr(item.target));
    const SourceState before(item.source);
    Share share(session_.GetProgress(), before.GetSize());
    if (options_.resume && work_.targetNames && IsDone(item, *work_.targetNames, recipient_)) {
      outcome.isSkipped = true;
      report.Set("skipped", true);
      report.Line(AnsiStr("Done before: " + item.target));
      return ExitCode::Success;
    }
    cryptcli::Call call = session_.MakeCall();
    call.progress = [&share](std::uint64_t done, std::uint64_t) {
      share.Show(done);
      return true;
    };
    // Without a target nothing is compared: "rekey" changes the source itself.
    if (item.target.empty()) return Perform(item, item.source, call, outcome);
    const ExitCode code = Write(item, call, outcome);
    if (code != ExitCode::Success || !before.HasChanged(item.source)) return code;
    // The target may have a part of the old content and a part of the new.
    before.GiveTimeTo(item.target);
    report_.Fail(report, item.source, "The file was changed while it was read");
    return ExitCode::Failed;
  }

  ExitCode Write(const FileItem& item, const cryptcli::Call& call, Outcome& outcome) const {
    // If a folder cannot be made, the staging file cannot be created either, and says why.
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(item.target).parent_path(), ignored);
    StagingFile staging;
    AnsiStr errorText;
    staging.SetMode(work_.mode);
    // Also with --resume: a target that does not count as done may be a file that nobody meant to lose.
    if (staging.Open(item.source, item.target, work_.force, errorText)) {
      const ExitCode code = Perform(item, staging.GetPath(), call, outcome);
      if (code != ExitCode::Success || staging.Commit(errorText)) return code;
    }
    outcome.report->FailFile(errorText);
    report_.Fail(*outcome.report, item.source, std::string(errorText.View()));
    return ExitCode::Failed;
  }

  ExitCode Perform(const FileItem& item, const std::string& target, const cryptcli::Call& call,
                   Outcome& outcome) const {
    Report& report = *outcome.report;
    const cryptcli::Result<cryptcli::Report> done =
        work_.perform(session_.GetClient(), item.source, target, call);
    if (!done) {
      const ExitCode code = FailWith(report, done.error());
      const bool isCancelled = done.error().code == cryptcli::Status::Cancelled;
      report_.Fail(report, item.source, isCancelled ? "The operation was cancelled" : done.error().message);
      return isCancelled ? session_.GetCancelCode() : code;
    }
    outcome.bytes = done->bytes;
    report.SetAll(done->json);
    std::string line = std::string(work_.done) + " " + item.source;
    if (!item.target.empty()) line += " to " + item.target;
    if (done->origin) line += std::string(" (") + NameOrigin(*done->origin) + ")";
    report.Line(AnsiStr(line));
    if (done->origin) ShowOrigin(report, *done, sessionOptions_.verbose);
    // Somebody who accepts a weaker origin is shown each file that has one.
    outcome.isNotable = done->origin && *done->origin != cryptcli::Origin::Proven;
    return ExitCode::Success;
  }

  // Under the runner's lock, so that the lines of two files do not mix.
  void ReportOne(std::size_t index, ExitCode code) {
    Outcome& outcome = outcomes_[index];
    if (!outcome.report) outcome.report.emplace(report_.MakeReport());
    FileEnd end = outcome.isSkipped ? FileEnd::Skipped : FileEnd::Succeeded;
    if (code != ExitCode::Success) end = FileEnd::Failed;
    report_.Add(index, *outcome.report, end, code, outcome.bytes, outcome.isNotable);
    outcome.report.reset();  // of many files it would take much memory
  }

  void ReportUnlisted(std::size_t index) {
    Report report = report_.MakeReport();
    report.Fail(AnsiStr(list_.failures[index]));
    report_.Add(list_.items.size() + index, report, FileEnd::Failed, ExitCode::Failed, /*bytes=*/0,
                /*isNotable=*/true);
  }

  const BulkWork& work_;
  const BulkOptions& options_;
  const SessionOptions sessionOptions_;
  BulkReport report_;
  Session session_;
  FileList list_;
  Recipient recipient_;  // of the room; with --resume alone
  std::vector<Outcome> outcomes_;
};

}  // namespace

void BulkOptions::AddOptions(CLI::App& command, bool onlyProtected) {
  auto* const folders =
      command
          .add_flag("-r,--recursive", recursive,
                    onlyProtected ? "Take the files below each folder that end in .p7m; -v names the others"
                                  : "Take the files below each folder")
          ->group(kManyFiles);
  command.add_flag("--follow-links", followLinks, "Follow symbolic links below a folder")
      ->needs(folders)
      ->group(kManyFiles);
  auto* const list = command
                         .add_option("--files-from", filesFrom,
                                     "Read further names from a file, one to a line; - for standard input")
                         ->type_name("LIST")
                         ->group(kManyFiles);
  command.add_flag("-0,--null", isNullSeparated, "The names in the list end with NUL")
      ->needs(list)
      ->group(kManyFiles);
  command.add_option("-j,--jobs", jobs, "Files at a time; the number of processors by default")
      ->type_name("N")
      ->check(NumberFrom(1, kMostJobs))
      ->group(kManyFiles);
  command.add_flag("--json-lines", jsonLines, "Report one JSON object to a line: each file, then the sums")
      ->group(kManyFiles);
  command.add_flag("--fail-fast", failFast, "Start no further file after one that failed")->group(kManyFiles);
}

void BulkOptions::AddTargetOptions(CLI::App& command) {
  auto* const folder = command
                           .add_option("--output-dir", outputFolder,
                                       "Folder for the results of any number of files; created if needed")
                           ->type_name("DIR")
                           ->group(kManyFiles);
  CLI::Option* const single = command.get_option_no_throw("--output");
  if (single != nullptr) folder->excludes(single);
  command
      .add_flag("--resume", resume,
                "Skip files that are done: the target is newer than its source and, for encrypt, protected "
                "with the room's present key; any other target that exists needs --force")
      ->group(kManyFiles);
}

const char* BulkOptions::GetFirst() const {
  const std::pair<bool, const char*> all[] = {{!outputFolder.empty(), "--output-dir"},
                                              {!filesFrom.empty(), "--files-from"},
                                              {isNullSeparated, "--null"},
                                              {recursive, "--recursive"},
                                              {followLinks, "--follow-links"},
                                              {jobs > 0, "--jobs"},
                                              {jsonLines, "--json-lines"},
                                              {failFast, "--fail-fast"},
                                              {resume, "--resume"}};
  for (const auto& [isGiven, name] : all) {
    if (isGiven) return name;
  }
  return nullptr;
}

ExitCode RunBulk(const BulkWork& work, const std::vector<std::string>& files, const BulkOptions& options,
                 const SessionOptions& session) {
  if (work.mode) RestrictNewFiles(*work.mode);
  return BulkRun(work, options, session).Do(files);
}

}  // namespace CryptCli
