#include "exchange/operation_file.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::DirectoryEntry;
using OruGuiBase::File;
using OruGuiBase::FileType;
using OruGuiBase::TempFile;

namespace OruKalvix {

bool CreateTempFile(TempFile& tempFile, const AnsiStr& name, bool isPrivate) noexcept {
  const File file(FileType::Temporary, name, isPrivate);
  if (!DirectoryEntry::IsEqual(file, tempFile.GetFile())) tempFile.Take(file);
  return !tempFile.GetPath().IsEmpty();
}

}  // namespace OruKalvix
