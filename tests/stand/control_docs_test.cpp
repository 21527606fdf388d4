// docs/stand.md says what the control interface has: its resources, the types of faults, and what its
// responses consist of. Each is compared with what the servers respond.
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

#include "tests/stand/control_peer.h"

namespace CryptStand {
namespace {

std::string ReadDocument() {
  std::ifstream file(CRYPTSTAND_DOCUMENT);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// Not a matcher: it would print the whole document for each row.
void ExpectDocumented(const std::string& row) {
  EXPECT_TRUE(ReadDocument().find(row) != std::string::npos) << "not in the document: " << row;
}

// One row of the table in the documentation: the method, the path, what it does, and the members.
std::string RowOf(const KVMap& resource) {
  std::string row = "| " + *ReadText(resource, "method") + " | `" + *ReadText(resource, "path") + "` | " +
                    *ReadText(resource, "does") + " | ";
  std::string members;
  const KVMap documented = *ReadMap(resource, "members");
  for (const auto& [name, does] : documented) {
    members += (members.empty() ? "`" : "; `") + std::string(name.View()) +
               "`: " + std::string(does.AsString().View());
  }
  return row + members + " |\n";
}

// The same of the types of faults. A meaning is null where the type has no such parameter.
std::string FaultRowOf(const KVMap& type) {
  return "| `" + *ReadText(type, "name") + "` | " + *ReadText(type, "does") + " | " +
         ReadText(type, "number").value_or("") + " | " + ReadText(type, "text").value_or("") + " |\n";
}

TEST_F(ControlTest, IsDocumentedAsItListsItself) {
  for (const KVMap& resource : Maps(Get(Service("stand/")).Object(), "resources")) {
    ExpectDocumented(RowOf(resource));
  }
}

TEST_F(ControlTest, HasItsTypesOfFaultsInTheDocument) {
  std::string table = "| Type | What it does | `number` | `text` |\n|---|---|---|---|\n";
  for (const KVMap& type : ReadList("faults", "types")) {
    ExpectDocumented(FaultRowOf(type));
    table += FaultRowOf(type);
  }
  ExpectDocumented(table + "\n");  // and no others
}

}  // namespace
}  // namespace CryptStand
