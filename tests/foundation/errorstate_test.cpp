#include "foundation/errorstate.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <thread>

#include "foundation/errno_saver.h"
#include "foundation/error_state_saver.h"
#include "tests/foundation/printing.h"

namespace OruGuiBase {
namespace {

TEST(ErrorStateTest, ACodeGivesTheSystemsMessage) {
  SetLastError(ENOENT);
  EXPECT_EQ(GetLastError(), static_cast<std::uint32_t>(ENOENT));
  EXPECT_EQ(GetErrorMessage(GetLastError(), 0, 1), std::strerror(ENOENT));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
}

TEST(ErrorStateTest, ReportsAMessageAsTheReason) {
  SetErrorMessage("The signer said no");
  EXPECT_EQ(GetLastError(), kTextError);
  EXPECT_EQ(GetErrorMessage(GetLastError(), 0, 1), "The signer said no");
  EXPECT_EQ(GetSystemErrorText(), "The signer said no");
}

TEST(ErrorStateTest, ALaterCodeReplacesAMessage) {
  SetErrorMessage("old");
  SetLastError(EACCES);
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EACCES));
  EXPECT_TRUE(GetErrorMessage(kTextError, 0, 1).IsEmpty());
}

TEST(ErrorStateTest, ClearForgetsErrnoToo) {
  SetErrorMessage("old");
  errno = EIO;
  ClearLastError();
  EXPECT_EQ(GetLastError(), 0U);
  EXPECT_EQ(errno, 0);
  EXPECT_TRUE(GetErrorMessage(kTextError, 0, 1).IsEmpty());
}

TEST(ErrorStateTest, ErrnoBecomesTheLastError) {
  errno = EEXIST;
  SetLastErrorFromErrno();
  EXPECT_EQ(GetLastError(), static_cast<std::uint32_t>(EEXIST));
}

TEST(ErrorStateTest, AFailureWithoutACodeStillLeavesOne) {
  errno = 0;
  SetLastErrorFromErrno();
  EXPECT_NE(GetLastError(), 0U);
}

TEST(ErrorStateTest, WithoutALastErrorErrnoIsTheReason) {
  ClearLastError();
  errno = ENOSPC;
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOSPC));
}

TEST(ErrorStateTest, TheMessageOfAFailureNeverSaysSuccess) {
  ClearLastError();
  EXPECT_EQ(GetSystemErrorText(), "Unknown error");
}

TEST(ErrorStateTest, AnEmptyMessageReadsAsUnknownError) {
  SetErrorMessage("");
  EXPECT_EQ(GetSystemErrorText(), "Unknown error");
}

TEST(ErrorStateTest, AnUnknownCodeHasAMessage) {
  EXPECT_FALSE(GetErrorMessage(99999, 0, 1).IsEmpty());
}

TEST(ErrorStateTest, EachThreadHasItsOwn) {
  SetErrorMessage("mine");
  std::uint32_t other = 1;
  std::thread([&other] {
    other = GetLastError();
    SetLastError(EPERM);
  }).join();
  EXPECT_EQ(other, 0U);
  EXPECT_EQ(GetSystemErrorText(), "mine");
}

TEST(ErrnoSaverTest, PutsErrnoBack) {
  SetLastError(EACCES);
  errno = EBUSY;
  {
    const ErrnoSaver saver;
    errno = ENOENT;
    SetLastError(EIO);
  }
  EXPECT_EQ(errno, EBUSY);
  EXPECT_EQ(GetLastError(), static_cast<std::uint32_t>(EIO));
}

TEST(ErrorStateSaverTest, PutsACodeBackWithoutAMessage) {
  SetLastError(EACCES);
  {
    const ErrorStateSaver saver;
    SetErrorMessage("other");
  }
  EXPECT_EQ(GetLastError(), static_cast<std::uint32_t>(EACCES));
  EXPECT_TRUE(GetErrorMessage(kTextError, 0, 1).IsEmpty());
}

TEST(ErrorStateSaverTest, PutsMessageAndErrnoBack) {
  SetErrorMessage("reason");
  errno = EBUSY;
  {
    const ErrorStateSaver saver;
    ClearLastError();
    SetErrorMessage("other");
  }
  EXPECT_EQ(errno, EBUSY);
  EXPECT_EQ(GetSystemErrorText(), "reason");
}

}  // namespace
}  // namespace OruGuiBase
