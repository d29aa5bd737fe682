// Stands in for the service under the supervisor: does what the environment variable SUPERVISED_SERVICE says.
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/board.h"
#include "platform/flashmgmt.h"
#include "simulator/unit.h"

namespace {

void reboot(unsigned long preparation) {
  const int flash = board_open(flashManagementDevice, O_RDWR);
  board_ioctl(flash, preparation, nullptr);
  board_ioctl(flash, FLSHMGMT_REBOOT, nullptr);
}

bool isFirstBoot() {
  return gateway::theUnit().journal(0, "boot").size() == 1;
}

void startUp() {
  board_unlink("/NVRM/current.cfg");
  std::puts("bound");
  board_unlink("/NVRM/PTM_MODE");
  gateway::theUnit().journal(); // written before this process does anything else
}

} // namespace

int main() {
  const std::string behaviour = std::getenv("SUPERVISED_SERVICE");
  if (behaviour == "never ready")
    return 3;
  startUp();
  if (behaviour == "safe boot once" && isFirstBoot())
    reboot(FLSHMGMT_PREPARE_SAFEBOOT);
  if (behaviour == "ends once" && isFirstBoot()) {
    board_system("gateway wait ready");
    return 4;
  }
  if (behaviour == "prints") {
    for (int line = 0; line < 70'000; ++line)
      std::printf("a line of some length that was printed line %d\n", line);
    board_syslog(LOG_INFO, "printed");
  }
  if (behaviour == "has a child")
    board_system("sleep 1000");
  for (;;)
    pause();
}
