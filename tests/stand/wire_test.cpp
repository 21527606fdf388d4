#include "stand/wire.h"

#include <gtest/gtest.h>

namespace CryptStand {
namespace {

TEST(WireTest, ReadsOnlyObjects) {
  EXPECT_TRUE(ReadObject("{}").has_value());
  for (const char* text : {"", "[]", "1", "null", "{", "{}x", "{\"a\":\xFF}"}) {
    EXPECT_FALSE(ReadObject(text).has_value()) << text;
  }
}

TEST(WireTest, ReadsAMemberOnlyAsTheTypeThatItHas) {
  const KVMap object =
      *ReadObject(R"({"t":"x","n":5,"b":true,"o":{},"a":["x"],"m":["x",1],"z":null,"f":1.5})");
  EXPECT_EQ(ReadText(object, "t"), "x");
  EXPECT_EQ(ReadInteger(object, "n"), 5);
  EXPECT_EQ(ReadBool(object, "b"), true);
  EXPECT_TRUE(ReadMap(object, "o").has_value());
  EXPECT_EQ(ReadTexts(object, "a"), std::vector<std::string>{"x"});
  EXPECT_FALSE(ReadTexts(object, "m").has_value());
  for (const char* name : {"n", "b", "o", "a", "z", "f", "missing"}) {
    EXPECT_FALSE(ReadText(object, name).has_value()) << name;
  }
  EXPECT_FALSE(ReadInteger(object, "f").has_value());
  EXPECT_FALSE(ReadBool(object, "n").has_value());
}

TEST(WireTest, ChecksWhichMembersExist) {
  const KVMap object = *ReadObject(R"({"a":1,"b":2})");
  EXPECT_TRUE(HasMembers(object, {"a", "b"}));
  EXPECT_TRUE(HasMembers(object, {"a"}, {"b", "c"}));
  EXPECT_FALSE(HasMembers(object, {"a"}));
  EXPECT_FALSE(HasMembers(object, {"a", "b", "c"}));
  EXPECT_FALSE(HasMembers(object, {"a", "c"}, {"b"}));
}

TEST(WireTest, ReadsCertificatesAsPEMAndAsBase64) {
  const Cert certificate = Identity::MakeRoot(CertSpec::Authority("x")).certificate;
  EXPECT_EQ(CertFromText(certificate.ToPEM()).ToDER(), certificate.ToDER());
  EXPECT_EQ(CertFromText(certificate.ToBase64()).ToDER(), certificate.ToDER());
  EXPECT_TRUE(CertFromText("").IsEmpty());
  EXPECT_TRUE(CertFromText("AAAA").IsEmpty());
  EXPECT_TRUE(CertFromText("-----BEGIN CERTIFICATE-----").IsEmpty());
  EXPECT_TRUE(CertFromText(ToBase64(certificate.ToDER() + "x")).IsEmpty()) << "bytes after the certificate";
}

TEST(WireTest, RefusesWithIdAndText) {
  const HttpReply reply = Refusal(404, "id", "a \"text\"");
  EXPECT_EQ(reply.status, 404);
  EXPECT_EQ(reply.body, R"({"errorid":"id","errortext":"a \"text\""})");
}

}  // namespace
}  // namespace CryptStand
