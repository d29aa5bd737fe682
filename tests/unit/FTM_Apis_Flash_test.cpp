#include <gmock/gmock.h>

#include <cstdint>
#include <cstring>
#include <utility>

#include "platform/flashmgmt.h"
#include "simulator/database.h"
#include "tests/unit/bench_unit.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_Tags.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

bool driverFillsItsBuffer = false;

using Words = std::pair<std::int64_t, std::int64_t>; // boot mode, test mode

class Flash : public BenchUnit {
protected:
  static Words words() {
    gateway::Query query(unit().database(), "SELECT boot_mode, ftm_mode FROM flash");
    query.next();
    return {query.number(0), query.number(1)};
  }

  static void setWords(std::int64_t bootMode, std::int64_t testMode) {
    gateway::execute(unit().database(), "UPDATE flash SET boot_mode = ?, ftm_mode = ?", bootMode, testMode);
  }

  static std::string bootMode() {
    char text[bootModeTextSize];
    return FTM_GetBootMode(text) == 0 ? text : std::string("failed ") + text;
  }
};

} // namespace

int real_ioctl(int descriptor, unsigned long request, void* argument) asm("__real_board_ioctl");
int wrap_ioctl(int descriptor, unsigned long request, void* argument) asm("__wrap_board_ioctl");

int wrap_ioctl(int descriptor, unsigned long request, void* argument) {
  if (!driverFillsItsBuffer)
    return real_ioctl(descriptor, request, argument);
  std::memset(argument, 'v', ftmSoftwareVersionSize);
  return 0;
}

// Reboot.

TEST_F(Flash, RebootPreparesANormalBootAndReboots) {
  EXPECT_EQ(FTM_Reboot(0), 0);
  EXPECT_THAT(journal("request"), ElementsAre("/dev/flshmgmt 30", "/dev/flshmgmt 7"));
  EXPECT_THAT(journal("reboot"), ElementsAre("normal"));
}

TEST_F(Flash, RebootWithAnyOtherCommandGoesIntoSafeBoot) {
  for (const int command : {1, -1, 30}) {
    const std::size_t before = journal("reboot").size();
    EXPECT_EQ(FTM_Reboot(command), 0);
    ASSERT_EQ(journal("reboot").size(), before + 1);
    EXPECT_EQ(journal("reboot").back(), "safe boot");
  }
  EXPECT_EQ(journal("request").front(), "/dev/flshmgmt 31");
}

TEST_F(Flash, RebootIsAskedForEvenWhenItsPreparationFails) {
  unit().setFault("request /dev/flshmgmt 31", true);
  EXPECT_EQ(FTM_Reboot(1), 0);
  EXPECT_EQ(journal("reboot").size(), 1U);
}

TEST_F(Flash, RebootThatFailsIsNotReported) {
  unit().setFault("request /dev/flshmgmt 7", true);
  EXPECT_EQ(FTM_Reboot(0), 0);
  EXPECT_THAT(journal("reboot"), IsEmpty());
  EXPECT_THAT(journal("log"), IsEmpty());
}

TEST_F(Flash, RebootWithoutTheDeviceDoesNothingAndSucceeds) {
  unit().setFault("open /dev/flshmgmt", true);
  EXPECT_EQ(FTM_Reboot(0), 0);
  EXPECT_EQ(FTM_Reboot(1), 0);
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(Flash, RebootActionsOfTheTableDoNothing) {
  FtmActionReboot();
  FtmActionRbSaveBoot();
  EXPECT_THAT(journal(), IsEmpty());
}

// Boot mode.

TEST_F(Flash, BootModeIsStoredAsAMarkedWordAndReadsBack) {
  struct Case {
    const char* written;
    std::int64_t word;
    const char* readBack;
  };
  const Case cases[] = {
      {"0", 0x0000, "0"},
      {"5", 0xFFFF, "5"},
      {"3", 0xFF03, "3"},
      {"1", 0xFF01, "1"},
      {"254", 0xFFFE, "254"},
      {"255", 0xFFFF, "5"},
      {"256", 0xFF00, "0"},
      {"261", 0xFF05, "5"},
      {"65535", 0xFFFF, "5"},
      {"65536", 0x0000, "0"},
      {"-1", 0xFFFF, "5"},
      {"-65533", 0xFF03, "3"},
      {" 12 s", 0xFF0C, "12"},
      {"", 0x0000, "0"},
      {"none", 0x0000, "0"},
      {"0x10", 0x0000, "0"},
      {"99999999999999999999", 0xFFFF, "5"},
      {"-99999999999999999999", 0x0000, "0"},
  };
  for (const Case& sample : cases) {
    setWords(0x1234, 0x1234);
    EXPECT_EQ(FTM_PutBootMode(sample.written), 0) << sample.written;
    EXPECT_EQ(words(), Words(sample.word, sample.word)) << sample.written;
    EXPECT_EQ(bootMode(), sample.readBack) << sample.written;
  }
}

TEST_F(Flash, EveryDelayUpTo254ReadsBackAsItself) {
  for (int delay = 0; delay < 255; ++delay) {
    const std::string text = std::to_string(delay);
    ASSERT_EQ(FTM_PutBootMode(text.c_str()), 0);
    EXPECT_EQ(bootMode(), text);
  }
}

TEST_F(Flash, BootModeIsTheLowByteOfTheTestModeWord) {
  setWords(0x0007, 0x1209);
  EXPECT_EQ(bootMode(), "9");
}

TEST_F(Flash, SettingTheBootModeSendsBothWordsAndNoValidity) {
  EXPECT_EQ(FTM_PutBootMode("3"), 0);
  EXPECT_THAT(journal("request"), ElementsAre("/dev/flshmgmt 39 bValid=0 ux16Bootmode=0xff03 ux16FTMmode=0xff03"));
}

TEST_F(Flash, SettingTheBootModeThatFailsIsLogged) {
  const Words before = words();
  unit().setFault("request /dev/flshmgmt 39", true);
  EXPECT_EQ(FTM_PutBootMode("3"), -1);
  EXPECT_EQ(words(), before);
  EXPECT_THAT(journal("log"), ElementsAre("err FLSHMGMT_SET_BOOTMODE ioctl failed"));
}

TEST_F(Flash, SettingTheBootModeWithoutTheDeviceSendsNothingAndSucceeds) {
  unit().setFault("open /dev/flshmgmt", true);
  EXPECT_EQ(FTM_PutBootMode("3"), 0);
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(Flash, ReadingTheBootModeThatFailsIsLoggedAndStillGivesAText) {
  unit().setFault("request /dev/flshmgmt 38", true);
  EXPECT_EQ(bootMode(), "failed 0");
  EXPECT_THAT(journal("log"), ElementsAre("err FLSHMGMT_GET_BOOTMODE ioctl failed"));
}

TEST_F(Flash, BootModeWithoutTheDeviceIsZero) {
  unit().setFault("open /dev/flshmgmt", true);
  EXPECT_EQ(bootMode(), "0");
  EXPECT_THAT(journal(), IsEmpty());
}

// Software version.

TEST_F(Flash, SoftwareVersionIsTheDrivers) {
  gateway::execute(unit().database(), "UPDATE flash SET ftm_version = ?", "FTM 9.9");
  EXPECT_STREQ(FTM_GetSoftwareVersion(), "FTM 9.9");
  EXPECT_THAT(journal("log"), IsEmpty());
}

TEST_F(Flash, SoftwareVersionEndsEvenWhenTheDriverFillsTheBuffer) {
  driverFillsItsBuffer = true;
  const std::string version = FTM_GetSoftwareVersion();
  driverFillsItsBuffer = false;
  EXPECT_EQ(version, std::string(ftmSoftwareVersionSize - 1, 'v'));
}

TEST_F(Flash, SoftwareVersionKeepsItsLastTextWhenTheRequestFails) {
  gateway::execute(unit().database(), "UPDATE flash SET ftm_version = ?", "FTM 8.8");
  const char* version = FTM_GetSoftwareVersion();
  gateway::execute(unit().database(), "UPDATE flash SET ftm_version = ?", "FTM 9.9");
  unit().setFault("request /dev/flshmgmt 40", true);
  EXPECT_EQ(FTM_GetSoftwareVersion(), version);
  EXPECT_STREQ(version, "FTM 8.8");
  EXPECT_THAT(journal("log"), ElementsAre("err FTM_GetSoftwareVersion: FLSHMGMT_GET_FTMSOFTWAREVERSION ioctl failed"));
}

TEST_F(Flash, SoftwareVersionKeepsItsLastTextWithoutTheDevice) {
  gateway::execute(unit().database(), "UPDATE flash SET ftm_version = ?", "FTM 8.8");
  FTM_GetSoftwareVersion();
  unit().setFault("open /dev/flshmgmt", true);
  const std::size_t before = journal().size();
  EXPECT_STREQ(FTM_GetSoftwareVersion(), "FTM 8.8");
  EXPECT_EQ(journal().size(), before);
}
