#include "stand/ready_notification.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/stand/folder.h"
#include "tests/stand/notify_socket.h"

namespace CryptStand {
namespace {

TEST(ReadyNotificationTest, SendsADatagramToPathsAndAbstractNames) {
  const Folder folder;
  for (const std::string& name : {folder.Path("socket"), "@cryptstand-test-" + std::to_string(getpid())}) {
    const NotifySocket manager(name);
    std::string error;
    EXPECT_TRUE(NotifyServiceManager("READY=1", error)) << error;
    EXPECT_EQ(manager.Receive(), "READY=1") << name;
  }
}

TEST(ReadyNotificationTest, NeedsNoServiceManager) {
  std::string error;
  unsetenv("NOTIFY_SOCKET");
  EXPECT_TRUE(NotifyServiceManager("READY=1", error));
  setenv("NOTIFY_SOCKET", "", 1);
  EXPECT_TRUE(NotifyServiceManager("READY=1", error));
  unsetenv("NOTIFY_SOCKET");
}

TEST(ReadyNotificationTest, SaysWhyNobodyWasNotified) {
  const Folder folder;
  for (const std::string& name : {std::string("relative"), std::string("@"), std::string(200, '/')}) {
    setenv("NOTIFY_SOCKET", name.c_str(), 1);
    std::string error;
    EXPECT_FALSE(NotifyServiceManager("READY=1", error));
    EXPECT_EQ(error, "$NOTIFY_SOCKET (" + name + "): Invalid argument");
  }
  setenv("NOTIFY_SOCKET", folder.Path("none").c_str(), 1);
  std::string error;
  EXPECT_FALSE(NotifyServiceManager("READY=1", error));
  EXPECT_THAT(error, testing::EndsWith("No such file or directory"));
  unsetenv("NOTIFY_SOCKET");
}

}  // namespace
}  // namespace CryptStand
