#pragma once

#include <cryptcli/cryptcli.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>

#include "tests/support/files.h"

namespace CInterface {

struct Free {
  void operator()(cryptcli_options* object) const { cryptcli_options_free(object); }
  void operator()(cryptcli_client* object) const { cryptcli_client_free(object); }
  void operator()(cryptcli_call* object) const { cryptcli_call_free(object); }
  void operator()(cryptcli_report* object) const { cryptcli_report_free(object); }
  void operator()(cryptcli_error* object) const { cryptcli_error_free(object); }
};
template <class Object>
using Owned = std::unique_ptr<Object, Free>;

/// How an operation ended. Owns the report and the error that it stored.
struct Outcome {
  cryptcli_status status = CRYPTCLI_INTERNAL;
  Owned<cryptcli_report> report;
  Owned<cryptcli_error> error;

  std::string Message() const { return error != nullptr ? cryptcli_error_message(error.get()) : ""; }
};

/// Runs `work` with pointers for the report and the error, and checks what holds for every operation.
template <class Work>
Outcome Call(Work work) {
  cryptcli_report* report = nullptr;
  cryptcli_error* error = nullptr;
  Outcome outcome;
  outcome.status = work(&report, &error);
  outcome.report.reset(report);
  outcome.error.reset(error);
  // An error comes with each failure and with no success.
  EXPECT_EQ(outcome.error != nullptr, outcome.status != CRYPTCLI_OK) << cryptcli_status_name(outcome.status);
  if (outcome.error != nullptr) {
    EXPECT_EQ(cryptcli_error_code(outcome.error.get()), outcome.status);
  }
  return outcome;
}

/// Owns a client and a directory for its files, one for each test. A test sets options and then makes the
/// client.
class ClientTest : public ::testing::Test {
 protected:
  static constexpr const char* kRoom = "demo";

  void MakeClient() {
    cryptcli_client* made = nullptr;
    cryptcli_error* error = nullptr;
    ASSERT_EQ(cryptcli_client_new(options.get(), &made, &error), CRYPTCLI_OK)
        << cryptcli_error_message(error);
    client.reset(made);
  }
  std::string Path(const std::string& name) const { return scratch.Path(name).string(); }

  Outcome Encrypt(const std::string& source, const std::string& target, const char* room = kRoom) {
    return Call([&](cryptcli_report** report, cryptcli_error** error) {
      return cryptcli_encrypt(client.get(), room, cryptcli_path(Path(source).c_str()),
                              cryptcli_path(Path(target).c_str()), call.get(), report, error);
    });
  }
  Outcome Decrypt(const std::string& source, const std::string& target, const char* room = kRoom) {
    return Call([&](cryptcli_report** report, cryptcli_error** error) {
      return cryptcli_decrypt(client.get(), room, cryptcli_path(Path(source).c_str()),
                              cryptcli_path(Path(target).c_str()), call.get(), report, error);
    });
  }
  Outcome Verify(const std::string& source, const char* room = kRoom) {
    return Call([&](cryptcli_report** report, cryptcli_error** error) {
      return cryptcli_verify(client.get(), room, cryptcli_path(Path(source).c_str()), call.get(), report,
                             error);
    });
  }
  void Accept(cryptcli_policy policy) {
    ASSERT_EQ(cryptcli_call_set_accept(call.get(), policy, nullptr), CRYPTCLI_OK);
  }

  TestSupport::ScratchDirectory scratch;
  Owned<cryptcli_options> options{cryptcli_options_new()};
  Owned<cryptcli_client> client;
  Owned<cryptcli_call> call{cryptcli_call_new()};
};

}  // namespace CInterface
