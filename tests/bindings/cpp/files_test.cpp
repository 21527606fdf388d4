#include <cstddef>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "tests/bindings/cpp/cpp_fixture.h"

namespace CppInterface {
namespace {

using cryptcli::Source;
using cryptcli::Status;
using cryptcli::Target;
using ::testing::HasSubstr;

using Files = EnvironmentTest;

TEST_F(Files, ComeBackWithAProvenOrigin) {
  Protect(kContent);
  const auto opened = client->Decrypt(kRoom, Path("secret"), Path("opened"));
  ASSERT_TRUE(opened.has_value()) << opened.error().message;
  EXPECT_EQ(scratch.Read("opened"), kContent);
  EXPECT_EQ(opened->origin, cryptcli::Origin::Proven);
  EXPECT_EQ(opened->reason, "");
  EXPECT_EQ(opened->signedRoom, "demo");
  EXPECT_EQ(opened->signedGroup, "QOB.1.100.1");
  EXPECT_EQ(opened->signedRoomUrl, stand.GetServiceUrl() + "mx/demo");
  EXPECT_EQ(opened->serviceRoom, "demo");
  EXPECT_EQ(opened->serviceGroup, "QOB.1.100.1");
  EXPECT_FALSE(opened->isPlainKey);
  EXPECT_EQ(opened->bytes, kContent.size());
  ASSERT_GE(opened->chain.size(), 2U);
  EXPECT_THAT(opened->chain[0], HasSubstr("CN="));
  EXPECT_THAT(opened->json, HasSubstr(R"("origin":"proven")"));
}

TEST_F(Files, EncryptReportsRoomGroupAndBytesButNoOrigin) {
  scratch.Make("plain", kContent);
  const auto made = client->Encrypt(kRoom, Path("plain"), Path("secret"));
  ASSERT_TRUE(made.has_value()) << made.error().message;
  EXPECT_EQ(made->origin, std::nullopt);
  EXPECT_LT(made->origin, cryptcli::Origin::Unsigned);
  EXPECT_EQ(made->serviceRoom, "demo");
  EXPECT_EQ(made->serviceGroup, "QOB.1.100.1");
  EXPECT_EQ(made->bytes, kContent.size());
}

TEST_F(Files, VerifyProvesWithoutATarget) {
  Protect(kContent);
  const auto verified = client->Verify(kRoom, Path("secret"));
  ASSERT_TRUE(verified.has_value()) << verified.error().message;
  EXPECT_EQ(verified->origin, cryptcli::Origin::Proven);
  EXPECT_EQ(verified->bytes, kContent.size());
}

TEST_F(Files, RekeyReplacesTheFileAndKeepsItsContent) {
  Protect(kContent);
  const std::string before = scratch.Read("secret");
  const auto rekeyed = client->Rekey(kRoom, Path("secret"));
  ASSERT_TRUE(rekeyed.has_value()) << rekeyed.error().message;
  EXPECT_EQ(rekeyed->origin, cryptcli::Origin::Proven);
  EXPECT_NE(scratch.Read("secret"), before);
  ASSERT_TRUE(client->Decrypt(kRoom, Path("secret"), Path("opened")).has_value());
  EXPECT_EQ(scratch.Read("opened"), kContent);
}

TEST_F(Files, InspectAsksNoServer) {
  Protect(kContent);
  stand.ClearEvents();
  const auto json = cryptcli::Client::Inspect(Path("secret"));
  ASSERT_TRUE(json.has_value()) << json.error().message;
  EXPECT_THAT(*json, HasSubstr(R"("recipients":[{"issuer":)"));
  EXPECT_TRUE(stand.GetEvents().empty());
}

TEST_F(Files, InspectReadsMemory) {
  Protect(kContent);
  const std::string bytes = scratch.Read("secret");
  EXPECT_TRUE(cryptcli::Client::Inspect(Source::FromMemory(bytes)).has_value());
  const auto refused = cryptcli::Client::Inspect(Source::FromMemory("no message"));
  ASSERT_FALSE(refused.has_value());
  EXPECT_EQ(refused.error().code, Status::NotProtected);
}

TEST_F(Files, PathsMayHaveAnyStringType) {
  scratch.Make("plain", kContent);
  const std::string string = Path("plain").string();
  const std::string_view view = string;
  const std::filesystem::path path = string;
  for (const Source& source : {Source(string), Source(view), Source(path), Source(string.c_str())}) {
    EXPECT_TRUE(client->Encrypt(kRoom, source, Path("secret").c_str()).has_value());
  }
}

TEST_F(Files, DescriptorsAreUsedAtTheirPositionAndStayOpen) {
  scratch.Make("plain", "head" + std::string(kContent));
  scratch.Make("opened", "before ");
  const int source = ::open(Path("plain").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(::lseek(source, 4, SEEK_SET), 4);
  const int target = ::open(Path("opened").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  EXPECT_TRUE(client->Encrypt(kRoom, Source::FromDescriptor(source), Path("secret")).has_value());
  EXPECT_TRUE(client->Decrypt(kRoom, Path("secret"), Target::ToDescriptor(target)).has_value());
  EXPECT_EQ(::close(source), 0);
  EXPECT_EQ(::close(target), 0);
  EXPECT_EQ(scratch.Read("opened"), "before " + std::string(kContent));
}

TEST_F(Files, AClosedDescriptorIsAnInputError) {
  const int closed = ::dup(STDIN_FILENO);
  ::close(closed);
  const auto made = client->Encrypt(kRoom, Source::FromDescriptor(closed), Path("secret"));
  ASSERT_FALSE(made.has_value());
  EXPECT_EQ(made.error().code, Status::Io);
}

TEST_F(Files, WhatIsNoDescriptorIsAnInvalidArgument) {
  const auto made = client->Encrypt(kRoom, Source::FromDescriptor(-1), Path("secret"));
  ASSERT_FALSE(made.has_value());
  EXPECT_EQ(made.error().code, Status::InvalidArgument);
}

TEST_F(Files, OneClientServesManyThreads) {
  Protect(kContent);
  std::vector<std::thread> threads;
  for (int i = 0; i < 16; ++i) {
    threads.emplace_back([&] {
      std::string content;
      EXPECT_TRUE(client->Decrypt(kRoom, Path("secret"), Target::ToMemory(content)).has_value());
      EXPECT_EQ(content, kContent);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// ---- Memory

using Memory = EnvironmentTest;

TEST_F(Memory, BytesAreProtectedAndOpened) {
  std::string bytes(1'000'000, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * i >> 3);
  std::vector<std::byte> secret;
  std::string opened = "as before";
  const auto made = client->Encrypt(kRoom, Source::FromMemory(bytes), Target::ToMemory(secret));
  ASSERT_TRUE(made.has_value()) << made.error().message;
  EXPECT_EQ(made->bytes, bytes.size());
  const auto back = client->Decrypt(kRoom, Source::FromMemory(secret), Target::ToMemory(opened));
  ASSERT_TRUE(back.has_value()) << back.error().message;
  EXPECT_EQ(opened, bytes);
}

TEST_F(Memory, EmptyContentStaysEmpty) {
  std::string secret;
  std::string opened = "as before";
  ASSERT_TRUE(client->Encrypt(kRoom, Source::FromMemory(""), Target::ToMemory(secret)).has_value());
  ASSERT_TRUE(client->Decrypt(kRoom, Source::FromMemory(secret), Target::ToMemory(opened)).has_value());
  EXPECT_EQ(opened, "");
}

TEST_F(Memory, ATargetStaysWhenTheOperationFails) {
  std::string opened = "as before";
  const auto refused = client->Decrypt(kRoom, Source::FromMemory("no message"), Target::ToMemory(opened));
  ASSERT_FALSE(refused.has_value());
  EXPECT_EQ(refused.error().code, Status::NotProtected);
  EXPECT_EQ(opened, "as before");
}

TEST_F(Memory, LeavesNoDescriptorOpen) {
  const auto count = [] {
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return std::distance(begin(open), end(open));
  };
  std::string secret;
  ASSERT_TRUE(client->Encrypt(kRoom, Source::FromMemory("x"), Target::ToMemory(secret)).has_value());
  const auto before = count();
  std::string opened;
  EXPECT_TRUE(client->Verify(kRoom, Source::FromMemory(secret)).has_value());
  EXPECT_FALSE(client->Decrypt("nowhere", Source::FromMemory(secret), Target::ToMemory(opened)).has_value());
  EXPECT_EQ(count(), before);
}

}  // namespace
}  // namespace CppInterface
