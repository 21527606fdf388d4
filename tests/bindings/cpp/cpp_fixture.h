#pragma once

#include <cryptcli/cryptcli.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "stand/stand.h"
#include "tests/support/files.h"

namespace CppInterface {

/// Owns a client and a directory for its files, one for each test. A test sets options and then makes the
/// client.
class ClientTest : public ::testing::Test {
 protected:
  static constexpr const char* kRoom = "demo";
  static constexpr std::string_view kContent = "the plain bytes of a file";

  void MakeClient() {
    auto made = cryptcli::Client::Create(options);
    ASSERT_TRUE(made.has_value()) << made.error().message;
    client.emplace(*std::move(made));
  }
  std::filesystem::path Path(const std::string& name) const { return scratch.Path(name); }

  TestSupport::ScratchDirectory scratch;
  cryptcli::Options options;
  std::optional<cryptcli::Client> client;
};

/// A client of a local test environment in this process.
class EnvironmentTest : public ClientTest {
 protected:
  void SetUp() override {
    std::string reason;
    ASSERT_TRUE(stand.Start(reason)) << reason;
    options.service = stand.GetServiceUrl();
    MakeClient();
  }
  /// Makes "plain" with the bytes and protects it as "secret".
  void Protect(std::string_view bytes) {
    scratch.Make("plain", std::string(bytes));
    const auto made = client->Encrypt(kRoom, Path("plain"), Path("secret"));
    ASSERT_TRUE(made.has_value()) << made.error().message;
  }

  CryptStand::Stand stand;
};

}  // namespace CppInterface
