#pragma once

#include <string>
#include <string_view>

#include "foundation/json.h"
#include "foundation/val.h"
#include "tests/bindings/c/environment_fixture.h"
#include "tests/support/text.h"

namespace CInterface {

using OruGuiBase::KVMap;
using OruGuiBase::Val;

/// The JSON of a report.
inline KVMap ParseReport(const Outcome& outcome) {
  Val value;
  OruGuiBase::AnsiStr error;
  EXPECT_TRUE(OruGuiBase::JSON2Val(cryptcli_report_json(outcome.report.get()), value, error));
  return value.AsMap();
}

/// A member that has to be a string.
inline std::string StringIn(const KVMap& object, const char* name) {
  EXPECT_EQ(object.Get(name).GetType(), OruGuiBase::ValType::String) << name;
  return TestSupport::Str(object.Get(name).AsString());
}

/// Runs cryptcli_room and cryptcli_check, which change nothing on the servers.
class Look : public EnvironmentTest {
 protected:
  Outcome AskRoom(const char* room = kRoom) {
    return Call([&](cryptcli_report** report, cryptcli_error** error) {
      return cryptcli_room(client.get(), room, call.get(), report, error);
    });
  }
  Outcome Check(const char* room = kRoom) {
    return Call([&](cryptcli_report** report, cryptcli_error** error) {
      return cryptcli_check(client.get(), room, call.get(), report, error);
    });
  }
  // A finding of a check, which must have succeeded.
  static KVMap Finding(const Outcome& outcome, std::uint32_t index) {
    EXPECT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
    const auto findings = ParseReport(outcome).Get("findings").AsArray();
    EXPECT_LT(index, findings.GetCount());
    return index < findings.GetCount() ? findings[index].AsMap() : KVMap();
  }
  static void ExpectFinding(const KVMap& finding, const char* subject, const char* code) {
    const bool ok = std::string_view(code) == "ok";
    EXPECT_EQ(StringIn(finding, "subject"), subject);
    EXPECT_EQ(StringIn(finding, "code"), code) << StringIn(finding, "message");
    EXPECT_EQ(finding.Get("ok").AsBool(), ok);
    EXPECT_EQ(StringIn(finding, "message").empty(), ok);
    EXPECT_TRUE(ok || !StringIn(finding, "advice").empty());
  }
  void ExpectOnlyReads() {
    for (const CryptStand::Event& event : stand.GetEvents()) EXPECT_EQ(event.method, "GET") << event.target;
  }
};

}  // namespace CInterface
