// Which files a command with many files works on, and where their results go. All of it is decided before the
// first file is touched, so that a mistake in the names costs nothing. Used by bulk.cpp.
#include "tools/file_list.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "foundation/errno_saver.h"
#include "tools/files.h"

namespace CryptCli {

namespace {

namespace fs = std::filesystem;

/// What a path leads to, whatever it is called: file system and number in it.
using Identity = std::pair<dev_t, ino_t>;

bool GetIdentity(const std::string& path, Identity& identity) {
  struct stat status {};
  if (path.empty() || ::stat(path.c_str(), &status) != 0) return false;
  identity = {status.st_dev, status.st_ino};
  return true;
}

// Leaves the reason of a failure in errno. A list may come from a program that is still searching for files,
// so a signal has to end the wait for it.
bool ReadWhole(const std::string& path, const std::stop_token& stop, std::string& text) {
  const int descriptor = path == kStandardStream ? ::dup(STDIN_FILENO) : OpenForReading(path);
  if (descriptor < 0) return false;
  char chunk[65536];
  ssize_t got = 1;
  while (got > 0 || (got < 0 && errno == EINTR)) {
    got = ReadUnlessStopped(descriptor, chunk, sizeof chunk, stop);
    if (got > 0) text.append(chunk, static_cast<std::size_t>(got));
  }
  const OruGuiBase::ErrnoSaver saver;
  ::close(descriptor);
  return got == 0;
}

// The place of a listed name below the output folder: its own path where that stays inside.
std::string RelativePlace(const fs::path& name) {
  const fs::path normal = name.lexically_normal();
  if (normal.is_absolute() || normal.empty() || *normal.begin() == "..") return name.filename().string();
  return normal.string();
}

/// Collects the files of one list; lives as long as one call of CollectFiles.
class Collector {
 public:
  Collector(const FileListOptions& options, FileList& list) : options_(options), list_(list) {
    hasOutput_ = GetIdentity(options.outputFolder, output_);
  }

  bool Add(const std::string& name, const std::string& place, bool isListed) {
    if (name == "-") return Refuse("'-' cannot be one of many files; './-' is a file of that name");
    if (IsFolder(name)) {
      if (!options_.recursive) return Refuse(name + " is a folder: --recursive takes the files below it");
      return Walk(name, isListed ? fs::path(place) : fs::path());
    }
    if (place.empty() || place == "." || place == "..") return Refuse("'" + name + "' is no name of a file");
    list_.items.push_back({name, place});
    return true;
  }

  const std::string& GetReason() const { return reason_; }

 private:
  /// A folder that is still to be read.
  struct Folder {
    fs::path path;
    fs::path place;
  };

  bool Refuse(const std::string& reason) {
    reason_ = reason;
    return false;
  }

  bool Walk(const std::string& root, const fs::path& place) {
    Identity identity;
    const bool isThere = GetIdentity(root, identity);
    // Its results would be taken for sources, at the latest by the next run.
    if (hasOutput_ && !options_.onlyProtected && isThere && identity == output_) {
      return Refuse(root + " is the output folder as well: choose another one");
    }
    if (isThere) visited_.insert(identity);
    std::vector<Folder> rest{{root, place}};
    while (!rest.empty()) {
      if (options_.stop.stop_requested()) return Refuse("The operation was cancelled");
      const Folder folder = std::move(rest.back());
      rest.pop_back();
      std::vector<Folder> below = ReadFolder(folder);
      // The last one is read next.
      rest.insert(rest.end(), below.rbegin(), below.rend());
    }
    return true;
  }

  // Lists the files of one folder and returns the folders in it, both sorted.
  std::vector<Folder> ReadFolder(const Folder& folder) {
    std::error_code error;
    std::vector<fs::path> entries;
    for (fs::directory_iterator entry(folder.path, error), end; !error && entry != end;
         entry.increment(error)) {
      entries.push_back(entry->path());
    }
    if (error) list_.failures.push_back(folder.path.string() + ": " + error.message());
    std::sort(entries.begin(), entries.end());
    std::vector<Folder> folders;
    for (const fs::path& entry : entries) AddEntry(entry, folder.place / entry.filename(), folders);
    return folders;
  }

  // Without --follow-links a link is neither a folder nor a regular file here, so it is counted as ignored:
  // it may lead out of the tree that the user named.
  void AddEntry(const fs::path& path, const fs::path& place, std::vector<Folder>& folders) {
    std::error_code error;
    const fs::file_status status =
        options_.followLinks ? fs::status(path, error) : fs::symlink_status(path, error);
    if (fs::is_directory(status)) {
      if (IsNew(path)) folders.push_back({path, place});
      return;
    }
    const bool isMeant = !options_.onlyProtected || place.string().ends_with(kProtectedSuffix);
    if (!fs::is_regular_file(status) || !isMeant) {
      list_.ignored.push_back(path.string());
      return;
    }
    list_.items.push_back({path.string(), place.string()});
  }

  // False for the output folder, and for one that was entered before: a link may lead back to it.
  bool IsNew(const fs::path& path) {
    Identity identity;
    if (!GetIdentity(path.string(), identity)) return true;  // reading it will say why
    if (hasOutput_ && identity == output_) return false;
    return !options_.followLinks || visited_.insert(identity).second;
  }

  const FileListOptions& options_;
  FileList& list_;
  bool hasOutput_ = false;
  Identity output_;
  std::set<Identity> visited_;
  std::string reason_;
};

std::string NameList(const std::string& path) {
  return path == "-" ? "from standard input" : "\"" + path + "\"";
}

bool AddListed(const FileListOptions& options, Collector& collector, std::string& errorText) {
  std::string text;
  if (!ReadWhole(options.filesFrom, options.stop, text)) {
    errorText =
        "Could not read the list of files " + NameList(options.filesFrom) + ": " + std::strerror(errno);
    return false;
  }
  bool isEmpty = true;
  const char separator = options.isNullSeparated ? '\0' : '\n';
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find(separator, at), text.size());
    const std::string name = text.substr(at, end - at);
    at = end + 1;
    if (name.empty()) continue;
    isEmpty = false;
    if (name.find('\0') != std::string::npos) {
      errorText = "The list of files contains a NUL: --null reads names that end with one";
      return false;
    }
    if (!collector.Add(name, RelativePlace(name), /*isListed=*/true)) return false;
  }
  // Whatever made it may have failed; success would say that all of its files are done.
  if (isEmpty) errorText = "The list of files " + NameList(options.filesFrom) + " names no file";
  return !isEmpty;
}

bool MakeTarget(const std::string& folder, NameRule rule, FileItem& item, std::string& errorText) {
  std::string name = item.relative;
  if (rule == NameRule::AddSuffix) {
    name += kProtectedSuffix;
  } else {
    const std::string file = fs::path(name).filename().string();
    if (!file.ends_with(kProtectedSuffix) || file.size() == kProtectedSuffix.size()) {
      errorText = item.source + " does not end in .p7m, so its target has no name";
      return false;
    }
    name.resize(name.size() - kProtectedSuffix.size());
  }
  item.target = (fs::path(folder) / name).string();
  return true;
}

}  // namespace

bool CollectFiles(const FileListOptions& options, FileList& list, std::string& errorText) {
  Collector collector(options, list);
  for (const std::string& file : options.files) {
    if (collector.Add(file, fs::path(file).filename().string(), /*isListed=*/false)) continue;
    errorText = collector.GetReason();
    return false;
  }
  if (options.filesFrom.empty() || AddListed(options, collector, errorText)) return true;
  if (errorText.empty()) errorText = collector.GetReason();
  return false;
}

bool PlanTargets(const std::string& outputFolder, NameRule rule, std::vector<FileItem>& items,
                 std::string& errorText) {
  std::map<std::string, const FileItem*> targets;
  std::map<Identity, const FileItem*> sources;
  Identity identity;
  for (FileItem& item : items) {
    if (!MakeTarget(outputFolder, rule, item, errorText)) return false;
    if (GetIdentity(item.source, identity)) sources.emplace(identity, &item);
    const auto [other, isNew] = targets.emplace(fs::path(item.target).lexically_normal().string(), &item);
    if (isNew) continue;
    errorText = other->second->source + " and " + item.source + " would both become " + item.target;
    return false;
  }
  for (const FileItem& item : items) {
    if (!GetIdentity(item.target, identity) || sources.count(identity) == 0) continue;
    errorText = item.target + " is a source and would become the target of " + item.source;
    return false;
  }
  return true;
}

}  // namespace CryptCli
