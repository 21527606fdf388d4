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
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace {

bool IsNewer(const timespec& a, const timespec& b) {
  return a.tv_sec != b.tv_sec ? a.tv_sec > b.tv_sec : a.tv_nsec > b.tv_nsec;
}

Recipient ReadRecipient(const KVMap& map) {
  return {std::string(map.Get("issuer").AsString().View()), std::string(map.Get("serial").AsString().View())};
}

// Delivery is atomic, so a protected file is a whole one. A signed message, which opens as well, has no
// recipients.
bool IsProtected(const std::string& path, const Recipient& recipient) {
  const auto found = cryptcli::Client::Inspect(std::filesystem::path(path));
  Val value;
  AnsiStr reason;
  if (!found || !OruGuiBase::JSON2Val(AnsiStr(*found), value, reason)) return false;
  for (const Val& one : value.AsMap().Get("recipients").AsArray()) {
    const Recipient named = ReadRecipient(one.AsMap());
    if (named.issuer == recipient.issuer && named.serial == recipient.serial) return true;
  }
  return false;
}

}  // namespace

cryptcli::Result<Recipient> FindRecipient(const cryptcli::Client& client, const std::string& room,
                                          const cryptcli::Call& call) {
  const cryptcli::Result<std::string> found = client.Room(room, call);
  if (!found) return cryptcli::Unexpected(found.error());
  Val value;
  AnsiStr reason;
  if (!OruGuiBase::JSON2Val(AnsiStr(*found), value, reason)) {
    return cryptcli::Failure(cryptcli::Status::Internal, std::string(reason.View()));
  }
  return ReadRecipient(value.AsMap().Get("certificate").AsMap());
}

bool IsDone(const FileItem& item, NameRule rule, const Recipient& recipient) {
  struct stat source {};
  struct stat target {};
  if (::stat(item.source.c_str(), &source) != 0) return false;
  if (::lstat(item.target.c_str(), &target) != 0 || !S_ISREG(target.st_mode)) return false;
  if (!IsNewer(target.st_mtim, source.st_mtim)) return false;
  return rule == NameRule::RemoveSuffix || IsProtected(item.target, recipient);
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
