#include "tests/stand/admin_peer.h"
#include "tests/stand/folder.h"

namespace CryptStand {
namespace {

// Runs the servers on a folder once, from start to end.
class Life : public AdminTest {
 public:
  explicit Life(const Folder& folder) : AdminTest(OptionsFor(folder)) { AdminTest::SetUp(); }

  using AdminTest::ConfigPayload;
  using AdminTest::Delete;
  using AdminTest::DeletePayload;
  using AdminTest::GetKeyPayload;
  using AdminTest::ImportPayload;
  using AdminTest::KeptKey;
  using AdminTest::MakeRoomKey;
  using AdminTest::ReencryptPayload;
  using AdminTest::RunCommand;
  using AdminTest::RunForGroup;
  using AdminTest::Sign;
  using AdminTest::SignWith;
  using AdminTest::stand_;

 private:
  static Options OptionsFor(const Folder& folder) {
    Options options;
    options.folder = folder.Path("state");
    options.keyServers = 1;
    return options;
  }
  void TestBody() override {}
};

TEST(RestartTest, KeepsWhatWasAdministered) {
  const Folder folder;
  {
    Life life(folder);
    ASSERT_EQ(life.RunForGroup(Life::ConfigPayload()).Code(), 0);
    ASSERT_EQ(life.RunForGroup(Life::ConfigPayload("new"), "new").Code(), 0);
    life.MakeRoomKey();
    ASSERT_EQ(life.RunForGroup(Life::ReencryptPayload(Reader("one").certificate.ToPEM())).Code(), 0);
    for (const char* reader : {"one", "two"}) {
      ASSERT_EQ(life.RunForGroup(Life::ImportPayload(Reader(reader).key.ToPEM())).Code(), 0);
    }
    ASSERT_EQ(life.Delete(Life::DeletePayload("2")).Code(), 0);
  }
  Life life(folder);
  EXPECT_EQ(life.stand_.GetGroup(kGroup)->name, "Group, new");
  EXPECT_EQ(life.stand_.GetGroup("new")->owner, "owner");
  EXPECT_EQ(life.stand_.GetGroup(kGroup)->encryptionCertificate, Reader("one").certificate.ToPEM());
  EXPECT_TRUE(OpensFor(life.KeptKey(), Reader("one")));
  EXPECT_EQ(life.Sign(Life::SignWith("1")).Type(), "signResponse");
  EXPECT_EQ(life.Sign(Life::SignWith("2")).Code(), 607);
  ASSERT_EQ(life.RunForGroup(Life::ImportPayload(Reader("two").key.ToPEM())).Code(), 0);
  EXPECT_EQ(life.Sign(Life::SignWith("2")).Code(), 607) << "sub-identifiers are not given twice";
  EXPECT_EQ(life.Sign(Life::SignWith("3")).Type(), "signResponse");
}

TEST(RestartTest, KeepsTheAuditLog) {
  const Folder folder;
  {
    Life life(folder);
    life.RunCommand(Life::GetKeyPayload());
  }
  Life life(folder);
  const Reply log = life.RunForGroup(Object("type", "getAuditLogRequest", "groupId", kGroup));
  EXPECT_THAT(log.body, testing::HasSubstr(",0,QOB.1.100.1,getKeyRequest,demo,,ok\n"));
}

}  // namespace
}  // namespace CryptStand
