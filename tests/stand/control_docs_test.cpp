// docs/stand.md says what the control interface has: its resources, the types of faults, and what its
// responses consist of. Each is compared with what the servers respond.
#include <fstream>
#include <gtest/gtest.h>
#include <set>
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

using Names = std::set<std::string>;

// Names of all members, with those that they are in.
void AddNames(const Val& value, const std::string& path, Names& names) {
  if (value.GetType() == OruGuiBase::ValType::Array) {
    for (const Val& element : value.AsArray()) AddNames(element, path, names);
  }
  if (value.GetType() != OruGuiBase::ValType::Map) return;
  for (const auto& [name, member] : value.AsMap()) {
    const std::string inner = path + "/" + std::string(name.View());
    names.insert(inner);
    AddNames(member, inner, names);
  }
}

Names NamesOf(const KVMap& object) {
  Names names;
  AddNames(Val(object), "", names);
  return names;
}

// The block of JSON that follows a heading.
KVMap ExampleOf(const std::string& resource) {
  const std::string text = ReadDocument();
  const std::string start = "```json\n";
  const std::size_t heading = text.find("\n### `GET " + resource + "`\n");
  const std::size_t block = text.find(start, heading);
  if (heading == std::string::npos || block == std::string::npos) return {};
  const std::size_t begin = block + start.size();
  return ReadObject(text.substr(begin, text.find("```", begin) - begin)).value_or(KVMap());
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

TEST_F(ControlTest, HasItsStateInTheDocument) {
  MakeRoomKey();
  EXPECT_EQ(Change("POST", "groups/QOB.1.100.1/integrity-key").status, 200);
  EXPECT_EQ(Change("POST", "faults", R"({"server":"0","fault":"slow","number":1})").status, 200);
  EXPECT_THAT(NamesOf(ExampleOf("/stand/v1/state")), testing::ContainerEq(NamesOf(Read("state"))));
}

TEST_F(ControlTest, HasAnEventInTheDocument) {
  EXPECT_EQ(Get(Server("status?5")).status, 200);
  EXPECT_THAT(NamesOf(ExampleOf("/stand/v1/events/NUMBER")), testing::ContainerEq(NamesOf(Read("events/1"))));
}

class DocumentedProxyTest : public ControlTest {
 protected:
  DocumentedProxyTest() : ControlTest(MakeOptions()) {}

 private:
  static Options MakeOptions() {
    Options options;
    options.proxyPort = 0;
    return options;
  }
};

TEST_F(DocumentedProxyTest, HasItsRecordsInTheDocument) {
  EXPECT_EQ(Peer({.proxy = stand_.GetProxyUrl()}).Send("GET", Server("status")).status, 200);
  EXPECT_THAT(NamesOf(ExampleOf("/stand/v1/proxy")), testing::ContainerEq(NamesOf(Read("proxy"))));
}

}  // namespace
}  // namespace CryptStand
