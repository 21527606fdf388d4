#include <cryptcli/cryptcli.hpp>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

// What Result promises, whether it is the standard library's class or ours.
namespace CppInterface {
namespace {

using cryptcli::Error;
using cryptcli::Failure;
using cryptcli::Result;
using cryptcli::Status;

Result<int> Half(int number) {
  if (number % 2 != 0) return Failure(Status::InvalidArgument, "odd");
  return number / 2;
}

TEST(ResultValue, IsReachedInEachWay) {
  Result<std::string> result("value");
  const Result<std::string>& same = result;
  EXPECT_TRUE(result.has_value());
  EXPECT_TRUE(static_cast<bool>(result));
  EXPECT_EQ(result.value(), "value");
  EXPECT_EQ(*same, "value");
  EXPECT_EQ(same->size(), 5U);
  result->append("s");
  EXPECT_EQ(std::move(result).value(), "values");
}

TEST(ResultValue, MayBeMoveOnly) {
  Result<std::unique_ptr<int>> result(std::make_unique<int>(7));
  const std::unique_ptr<int> taken = *std::move(result);
  EXPECT_EQ(*taken, 7);
  static_assert(!std::is_copy_constructible_v<Result<std::unique_ptr<int>>>);
  static_assert(std::is_nothrow_move_constructible_v<Result<std::unique_ptr<int>>>);
  static_assert(std::is_copy_constructible_v<Result<std::string>>);
}

TEST(ResultError, IsThatOfTheFailure) {
  const Result<int> failed = Half(7);
  EXPECT_FALSE(failed.has_value());
  EXPECT_FALSE(failed);
  EXPECT_EQ(failed.error().code, Status::InvalidArgument);
  EXPECT_EQ(failed.error().message, "odd");
  EXPECT_EQ(failed.error().json, R"({"code":"invalid_argument","message":"odd","retryable":false,)"
                                 R"("httpStatus":0,"url":"","attempts":[]})");
  EXPECT_EQ(Result<int>(cryptcli::Unexpected(failed.error())).error().message, "odd");
}

TEST(ResultError, IsValidJsonWhateverTheMessage) {
  const Result<int> failed = Failure(Status::Io, "a \"b\" \\ \n \x1F \xC3\xA9");
  EXPECT_NE(failed.error().json.find(R"("message":"a \"b\" \\ \u000a \u001f )"), std::string::npos);
  EXPECT_EQ(failed.error().message, "a \"b\" \\ \n \x1F \xC3\xA9");
}

TEST(ResultValueOr, GivesTheOtherForAFailure) {
  EXPECT_EQ(Half(8).value_or(-1), 4);
  EXPECT_EQ(Half(7).value_or(-1), -1);
  const Result<std::string> failed = Failure(Status::Io, "");
  EXPECT_EQ(failed.value_or("other"), "other");
}

TEST(ResultChains, RunTheNextStepOnlyForAValue) {
  EXPECT_EQ(Half(8).and_then(Half).value(), 2);
  EXPECT_EQ(Half(6).and_then(Half).error().message, "odd");
  const Result<int> eight = 8;
  EXPECT_EQ(eight.and_then(Half).transform([](int number) { return std::to_string(number); }).value(), "4");
  bool ran = false;
  const auto failed = Half(7).transform([&](int) { return ran = true; });
  EXPECT_FALSE(ran);
  EXPECT_EQ(failed.error().message, "odd");
}

TEST(ResultChains, GoOnFromAFailure) {
  const auto recover = [](const Error& error) -> Result<int> {
    return error.code == Status::InvalidArgument ? 0 : 1;
  };
  EXPECT_EQ(Half(7).or_else(recover).value(), 0);
  EXPECT_EQ(Half(8).or_else(recover).value(), 4);
  const Result<int> odd = Half(7);
  EXPECT_EQ(odd.or_else(recover).value(), 0);
}

TEST(ResultChains, MoveMoveOnlyValues) {
  Result<std::unique_ptr<int>> made(std::make_unique<int>(7));
  const auto result = std::move(made).transform([](std::unique_ptr<int> number) { return *number; });
  EXPECT_EQ(result.value(), 7);
}

TEST(Names, AreThoseOfTheCInterface) {
  EXPECT_EQ(cryptcli::ToString(Status::OriginNotProven), "origin_not_proven");
  EXPECT_EQ(cryptcli::ToString(static_cast<Status>(999)), "internal");
  EXPECT_EQ(cryptcli::ToString(cryptcli::Origin::SignatureOnly), "signature_only");
  EXPECT_EQ(cryptcli::ToString(static_cast<cryptcli::Origin>(999)), "unproven");
  EXPECT_EQ(cryptcli::ToString(cryptcli::Policy::Proven), "proven");
  EXPECT_EQ(cryptcli::ToString(cryptcli::Policy::AnySigner), "any_signer");
  EXPECT_EQ(cryptcli::ToString(cryptcli::Policy::SignatureOnly), "signature_only");
  EXPECT_EQ(cryptcli::ToString(cryptcli::Policy::Anything), "anything");
  EXPECT_EQ(cryptcli::ToString(static_cast<cryptcli::Policy>(999)), "proven");
}

TEST(Origins, CompareByTheirStrength) {
  using cryptcli::Origin;
  EXPECT_LT(Origin::Unsigned, Origin::Unproven);
  EXPECT_LT(Origin::Unproven, Origin::SignatureOnly);
  EXPECT_LT(Origin::SignatureOnly, Origin::OtherRoom);
  EXPECT_LT(Origin::OtherRoom, Origin::Proven);
}

TEST(UnknownNumbers, OfANewerLibraryAreTheCautiousValues) {
  EXPECT_EQ(cryptcli::detail::ToStatus(16), Status::Internal);
  EXPECT_EQ(cryptcli::detail::ToStatus(-1), Status::Internal);
  EXPECT_EQ(cryptcli::detail::ToOrigin(5), cryptcli::Origin::Unproven);
  EXPECT_EQ(cryptcli::detail::ToOrigin(-1), cryptcli::Origin::Unproven);
}

}  // namespace
}  // namespace CppInterface
