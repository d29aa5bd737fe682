// The gateway's own side of board.h: no command inherits what the service has open.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstdio>

#include "platform/board.h"
#include "userapps/FTM/FTM_Handles.h"

namespace {

bool isClosedByExec(int descriptor) {
  return (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0;
}

} // namespace

TEST(DeviceBoard, DevicesAndControlSocketsAreClosedByExec) {
  const Descriptor device = openDevice("/dev/null");
  ASSERT_TRUE(device.isOpen());
  EXPECT_TRUE(isClosedByExec(device.get()));
  const Descriptor control(board_socket(AF_UNIX, SOCK_DGRAM, 0));
  ASSERT_TRUE(control.isOpen());
  EXPECT_TRUE(isClosedByExec(control.get()));
}

TEST(DeviceBoard, TextFilesAreClosedByExec) {
  const TextStream file(board_fopen("/dev/null", "r"));
  ASSERT_NE(file, nullptr);
  EXPECT_TRUE(isClosedByExec(fileno(file.get())));
}

TEST(DeviceBoard, TextFileThatIsMissingIsNotOpened) {
  EXPECT_EQ(board_fopen("/no/such/file", "r"), nullptr);
}
