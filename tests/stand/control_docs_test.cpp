#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

#include "tests/stand/control_peer.h"

namespace CryptStand {
namespace {

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
  return row + members + " |";
}

TEST_F(ControlTest, IsDocumentedAsItListsItself) {
  std::ifstream file(CRYPTSTAND_DOCUMENT);
  std::ostringstream text;
  text << file.rdbuf();
  for (const KVMap& resource : Maps(Get(Service("stand/")).Object(), "resources")) {
    EXPECT_THAT(text.str(), testing::HasSubstr(RowOf(resource) + "\n"));
  }
}

}  // namespace
}  // namespace CryptStand
