// Temporary files and directories that their owner removes. The operations of the client keep what they have
// not delivered yet in a TempFile; FileWriter keeps its staging file in one; the command's programs use a
// TempDirectory.

#include "foundation/tempfile.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "foundation/delivery.h"
#include "foundation/error_state_saver.h"
#include "foundation/errorstate.h"
#include "foundation/posix_file.h"
#include "foundation/private_file.h"
#include "foundation/unfinished_list.h"

namespace OruGuiBase {

// An allocation failure while the file is listed is no failure of the operation: the file is then removed by
// this object as always, but not by RemoveUnfinishedFiles. File() has listed a private file already, with its
// directory.
void TempFile::Take(const File& file) noexcept {
  Cleanup();
  path_ = file.GetPath();
  privacy_ = file.GetPrivacy();
  if (!file.IsPrivate() && !path_.IsEmpty()) AddUnfinished(path_, UnfinishedType::File);
}

bool TempFile::Create(const File& file) noexcept {
  Cleanup();
  ClearLastError();
  const UnfinishedScope scope;
  if (!scope.IsOpen()) return FailWithErrno();
  const int handle = OpenHandle(file.GetPath(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, kOwnerOnly);
  if (handle < 0) return FailWithErrno();
  // Absolute, since the working directory may be another one when it is removed.
  Take(File(AbsolutePath(file.GetPath()), FilePrivacy::Staging));
  AddUnfinished(path_, UnfinishedType::File);
  if (CloseHandle(handle)) return true;
  FailWithErrno();
  Cleanup();
  return false;
}

// A staging file beside the target can be renamed over it, which needs no copy and leaves no half-written
// target. In the temporary directory it will be copied.
bool TempFile::CreateFor(const File& target) noexcept {
  Cleanup();
  ClearLastError();
  DeliveryTarget judged;
  const DeliveryWay way = JudgeTarget(target, judged);
  if (way == DeliveryWay::Failed) return FailWithErrno();
  AnsiStr path;
  const int handle = way == DeliveryWay::Replace ? MakeStaging(target.GetPath(), path) : -1;
  if (handle >= 0) {
    CloseHandle(handle);
    Take(File(path, FilePrivacy::Staging));
  } else if (way == DeliveryWay::InPlace || (judged.exists && IsRefusalOfDirectory(errno))) {
    Take(File(FileType::Temporary, target.GetTail() + kTempEnding, /*isPrivate=*/true));
  } else {
    return FailWithErrno();
  }
  return !path_.IsEmpty();
}

// Preserves the error state: callers report it after cleanup.
void TempFile::Cleanup() noexcept {
  if (path_.IsEmpty()) return;
  const ErrorStateSaver saver;
  ::unlink(path_.GetText());
  GiveUp();
}

// rmdir() leaves a directory that is not empty, for example because the file is to stay.
void TempFile::GiveUp() noexcept {
  if (path_.IsEmpty()) return;
  const ErrorStateSaver saver;
  if (privacy_ == FilePrivacy::Directory) {
    DropPrivateDirectory(ParentOf(path_));
  } else {
    DropUnfinished(path_);
  }
  path_.Clear();
  privacy_ = FilePrivacy::None;
}

bool TempDirectory::Create(const AnsiStr& prefix) noexcept {
  Cleanup();
  ClearLastError();
  const UnfinishedScope scope;
  if (scope.IsOpen()) path_ = MakePrivateDirectory(prefix);
  return !path_.IsEmpty() || FailWithErrno();
}

void TempDirectory::Cleanup() noexcept {
  if (path_.IsEmpty()) return;
  const ErrorStateSaver saver;
  RemoveWithFiles(path_);
  DropUnfinished(path_);
  path_.Clear();
}

}  // namespace OruGuiBase
