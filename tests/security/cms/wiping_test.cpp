#include <gtest/gtest.h>

#include "tests/security/cms/fixture.h"
#include "tests/support/freed_memory.h"

namespace SecurityTest {
namespace {

constexpr const char* kSecret = "TopSecretContent0815";

/// More than any buffer takes at once, with the secret in each page.
std::string MakeSecretContent() {
  std::string content = MakeBytes(std::size_t{700} * 1000);
  for (std::size_t i = 0; i + 100 < content.size(); i += 4000) content.replace(i, 20, kSecret);
  return content;
}

/// Runs the work and expects that no block it freed still held a chunk of the content.
template <class Work>
void ExpectWiped(Work work) {
  OruGuiBase::WatchFreedMemory(kSecret);
  const bool done = work();
  EXPECT_EQ(OruGuiBase::StopWatching(), 0);
  EXPECT_GT(OruGuiBase::GetWatchedBlocks(), 0);
  EXPECT_TRUE(done) << GetReason();
}

class CmsWipingTest : public testing::Test {
 protected:
  ScratchDirectory scratch_;
  File plain_ = scratch_.Make("plain", MakeSecretContent());
};

TEST_F(CmsWipingTest, LeavesNoContentInFreedMemoryWhenSigning) {
  ExpectWiped([this] { return SignFile(plain_, scratch_.File("signed")); });
}

TEST_F(CmsWipingTest, LeavesNoContentInFreedMemoryWhenEncrypting) {
  ExpectWiped([this] { return EnvelopeFile(plain_, scratch_.File("enveloped")); });
}

// The key is freed with the message, or when another key replaces it.
TEST_F(CmsWipingTest, WipesTheContentKeyWithItsMessage) {
  const std::string key = kSecret + std::string(32 - std::char_traits<char>::length(kSecret), 'k');
  const AnsiStr first = ToText(CryptStand::ToBase64(key));
  const AnsiStr second = ToText(CryptStand::ToBase64(std::string(32, 'x')));
  ASSERT_TRUE(EnvelopeFile(plain_, scratch_.File("enveloped"))) << GetReason();
  ExpectWiped([&] {
    CMSMsg message;
    return message.Load(scratch_.File("enveloped")) && message.SetContentKey(first);
  });
  ExpectWiped([&] {
    CMSMsg message;
    return message.Load(scratch_.File("enveloped")) && message.SetContentKey(first) &&
           message.SetContentKey(second);
  });
}

TEST_F(CmsWipingTest, LeavesNoContentInFreedMemoryWhenDecrypting) {
  ASSERT_TRUE(EnvelopeFile(plain_, scratch_.File("enveloped"))) << GetReason();
  ExpectWiped([this] {
    CMSMsg message;
    return message.Load(scratch_.File("enveloped")) &&
           message.SetRecipientKey(ToCertificate(Room().certificate), ToPrivateKey(Room().key)) &&
           message.GetContent(scratch_.File("opened"));
  });
}

TEST_F(CmsWipingTest, LeavesNoContentInFreedMemoryWhenReadingSignedContent) {
  ASSERT_TRUE(SignFile(plain_, scratch_.File("signed"))) << GetReason();
  ExpectWiped([this] {
    CMSMsg message;
    OruGuiBase::PtrContainerQueue<OruOssSec::CMSSigner> signers;
    return message.Load(scratch_.File("signed")) && message.Verify() && message.GetSigners(signers) &&
           message.GetContent(scratch_.File("opened"));
  });
}

TEST_F(CmsWipingTest, LeavesNoContentInFreedMemoryAfterAFailure) {
  ASSERT_TRUE(EnvelopeFile(plain_, scratch_.File("enveloped"))) << GetReason();
  std::string bytes = scratch_.Read("enveloped");
  bytes[bytes.size() - 20] = static_cast<char>(bytes[bytes.size() - 20] ^ 1);  // breaks the padding
  scratch_.Make("broken", bytes);
  ExpectWiped([this] {
    CMSMsg message;
    return message.Load(scratch_.File("broken")) &&
           message.SetRecipientKey(ToCertificate(Room().certificate), ToPrivateKey(Room().key)) &&
           !message.GetContent(scratch_.File("opened"));
  });
}

}  // namespace
}  // namespace SecurityTest
