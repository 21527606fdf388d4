// The audit log of a group: one CSV file, merged from the logs of all key servers. Called by applications
// through GetAuditLog, directly or by name. Unlike the other commands it visits every key server, and one log
// is enough.
#include <cerrno>

#include "client/cryptcli.h"
#include "exchange/key_server_command.h"
#include "exchange/member_reader.h"
#include "exchange/operation_file.h"
#include "foundation/dates.h"
#include "foundation/encoding.h"
#include "foundation/errorstate.h"
#include "foundation/json.h"
#include "foundation/numbers.h"
#include "foundation/stream.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::datetime;
using OruGuiBase::Directory;
using OruGuiBase::DirectoryType;
using OruGuiBase::File;
using OruGuiBase::ReadStream;
using OruGuiBase::ReadStreamMode;
using OruGuiBase::TempFile;
using OruGuiBase::Val;
using OruGuiBase::WriteStream;
using OruGuiBase::WriteStreamMode;

namespace OruKalvix {
namespace {

// The present time (UTC) as a part of a file name, whose colons MakeName replaces.
AnsiStr TimeStamp() noexcept {
  long year = 0;
  long month = 0;
  long day = 0;
  long hour = 0;
  long minute = 0;
  long second = 0;
  long millisecond = 0;
  OruGuiBase::GetCurrentDateTime(year, month, day, hour, minute, second, millisecond);
  const datetime now{static_cast<std::int32_t>(year),   static_cast<std::int32_t>(month),
                     static_cast<std::int32_t>(day),    static_cast<std::int32_t>(hour),
                     static_cast<std::int32_t>(minute), static_cast<std::int32_t>(second)};
  return OruGuiBase::DateTime2ISOStr(now, nullptr, nullptr).Replace('T', '-');
}

// Bytes 10xxxxxx of UTF-8 (RFC 3629, section 3) follow the first byte of a character.
bool ContinuesACharacter(char byte) noexcept {
  return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// The first characters of a group's name, as many as fit into a file name besides `others` bytes and a
// number.
AnsiStr CutName(const AnsiStr& groupName, const Directory& place, std::uint32_t others) noexcept {
  constexpr std::uint32_t kNumber = 5;  // A blank and up to four digits, as GetNumbered adds them.
  const std::uint32_t most = place.GetLongestName() - others - kNumber;
  std::uint32_t length = groupName.GetLength();
  if (length <= most) return groupName;
  for (length = most; length > 0 && ContinuesACharacter(groupName.GetText()[length]); --length) {
  }
  return AnsiStr(groupName.GetText(), length);
}

File NameLog(const AnsiStr& groupName) noexcept {
  const Directory place(DirectoryType::Temporary);
  const AnsiStr start = "Audit Log ";
  const AnsiStr ending = AnsiStr(" ") + TimeStamp() + ".csv";
  const AnsiStr name = CutName(groupName, place, start.GetLength() + ending.GetLength());
  return File(place, File::MakeName(start + name + ending));
}

// Another thread may fetch a log of the same group in the same second. Its log has the name already, so a
// number is appended to the name of this one. Any other failure is final.
bool CreateLog(const File& target, TempFile& log) noexcept {
  constexpr std::uint32_t kMostOfASecond = 1000;  // More logs than anybody fetches within a second.
  if (log.Create(target)) return true;
  for (std::uint32_t number = 2; number <= kMostOfASecond; ++number) {
    if (OruGuiBase::GetLastError() != EEXIST) return false;
    if (log.Create(target.GetNumbered(number))) return true;
  }
  return false;
}

}  // namespace

bool CryptClient::GetAuditLog(const AnsiStr& ofGroup, const AnsiStr& groupName, AnsiStr& fileName) noexcept {
  const File target = NameLog(groupName);
  TempFile log;
  if (!CreateLog(target, log)) {
    return Fail("Could not create %s: %s", target.GetPath().GetText(),
                OruGuiBase::GetSystemErrorText().GetText());
  }
  if (!KeyServerGetAuditLog(ofGroup, log.GetFile())) return false;
  fileName = log.GetPath();
  log.GiveUp();
  return true;
}

// Visits every key server from the first on, in the order of the list, so this is not a sweep. A server
// without a log is skipped, and one log makes a success. Only a failure that would meet every server as well,
// such as a refused token or a full disk, ends the command.
bool CryptClient::KeyServerGetAuditLog(const AnsiStr& ofGroup, const File& target) noexcept {
  keyServerCursor.startIndex = 0;
  keyServerCursor.attempts = 0;
  if (keyServerCursor.servers.IsEmpty()) return Fail("Invalid key server URL");
  KeyServerRequest request(KeyServerCommand::GetAuditLog, ofGroup);
  request.payload.Put("groupId", ofGroup);
  const KVMap envelope = GetEnvelope(request.payload);
  bool merged = false;
  while (NextKeyServer(keyServerCursor)) {
    switch (AddAuditLogOfServer(envelope, ofGroup, target)) {
      case Step::Done:
        merged = true;
        break;
      case Step::NextServer:
        break;
      case Step::GiveUp:
        return false;
    }
  }
  return merged;
}

// The temporary file comes first, so that a disk that takes none costs no exchange. It is removed on return.
CryptClient::Step CryptClient::AddAuditLogOfServer(const KVMap& envelope, const AnsiStr& ofGroup,
                                                   const File& target) noexcept {
  TempFile log;
  if (!CreateTempFile(log, AnsiStr("auditlog-") + ofGroup + ".tmp", /*isPrivate=*/true)) {
    FailWithSystemError("Could not create temporary file");
    return Step::GiveUp;
  }
  if (!KeyServerConnect()) return Step::NextServer;
  if (!FetchAuthzToken(KeyServerCommand::GetAuditLog, ofGroup, KVMap())) return Step::GiveUp;
  const bool isFetched =
      HttpPostToFile(GetServerUrl("rest/json"), envelope, GetSecurityHeader(), log.GetPath());
  if (!isFetched) return Step::NextServer;
  if (!CheckAuditLogResponse(log.GetFile())) return Step::NextServer;
  const bool isAppended = AppendAuditLog(log.GetFile(), target);
  return isAppended ? Step::Done : Step::GiveUp;
}

// A log comes as CSV without an error code in the headers. Any other content type is refused; when the body
// is a key server's error in JSON, that error replaces the message about the content type.
bool CryptClient::CheckAuditLogResponse(const File& response) noexcept {
  const MemberReader headers(responseHeaders);
  AnsiStr contentType = headers.String("content-type");
  const std::uint32_t parameters = contentType.Find(';', 0, /*ignoreCase=*/false);
  if (parameters != AnsiStr::npos) contentType.Trunc(parameters);
  contentType = OruGuiBase::CleanStr(contentType);
  if (AnsiStr::Compare(contentType, "text/csv", /*ignoreCase=*/true) != 0) {
    SetError("Unexpected content type %s", contentType.GetText());
    ReadAuditLogError(response);
    return false;
  }
  const AnsiStr status = headers.String("x-sec-status");
  if (status.IsEmpty()) return true;
  std::int64_t code = 0;
  if (OruGuiBase::Str2Hyper(status, nullptr, code, /*sign=*/true, /*limit=*/20) != 0) code = 0;
  KeyServerErrorText(code);
  return false;
}

// A body that cannot be read or parsed has no better message to offer, so the present one stays.
void CryptClient::ReadAuditLogError(const File& response) noexcept {
  AnsiStr body;
  OruGuiBase::FastReadStream stream(response);
  if (!stream.Read(body)) return;
  Val value;
  AnsiStr parseError;
  if (!OruGuiBase::JSON2Val(body, value, parseError)) return;
  KVMap payload;
  KeyServerCheckResponse(value.AsMap(), KeyServerCommand::GetAuditLog, payload);
}

// A log passes through in chunks and is never in memory as a whole. A stream that fails keeps its reason
// until it is closed, and Close makes that reason the system error text again. So each failure is reported
// after Close.
bool CryptClient::AppendAuditLog(const File& log, const File& target) noexcept {
  const AnsiStr couldNotRead = "Could not read from " + log.GetPath();
  const AnsiStr couldNotWrite = "Could not write to " + target.GetPath();
  ReadStream reader(log, ReadStreamMode::Text);
  if (reader.IsError()) {
    reader.Close();
    return FailWithSystemError(couldNotRead.GetText());
  }
  WriteStream writer(target, WriteStreamMode::Append);
  if (writer.IsError()) {
    writer.Close();
    return FailWithSystemError(couldNotWrite.GetText());
  }
  const std::int64_t size = target.GetSize();
  // Without the size nobody knows whether the header line is there already.
  if (size < 0) return FailWithSystemError(couldNotWrite.GetText());
  const bool hasHeader = size > 0;
  if (hasHeader) reader.SkipLn();
  reader.CopyLines(writer);
  const bool isRead = reader.Close();
  if (!isRead) return FailWithSystemError(couldNotRead.GetText());
  const bool isWritten = writer.Close();
  if (!isWritten) return FailWithSystemError(couldNotWrite.GetText());
  return true;
}

}  // namespace OruKalvix
