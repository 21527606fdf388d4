#pragma once

#include <cstdint>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace CryptCli {

/// The end of a protected file's name.
inline constexpr std::string_view kProtectedSuffix = ".p7m";

/// One file to work on. A plain value.
struct FileItem {
  std::string source;
  std::string relative;  ///< its place below the output folder; neither absolute nor with ".."
  std::string target{};  ///< set by PlanTargets
};

/// Which files are meant.
struct FileListOptions {
  std::vector<std::string> files;  ///< files and, with `recursive`, folders
  std::string filesFrom{};         ///< a file with names of further ones, "-" for standard input; empty: none
  bool isNullSeparated = false;    ///< its names end with NUL and not with a newline
  bool recursive = false;          ///< takes the regular files below a folder
  bool followLinks = false;        ///< follows symbolic links below a folder; named ones always are
  bool onlyProtected = false;      ///< takes only names with kProtectedSuffix from a folder
  std::string outputFolder{};      ///< not entered, so that results are no sources; empty: none
  std::stop_token stop{};          ///< ends the listing, which then fails
};

/// What was found.
struct FileList {
  std::vector<FileItem> items;  ///< in the order of the names; below a folder sorted by name
  /// What could not be listed, each with path and reason.
  std::vector<std::string> failures;
  std::vector<std::string>
      ignored;  ///< entries below folders that are no regular files, or not protected ones
};

/// Lists the files. A file that does not exist is listed too: working on it gives the reason. False, with the
/// reason, when the names themselves are wrong (a folder without `recursive`, a list that cannot be read or
/// names nothing).
///
/// A file that is named goes directly into the output folder. One in a list keeps its path there if that is
/// relative and leads nowhere else; one below a folder keeps its path from that folder.
bool CollectFiles(const FileListOptions& options, FileList& list, std::string& errorText);

/// How the name of a result follows from that of its source.
enum class NameRule {
  AddSuffix,     ///< encrypt: "a.txt" gives "a.txt.p7m"
  RemoveSuffix,  ///< decrypt: the reverse; any other name is an error
};

/// Sets the target of each item. False, with the reason, when a name does not fit the rule, when two items
/// have one target, or when a target is also a source: nothing must be started then.
bool PlanTargets(const std::string& outputFolder, NameRule rule, std::vector<FileItem>& items,
                 std::string& errorText);

}  // namespace CryptCli
