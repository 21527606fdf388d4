#include <ctime>
#include <filesystem>

#include "tests/protection/services_fixture.h"
#include "tests/tampering/memory_meter.h"
#include "tests/tampering/tlv.h"

using ::testing::IsEmpty;

namespace TestSupport {
namespace {

constexpr const char* kContent = "bytes that nobody may change";
constexpr std::size_t kMostMemory = 64 << 20;
constexpr double kMostSeconds = 5;

enum class Form { Ours, Definite };
enum class Layer { Outer, Inner };
enum class Key { OnServer, HandedOut };

struct Way {
  const char* name;
  Form form;
  Layer layer;
  Key key;
};

double GetSeconds() {
  std::timespec time = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// One layer of a protected file, to be changed. A changed inner layer is encrypted again, as anybody who has
// the room's certificate could do it.
class Tampering : public ServicesTest, public ::testing::WithParamInterface<Way> {
 protected:
  void SetUp() override {
    if (GetParam().key == Key::HandedOut) {
      services.Set("key",
                   Json(With(ScriptedServices::RoomKeyResponse(), "plain", Quoted(pki.room.key.ToPEM()))));
    }
    layer = MakeLayer();
    ASSERT_FALSE(layer.empty());
  }

  /// The outcome of opening a changed layer.
  struct Opened {
    bool done = false;
    bool isSigned = false;
    bool isVerified = false;
    std::string error;
  };

  Opened Open(const std::string& changed) {
    std::filesystem::remove(scratch.Path("opened"));
    const bool isInner = GetParam().layer == Layer::Inner;
    const OruGuiBase::File source =
        scratch.Make("changed", isInner ? MakeEnveloped(changed, {pki.room.certificate}) : changed);
    const OruGuiBase::File target = scratch.File("opened");
    ScriptedHttp& http = services.http;
    Opened opened;
    const double begin = GetSeconds();
    const MemoryMeter meter;
    {
      OruKalvix::CryptClient opener(&http, kServiceUrl, "", "room 1");
      opened.done = opener.Decrypt(source, target, opened.isSigned, opened.isVerified);
      opened.error = Str(opener.GetErrorMessage());
    }
    EXPECT_LT(meter.GetPeak(), kMostMemory);
    EXPECT_LT(GetSeconds() - begin, kMostSeconds);
    return opened;
  }

  // However a file is changed, only signed content has a proven origin, and no temporary file is left.
  Opened Undergo(const std::string& changed) {
    const Opened opened = Open(changed);
    EXPECT_TRUE(opened.done || !opened.error.empty());
    EXPECT_TRUE(opened.done || !opened.isVerified);
    EXPECT_EQ(scratch.Exists("opened"), opened.done) << opened.error;
    if (opened.isVerified) {
      EXPECT_EQ(scratch.Read("opened"), kContent);
    }
    // No signed message: delivered unchanged.
    if (opened.done && !opened.isSigned && GetParam().layer == Layer::Inner) {
      EXPECT_EQ(scratch.Read("opened"), changed);
    }
    EXPECT_THAT(scratch.GetTemporaryNames(), IsEmpty());
    return opened;
  }

  std::string layer;

 private:
  std::string MakeLayer() {
    const bool isInner = GetParam().layer == Layer::Inner;
    if (GetParam().form == Form::Ours) return isInner ? OpenEnvelope(Protect(), pki.room) : Protect();
    const std::string inner = Sign();
    return isInner ? inner : MakeEnveloped(inner, {pki.room.certificate});
  }
  std::string Sign() {
    SignerSpec signer;
    signer.identity = pki.integrity;
    signer.attributes = {{kGroupOid, kGroup}};
    signer.signingTime = kServicesTime;
    return MakeSigned(kContent, {signer});
  }
  std::string Protect() {
    bool keyErrorFlag = false;
    EXPECT_TRUE(client.Encrypt(scratch.Make("plain", kContent), scratch.File("secret"), keyErrorFlag))
        << Error();
    return scratch.Read("secret");
  }
};

class UnchangedFile : public Tampering {};
class CutFile : public Tampering {};
class FlippedByte : public Tampering {};
class ReplacedLength : public Tampering {};

TEST_P(UnchangedFile, OpensAndIsVerified) {
  const Opened opened = Undergo(layer);
  EXPECT_TRUE(opened.done) << opened.error;
  EXPECT_TRUE(opened.isVerified) << opened.error;
}

// A file cut in its outer layer is not opened at all.
TEST_P(CutFile, IsNeverVerified) {
  for (std::size_t size = 0; size < layer.size(); ++size) {
    SCOPED_TRACE(size);
    const Opened opened = Undergo(layer.substr(0, size));
    EXPECT_FALSE(opened.isVerified);
    EXPECT_FALSE(opened.done && GetParam().layer == Layer::Outer);
  }
}

TEST_P(FlippedByte, NeverYieldsAFalseProof) {
  for (std::size_t i = 0; i < layer.size(); ++i) {
    SCOPED_TRACE(i);
    std::string changed = layer;
    changed[i] = static_cast<char>(changed[i] ^ (1 << (i % 8)));
    Undergo(changed);
  }
}

TEST_P(ReplacedLength, NeverYieldsAFalseProof) {
  const std::vector<LengthField> fields = FindLengthFields(layer);
  ASSERT_GT(fields.size(), 20U);
  std::vector<std::string> replacements = {"\x80", "\xFF"};
  for (const std::uint64_t value :
       {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{0x7F}, std::uint64_t{0x80}, std::uint64_t{1} << 31,
        std::uint64_t{1} << 63, ~std::uint64_t{0}}) {
    replacements.push_back(LengthOctets(value));
  }
  for (const LengthField& field : fields) {
    for (const std::string& octets : replacements) {
      SCOPED_TRACE(std::to_string(field.offset) + " " + ::testing::PrintToString(octets));
      Undergo(WithLength(layer, field, octets));
    }
    SCOPED_TRACE(std::to_string(field.offset) + " all ones in place");
    Undergo(WithLength(layer, field, std::string(field.size, '\xFF')));
  }
}

constexpr Way kOuter{"OuterWithKeyOnServer", Form::Ours, Layer::Outer, Key::OnServer};
constexpr Way kInner{"InnerWithKeyOnServer", Form::Ours, Layer::Inner, Key::OnServer};
constexpr Way kInnerPlainKey{"InnerWithPlainKey", Form::Ours, Layer::Inner, Key::HandedOut};
constexpr Way kDefiniteOuter{"DefiniteOuterWithPlainKey", Form::Definite, Layer::Outer, Key::HandedOut};
constexpr Way kDefiniteInner{"DefiniteInnerWithKeyOnServer", Form::Definite, Layer::Inner, Key::OnServer};

// Each suite opens thousands of files: all of them in every way would take minutes.
const auto kNameOf = [](const auto& way) { return std::string(way.param.name); };
INSTANTIATE_TEST_SUITE_P(Ways, UnchangedFile,
                         ::testing::Values(kOuter, kInner, kInnerPlainKey, kDefiniteOuter, kDefiniteInner),
                         kNameOf);
INSTANTIATE_TEST_SUITE_P(Ways, CutFile, ::testing::Values(kOuter, kInner), kNameOf);
INSTANTIATE_TEST_SUITE_P(Ways, FlippedByte, ::testing::Values(kOuter, kInner, kInnerPlainKey), kNameOf);
INSTANTIATE_TEST_SUITE_P(Ways, ReplacedLength,
                         ::testing::Values(kOuter, kInner, kDefiniteOuter, kDefiniteInner), kNameOf);

}  // namespace
}  // namespace TestSupport
