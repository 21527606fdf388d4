// The second half of FileWriter: content that replaces a file only when it is complete. OpenStaged writes to
// a file beside the target, Close gives it the target's access and then its name. File::Move copies through
// here.

#include <cerrno>
#include <unistd.h>
#include <utility>

#include "foundation/delivery.h"
#include "foundation/errno_saver.h"
#include "foundation/error_state_saver.h"
#include "foundation/errorstate.h"
#include "foundation/filehandle.h"
#include "foundation/posix_file.h"

namespace OruGuiBase {

bool FileWriter::OpenStaged(const File& file) noexcept {
  return OpenStaged(file, StagingOptions());
}

bool FileWriter::OpenStaged(const File& file, const StagingOptions& options) noexcept {
  DropFile();
  ClearLastError();
  if (file.IsPrivate()) return Open(file);
  DeliveryTarget target;
  DeliveryWay way = JudgeTarget(file, target);
  if (target.exists && options.keepTarget) return FailWith(EEXIST);
  if (way == DeliveryWay::Replace) way = BeginStaging(file.GetPath(), target, options);
  if (way == DeliveryWay::InPlace) return Open(file);
  return way == DeliveryWay::Replace || FailWithErrno();
}

// Opens the staging file. InPlace if that turns out to be impossible but the target can be written: its
// directory takes no new files, or the new file cannot have its group.
DeliveryWay FileWriter::BeginStaging(const AnsiStr& path, const DeliveryTarget& target,
                                     const StagingOptions& options) noexcept {
  access_ = target.access;
  if (!target.exists && !AskNewFile(path, access_)) return DeliveryWay::Failed;
  AnsiStr staging;
  const int handle = MakeStaging(path, staging);
  if (handle < 0) {
    return target.exists && IsRefusalOfDirectory(errno) ? DeliveryWay::InPlace : DeliveryWay::Failed;
  }
  handle_ = handle;
  staging_.Take(File(staging, FilePrivacy::Staging));
  target_ = AbsolutePath(path);
  keepTarget_ = options.keepTarget;
  if (options.mode >= 0) access_.mode = static_cast<std::uint32_t>(options.mode);
  if (GiveGroup(handle, access_)) return DeliveryWay::Replace;
  const ErrnoSaver saver;
  DropFile();
  return target.exists ? DeliveryWay::InPlace : DeliveryWay::Failed;
}

bool FileWriter::FinishStaging() noexcept {
  if (!DeliverStaging()) {
    DropFile();
    return false;
  }
  staging_.GiveUp();
  return true;
}

// The staging file gets its access just before its name, since until then only the owner may read it. It is
// closed first: a write that the system held back may fail only then, and must not cost the target.
bool FileWriter::DeliverStaging() noexcept {
  if (!keepTarget_ && !MeetsTarget(target_, access_)) return FailWithErrno();
  if (!GiveAccess(handle_, access_)) return FailWithErrno();
  if (!CloseHandle(std::exchange(handle_, -1))) return FailWithErrno();
  if (!Rename(staging_.GetPath(), target_, keepTarget_)) return FailWithErrno();
  return true;
}

// Preserves the error state: callers report it after cleanup.
void FileWriter::DropFile() noexcept {
  const ErrorStateSaver saver;
  if (handle_ >= 0) CloseHandle(std::exchange(handle_, -1));
  staging_.Cleanup();
}

}  // namespace OruGuiBase
