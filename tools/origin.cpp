// Shows people where content comes from. decrypt and verify show it beside their result, every refusal for
// the origin explains itself with it (FailWith in session.cpp). The verdict itself is the library's.
#include "tools/origin.h"

#include <string>
#include <vector>

#include "foundation/format.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;

namespace {

AnsiStr Quote(const std::string& text) {
  return OruGuiBase::SimpleQuote(AnsiStr(text));
}

AnsiStr RoomOf(const std::string& room, const std::string& group) {
  return AnsiStr("room ") + Quote(room) + " of group " + Quote(group);
}

std::vector<AnsiStr> Describe(const cryptcli::Report& found, bool all) {
  std::vector<AnsiStr> lines;
  const auto add = [&](const AnsiStr& line) { lines.push_back(AnsiStr("  ") + line); };
  const bool isNamed = !found.signedRoom.empty() || !found.signedGroup.empty();
  const bool isOther = found.signedRoom != found.serviceRoom || found.signedGroup != found.serviceGroup;
  if (isNamed) add(AnsiStr("signed for ") + RoomOf(found.signedRoom, found.signedGroup));
  if (all && !found.signedRoomUrl.empty()) add(AnsiStr("room URL: ") + AnsiStr(found.signedRoomUrl));
  // The service's own words matter only where they differ: otherwise they would repeat the line above.
  const bool isAnswered = !found.serviceRoom.empty() || !found.serviceGroup.empty();
  if (isAnswered && (all || (isNamed && isOther))) {
    add(AnsiStr("the crypt service named ") + RoomOf(found.serviceRoom, found.serviceGroup));
  }
  for (std::size_t i = 0; i < found.chain.size() && (all || i == 0); ++i) {
    add(AnsiStr(i == 0 ? "signer: " : "issued by: ") + AnsiStr(found.chain[i]));
  }
  return lines;
}

}  // namespace

const char* NameOrigin(cryptcli::Origin origin) {
  switch (origin) {
    case cryptcli::Origin::Proven:
      return "origin proven";
    case cryptcli::Origin::OtherRoom:
      return "signed for another room, origin NOT proven";
    case cryptcli::Origin::SignatureOnly:
      return "signed by anybody, origin NOT proven";
    case cryptcli::Origin::Unsigned:
      return "not signed, origin unknown";
    default:
      // Origin::Unproven, and whatever a newer library may add: none of it is proven.
      return "signed, origin NOT proven";
  }
}

void ShowOrigin(Report& report, const cryptcli::Report& found, bool all) {
  for (const AnsiStr& line : Describe(found, all)) report.Line(line);
  if (found.origin == cryptcli::Origin::Proven) return;
  if (report.GetOperation() == "rekey" && !found.isPlainKey) {
    // The signature is new, and nothing in the file shows any more that this one was doubtful. With a key in
    // the clear no signer is examined, before or after.
    report.Warn(AnsiStr("The origin of the content was not proven: ") + AnsiStr(found.reason) +
                "; the new file is signed by this program and counts as proven from now on");
    return;
  }
  report.Warn(AnsiStr("The origin of the content is not proven: ") + AnsiStr(found.reason));
}

void ShowRoom(Report& report, const cryptcli::Report& made) {
  report.Line(AnsiStr("  for ") + RoomOf(made.serviceRoom, made.serviceGroup));
  report.Line(AnsiStr("  ") + AnsiStr(std::to_string(made.bytes)) + " bytes");
}

void ExplainOrigin(Report& report, const cryptcli::Report& found) {
  for (const AnsiStr& line : Describe(found, /*all=*/true)) report.Explain(line);
}

}  // namespace CryptCli
