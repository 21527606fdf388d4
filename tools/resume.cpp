// What makes it safe to go on with a run that was interrupted: which files are done, and which only look so.
// Used by bulk.cpp.
#include "tools/resume.h"

#include <cryptcli/cryptcli.hpp>
#include <fcntl.h>
#include <filesystem>

#include "foundation/json.h"
#include "foundation/kvmap.h"
#include "foundation/val.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::Val;

namespace {

bool IsNewer(const timespec& a, const timespec& b) {
  return a.tv_sec != b.tv_sec ? a.tv_sec > b.tv_sec : a.tv_nsec > b.tv_nsec;
}

// Delivery is atomic, so a protected file is a whole one. A signed message, which opens as well, is not
// encrypted.
bool IsProtected(const std::string& path) {
  const auto found = cryptcli::Client::Inspect(std::filesystem::path(path));
  Val value;
  AnsiStr reason;
  return found && OruGuiBase::JSON2Val(AnsiStr(*found), value, reason) &&
         value.AsMap().Contains("recipients");
}

}  // namespace

bool IsDone(const FileItem& item, NameRule rule) {
  struct stat source {};
  struct stat target {};
  if (::stat(item.source.c_str(), &source) != 0) return false;
  if (::lstat(item.target.c_str(), &target) != 0 || !S_ISREG(target.st_mode)) return false;
  if (!IsNewer(target.st_mtim, source.st_mtim)) return false;
  return rule == NameRule::RemoveSuffix || IsProtected(item.target);
}

SourceState::SourceState(const std::string& path) : exists_(::stat(path.c_str(), &status_) == 0) {}

bool SourceState::HasChanged(const std::string& path) const {
  const SourceState now(path);
  if (!exists_ || !now.exists_) return exists_ != now.exists_;
  return now.status_.st_size != status_.st_size || IsNewer(now.status_.st_mtim, status_.st_mtim);
}

void SourceState::GiveTimeTo(const std::string& target) const {
  const timespec times[2] = {status_.st_atim, status_.st_mtim};
  ::utimensat(AT_FDCWD, target.c_str(), times, 0);
}

}  // namespace CryptCli
