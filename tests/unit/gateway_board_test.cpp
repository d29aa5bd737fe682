#include <fcntl.h>
#include <gmock/gmock.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "platform/board.h"
#include "platform/flashmgmt.h"
#include "tests/unit/bench_unit.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr unsigned long unknownRequest = 99;

/// Result of a call with its errno when it failed.
template <class Call>
int errnoOf(Call call) {
  errno = 0;
  return call() < 0 ? errno : 0;
}

class GatewayBoard : public BenchUnit {
protected:
  static int openFlash() { return board_open(flashManagementDevice, O_RDWR); }
};

class GatewayFlash : public GatewayBoard {
protected:
  GatewayFlash() : flash(openFlash()) {}
  ~GatewayFlash() override { board_close(flash); }

  int flash;
};

/// A unit whose scripts are the test's.
class GatewayCommands : public GatewayBoard {
protected:
  GatewayCommands() {
    std::string name = (fs::temp_directory_path() / "gateway tools'XXXXXX").string(); // blanks and quotes do no harm
    m_folder = mkdtemp(name.data());
    fs::create_directories(m_folder / "etc/init.d");
    setenv("GATEWAY_TOOLS", m_folder.c_str(), 1);
  }
  ~GatewayCommands() override {
    unsetenv("GATEWAY_TOOLS");
    fs::remove_all(m_folder);
  }

  void addScript(const fs::path& path, const std::string& commands) const {
    std::ofstream(m_folder / path) << "#!/bin/sh\n" << commands << "\n";
    chmod((m_folder / path).c_str(), 0755);
  }

  std::string output() const {
    std::stringstream text;
    text << std::ifstream(m_folder / "output").rdbuf();
    return text.str();
  }

  static pid_t spawnShell(std::string command, const std::vector<std::string>& variables = {}) {
    std::string words[] = {"sh", "-c"};
    char* const arguments[] = {words[0].data(), words[1].data(), command.data(), nullptr};
    std::vector<char*> environment;
    environment.reserve(variables.size() + 1);
    for (const std::string& variable : variables)
      environment.push_back(const_cast<char*>(variable.c_str()));
    environment.push_back(nullptr);
    return board_spawn("/bin/sh", arguments, variables.empty() ? environ : environment.data());
  }

  static int statusOf(pid_t child) {
    int status = 0;
    return board_waitpid(child, &status, 0) == child ? status : -1;
  }

  fs::path m_folder;
};

int exited(int status) {
  return status << 8;
}

} // namespace

// Descriptors.

TEST_F(GatewayBoard, OpensTheDevicesThatItHas) {
  const int descriptor = openFlash();
  EXPECT_GE(descriptor, 0);
  EXPECT_EQ(board_close(descriptor), 0);
  for (const char* const path : {"/dev/null", "/dev/flshmgmt0", "flshmgmt", "", "/dev/../dev/flshmgmt"})
    EXPECT_EQ(errnoOf([&] { return board_open(path, O_RDWR); }), ENOENT) << path;
}

TEST_F(GatewayBoard, OpensItsDevicesForReadingAndWritingOnly) {
  for (const int flags : {O_RDONLY, O_WRONLY})
    EXPECT_EQ(errnoOf([&] { return board_open(flashManagementDevice, flags); }), EACCES) << flags;
}

TEST_F(GatewayBoard, CountsTheDescriptorsThatAreOpen) {
  EXPECT_EQ(gateway::openDescriptors(), 0);
  const int device = openFlash();
  const int socket = board_socket(AF_INET, SOCK_DGRAM, 0);
  EXPECT_EQ(gateway::openDescriptors(), 2);
  board_close(device);
  board_close(socket);
  EXPECT_EQ(gateway::openDescriptors(), 0);
}

TEST_F(GatewayBoard, KnowsWhichDescriptorsAreOpen) {
  const int descriptor = openFlash();
  const int other = openFlash();
  EXPECT_NE(descriptor, other);
  EXPECT_EQ(board_close(descriptor), 0);
  EXPECT_EQ(errnoOf([&] { return board_close(descriptor); }), EBADF);
  EXPECT_EQ(errnoOf([&] { return board_ioctl(descriptor, FLSHMGMT_PREPARE_REBOOT, nullptr); }), EBADF);
  EXPECT_EQ(board_ioctl(other, FLSHMGMT_PREPARE_REBOOT, nullptr), 0);
  EXPECT_EQ(board_close(other), 0);
}

TEST_F(GatewayBoard, LeavesTheProcessesOwnDescriptorsAlone) {
  for (const int descriptor : {-1, 0, 1, 2, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
    EXPECT_EQ(errnoOf([&] { return board_close(descriptor); }), EBADF) << descriptor;
    EXPECT_EQ(errnoOf([&] { return board_ioctl(descriptor, FLSHMGMT_REBOOT, nullptr); }), EBADF) << descriptor;
  }
  EXPECT_NE(fcntl(STDOUT_FILENO, F_GETFD), -1);
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(GatewayBoard, OpensControlSocketsOfTheKindsThatItHas) {
  const int descriptor = board_socket(AF_INET, SOCK_DGRAM, 0);
  EXPECT_GE(descriptor, 0);
  EXPECT_EQ(errnoOf([&] { return board_ioctl(descriptor, unknownRequest, nullptr); }), ENOTTY);
  EXPECT_THAT(journal(), ElementsAre("request socket 99 failed: ENOTTY"));
  EXPECT_EQ(board_close(descriptor), 0);
  EXPECT_EQ(errnoOf([] { return board_socket(AF_UNIX, SOCK_DGRAM, 0); }), EAFNOSUPPORT);
  EXPECT_EQ(errnoOf([] { return board_socket(AF_INET, SOCK_STREAM, 0); }), EPROTONOSUPPORT);
}

TEST_F(GatewayBoard, FailsWhereAFaultIsOn) {
  unit().setFault("open /dev/flshmgmt", true);
  EXPECT_EQ(errnoOf([] { return openFlash(); }), ENODEV);
  unit().setFault("open /dev/flshmgmt", false);
  unit().setFault("request /dev/flshmgmt 38", true);
  const int flash = openFlash();
  ST_BOOTMODE_INFO info{1, 2, 3};
  EXPECT_EQ(errnoOf([&] { return board_ioctl(flash, FLSHMGMT_GET_BOOTMODE, &info); }), EIO);
  EXPECT_EQ(info.ux16Bootmode, 2);
  EXPECT_EQ(board_ioctl(flash, FLSHMGMT_SET_BOOTMODE, &info), 0);
  EXPECT_THAT(journal(),
              ElementsAre("request /dev/flshmgmt 38 bValid=1 ux16Bootmode=0x0002 ux16FTMmode=0x0003 failed: EIO",
                          "request /dev/flshmgmt 39 bValid=1 ux16Bootmode=0x0002 ux16FTMmode=0x0003"));
  board_close(flash);
  unit().setFault("socket", true);
  EXPECT_EQ(errnoOf([] { return board_socket(AF_INET, SOCK_DGRAM, 0); }), EMFILE);
  unit().setFault("file /proc/net/dev", true);
  EXPECT_EQ(board_fopen("/proc/net/dev", "r"), nullptr);
  unit().setFault("spawn", true);
  EXPECT_EQ(errnoOf([] { return board_system("true"); }), EAGAIN);
}

// Flash.

TEST_F(GatewayFlash, KeepsTheBootMode) {
  ST_BOOTMODE_INFO info{0, 0xFF03, 0xFF04};
  EXPECT_EQ(board_ioctl(flash, FLSHMGMT_SET_BOOTMODE, &info), 0);
  info = {};
  EXPECT_EQ(board_ioctl(flash, FLSHMGMT_GET_BOOTMODE, &info), 0);
  EXPECT_EQ(info.ux16Bootmode, 0xFF03);
  EXPECT_EQ(info.ux16FTMmode, 0xFF04);
  EXPECT_THAT(journal(), ElementsAre("request /dev/flshmgmt 39 bValid=0 ux16Bootmode=0xff03 ux16FTMmode=0xff04",
                                     "request /dev/flshmgmt 38 bValid=0 ux16Bootmode=0xff03 ux16FTMmode=0xff04"));
}

TEST_F(GatewayFlash, GivesTheSoftwareVersionWithItsTerminator) {
  std::array<char, ftmSoftwareVersionSize> version{};
  version.fill('x');
  EXPECT_EQ(board_ioctl(flash, FLSHMGMT_GET_FTMSOFTWAREVERSION, version.data()), 0);
  EXPECT_STREQ(version.data(), "FTM 01.05.06");
  EXPECT_EQ(version.back(), '\0');
  EXPECT_THAT(journal(), ElementsAre("request /dev/flshmgmt 40 FTM 01.05.06"));
}

TEST_F(GatewayFlash, RefusesRequestsThatAreNone) {
  EXPECT_EQ(errnoOf([&] { return board_ioctl(flash, unknownRequest, nullptr); }), ENOTTY);
  for (const unsigned long request : {FLSHMGMT_GET_BOOTMODE, FLSHMGMT_SET_BOOTMODE, FLSHMGMT_GET_FTMSOFTWAREVERSION})
    EXPECT_EQ(errnoOf([&] { return board_ioctl(flash, request, nullptr); }), EFAULT) << request;
}

TEST_F(GatewayFlash, RebootsIntoWhatWasPreparedOnceTheRequestIsInTheJournal) {
  std::vector<std::string> journalAtReboot;
  unit().onReboot = [&] { journalAtReboot = journal(); };
  EXPECT_EQ(board_ioctl(flash, FLSHMGMT_PREPARE_SAFEBOOT, nullptr), 0);
  EXPECT_EQ(board_ioctl(flash, FLSHMGMT_REBOOT, nullptr), 0);
  EXPECT_THAT(journalAtReboot, ElementsAre("request /dev/flshmgmt 31", "request /dev/flshmgmt 7", "reboot safe boot"));
  EXPECT_EQ(board_ioctl(flash, FLSHMGMT_PREPARE_REBOOT, nullptr), 0);
  EXPECT_EQ(board_ioctl(flash, FLSHMGMT_REBOOT, nullptr), 0);
  EXPECT_THAT(journal("reboot"), ElementsAre("safe boot", "normal"));
}

TEST_F(GatewayFlash, DoesNotRebootWhenTheRequestFails) {
  unit().setFault("request /dev/flshmgmt 7", true);
  EXPECT_EQ(errnoOf([&] { return board_ioctl(flash, FLSHMGMT_REBOOT, nullptr); }), EIO);
  EXPECT_THAT(journal("reboot"), IsEmpty());
}

// Files.

TEST_F(GatewayBoard, GivesKernelTextsForReading) {
  std::FILE* const file = board_fopen("/proc/net/dev", "r");
  ASSERT_NE(file, nullptr);
  std::array<char, 256> line{};
  std::vector<std::string> lines;
  while (std::fgets(line.data(), line.size(), file) != nullptr)
    lines.emplace_back(line.data());
  std::fclose(file);
  ASSERT_GE(lines.size(), 3U);
  EXPECT_THAT(lines[0], StartsWith("Inter-|   Receive"));
  EXPECT_THAT(lines[2], StartsWith("  eth0:"));
  for (const std::string& text : lines)
    EXPECT_EQ(text.back(), '\n');
}

TEST_F(GatewayBoard, OpensNoOtherFilesAndNoneForWriting) {
  for (const char* const path : {"/etc/passwd", "/proc/self/status", "/proc/net/../net/dev", ""}) {
    errno = 0;
    EXPECT_EQ(board_fopen(path, "r"), nullptr) << path;
    EXPECT_EQ(errno, ENOENT) << path;
  }
  EXPECT_EQ(board_fopen("/proc/net/dev", "w"), nullptr);
  EXPECT_EQ(errno, EACCES);
}

TEST_F(GatewayBoard, RemovesFilesOfTheUnit) {
  std::ofstream(unit().gatewayPath("/NVRM/current.cfg")) << "old";
  EXPECT_EQ(board_unlink("/NVRM/current.cfg"), 0);
  EXPECT_FALSE(fs::exists(unit().gatewayPath("/NVRM/current.cfg")));
  EXPECT_EQ(errnoOf([] { return board_unlink("/NVRM/current.cfg"); }), ENOENT);
  EXPECT_NE(errnoOf([] { return board_unlink("/NVRM"); }), 0);
  EXPECT_THAT(journal(), ElementsAre("remove /NVRM/current.cfg", "remove /NVRM/current.cfg", "remove /NVRM"));
}

TEST_F(GatewayBoard, NeverLeavesTheUnitsFolder) {
  const fs::path root = unit().gatewayPath("/");
  for (const char* const path :
       {"/../../../etc/passwd", "../x", "/NVRM/../../x", "//etc/passwd", "/./..//../x", ".."}) {
    const fs::path inside = unit().gatewayPath(path).lexically_normal().lexically_relative(root.lexically_normal());
    EXPECT_FALSE(inside.string().starts_with("..")) << path;
  }
  std::string name = (fs::temp_directory_path() / "gateway-host-XXXXXX").string();
  const int host = mkstemp(name.data());
  EXPECT_NE(errnoOf([&] { return board_unlink(name.c_str()); }), 0);
  EXPECT_NE(errnoOf([&] { return board_unlink(("/../../../../../.." + name).c_str()); }), 0);
  EXPECT_TRUE(fs::exists(name));
  close(host);
  fs::remove(name);
}

TEST(GatewayUnit, TakesItsFilesAlong) {
  auto unit = gateway::Unit::inMemory();
  const fs::path folder = unit->gatewayPath("/");
  EXPECT_TRUE(fs::exists(folder / "NVRM"));
  unit.reset();
  EXPECT_FALSE(fs::exists(folder));
}

// Commands.

TEST_F(GatewayCommands, RunsCommandsWithTheShell) {
  EXPECT_EQ(board_system("exit 3"), exited(3));
  EXPECT_EQ(board_system("kill -9 $$"), SIGKILL);
  EXPECT_EQ(board_system("no-such-command-of-any-machine 2> /dev/null"), exited(127));
  EXPECT_NE(board_system(nullptr), 0);
  EXPECT_THAT(journal(), ElementsAre("command exit 3", "command kill -9 $$",
                                     "command no-such-command-of-any-machine 2> /dev/null"));
}

TEST_F(GatewayCommands, FindsTheToolsBeforeTheMachinesOwn) {
  addScript("uname", "exit 42");
  EXPECT_EQ(board_system("uname"), exited(42));
  EXPECT_EQ(statusOf(spawnShell("uname")), exited(42));
  EXPECT_EQ(statusOf(spawnShell("uname", {"PATH=/usr/bin:/bin"})), exited(42));
}

TEST_F(GatewayCommands, TakesTheGatewaysScriptsFromTheTools) {
  addScript("etc/init.d/Script.sh", "printf '<%s>' \"$@\" > \"$GATEWAY_TOOLS/output\"");
  const std::string command = "/etc/init.d/Script.sh 1.8.36 \"two words\" '$HOME' && exit 5";
  EXPECT_EQ(board_system(command.c_str()), exited(5));
  EXPECT_EQ(output(), "<1.8.36><two words><$HOME>");
  EXPECT_THAT(journal(), ElementsAre("command " + command));
  EXPECT_EQ(board_system(("  " + command).c_str()), exited(5));
  EXPECT_EQ(statusOf(spawnShell(command)), exited(5));
}

TEST_F(GatewayCommands, RunsNoScriptOfThisMachine) {
  EXPECT_EQ(board_system("/etc/init.d/NoScript.sh 2> /dev/null"), exited(127));
  std::string path = "/bin/true"; // which this machine has and the unit has not
  char* const arguments[] = {path.data(), nullptr};
  EXPECT_EQ(statusOf(board_spawn(path.c_str(), arguments, environ)), exited(127));
  EXPECT_EQ(journal("command").back(), "/bin/true");
}

TEST_F(GatewayCommands, TellsCommandsWhichUnitTheyRunOn) {
  setenv("GATEWAY_UNIT", "/some/other/unit", 1);
  EXPECT_EQ(board_system("test -z \"$GATEWAY_UNIT\""), 0); // a unit in memory can't be reached from outside
  const fs::path folder = m_folder / "unit";
  auto previous = gateway::useUnit(gateway::Unit::open(folder));
  setenv("GATEWAY_SUPERVISOR", "1", 1);
  EXPECT_EQ(board_system(("test \"$GATEWAY_UNIT\" = \"" + folder.string() + "\"").c_str()), 0);
  EXPECT_EQ(board_system("test -z \"$GATEWAY_SUPERVISOR\""), 0);
  EXPECT_EQ(statusOf(spawnShell("test \"$A$B\" = 12", {"A=1", "B=2"})), 0);
  unsetenv("GATEWAY_SUPERVISOR");
  unsetenv("GATEWAY_UNIT");
  gateway::useUnit(std::move(previous));
}

// Signals.

TEST_F(GatewayCommands, SignalsProcessesOfTheUnit) {
  const pid_t child = spawnShell("exec sleep 1000");
  ASSERT_GT(child, 0);
  EXPECT_EQ(board_kill(child, 0), 0);
  EXPECT_EQ(board_kill(child, SIGTERM), 0);
  EXPECT_EQ(statusOf(child), SIGTERM);
  EXPECT_EQ(errnoOf([&] { return board_kill(child, SIGTERM); }), ESRCH);
}

TEST_F(GatewayCommands, SignalsNoProcessOfThisMachine) {
  const pid_t stranger = fork();
  if (stranger == 0)
    for (;;)
      pause();
  for (const pid_t pid : {stranger, getpid(), getppid(), 0, -1, -stranger, -getpgrp(), 2})
    EXPECT_EQ(errnoOf([&] { return board_kill(pid, SIGTERM); }), ESRCH) << pid;
  EXPECT_EQ(waitpid(stranger, nullptr, WNOHANG), 0); // still there
  kill(stranger, SIGKILL);
  waitpid(stranger, nullptr, 0);
  EXPECT_EQ(journal("signal").front(), "15 to " + std::to_string(stranger));
}

TEST_F(GatewayBoard, RebootsWhenInitIsToldToEnd) {
  int reboots = 0;
  unit().onReboot = [&] { ++reboots; };
  EXPECT_EQ(board_kill(1, 0), 0);
  EXPECT_EQ(board_kill(1, SIGHUP), 0);
  EXPECT_EQ(reboots, 0);
  EXPECT_EQ(board_kill(1, SIGTERM), 0);
  EXPECT_EQ(reboots, 1);
  EXPECT_THAT(journal(), ElementsAre("signal 0 to 1", "signal 1 to 1", "signal 15 to 1", "reboot normal"));
}
