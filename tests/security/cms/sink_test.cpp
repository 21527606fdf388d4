// Messages and contents that go into a FIFO: it cannot be truncated, no space can be reserved in it, and it
// must remain a FIFO.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/security/cms/fixture.h"

namespace SecurityTest {
namespace {

class CmsSinkToPipeTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(::mkfifo(scratch_.Path("fifo").c_str(), 0600), 0);
    // Open for both, so that neither end waits for the other. The messages fit into its buffer.
    both_ = ::open(scratch_.Path("fifo").c_str(), O_RDWR | O_NONBLOCK);
    ASSERT_GE(both_, 0);
  }
  void TearDown() override {
    ::close(both_);
    EXPECT_TRUE(std::filesystem::is_fifo(scratch_.Path("fifo")));
  }
  std::string Taken() const {
    char bytes[65536];
    const ssize_t count = ::read(both_, bytes, sizeof bytes);
    return count > 0 ? std::string(bytes, static_cast<std::size_t>(count)) : std::string();
  }

  ScratchDirectory scratch_;
  File plain_ = scratch_.Make("plain", "some content");
  File fifo_ = scratch_.File("fifo");
  int both_ = -1;
};

TEST_F(CmsSinkToPipeTest, TakesASignedMessage) {
  ASSERT_TRUE(SignFile(plain_, fifo_)) << GetReason();
  CMSMsg message;
  EXPECT_TRUE(message.Load(scratch_.Make("signed", Taken()))) << GetReason();
}

TEST_F(CmsSinkToPipeTest, TakesAnEnvelopedMessage) {
  CMSMsg message;
  ASSERT_TRUE(message.CreateEnvelopedData(OruOssSec::CipherAlgorithm::AES256CBC));
  ASSERT_TRUE(message.AddRecipient(ToCertificate(Room().certificate)));
  ASSERT_TRUE(message.Save(CMSMsg::Format::BERStream, plain_, fifo_)) << GetReason();
  CMSMsg read;
  EXPECT_TRUE(read.Load(scratch_.Make("enveloped", Taken()))) << GetReason();
}

TEST_F(CmsSinkToPipeTest, TakesSignedContent) {
  ASSERT_TRUE(SignFile(plain_, scratch_.File("signed")));
  CMSMsg message;
  ASSERT_TRUE(message.Load(scratch_.File("signed")));
  ASSERT_TRUE(message.GetContent(fifo_)) << GetReason();
  EXPECT_EQ(Taken(), "some content");
}

TEST_F(CmsSinkToPipeTest, TakesDecryptedContent) {
  ASSERT_TRUE(EnvelopeFile(plain_, scratch_.File("enveloped")));
  CMSMsg message;
  ASSERT_TRUE(message.Load(scratch_.File("enveloped")));
  ASSERT_TRUE(message.SetRecipientKey(ToCertificate(Room().certificate), ToPrivateKey(Room().key)));
  ASSERT_TRUE(message.GetContent(fifo_)) << GetReason();
  EXPECT_EQ(Taken(), "some content");
}

TEST_F(CmsSinkToPipeTest, TakesDigestedContent) {
  CMSMsg message;
  ASSERT_TRUE(message.Load(File(ToText(CRYPTCLI_TEST_DATA "/digested/definite.cms")))) << GetReason();
  ASSERT_TRUE(message.GetContent(fifo_)) << GetReason();
  EXPECT_EQ(Taken(), TestSupport::ReadFile(CRYPTCLI_TEST_DATA "/content.bin"));
}

}  // namespace
}  // namespace SecurityTest
