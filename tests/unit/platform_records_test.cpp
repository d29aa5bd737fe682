// The records that cross from the service to drivers and libraries lie in memory as those have them, whatever the
// processor's byte order and word size.
#include <gtest/gtest.h>
#include <net/if.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

#include "platform/adsldrv.h"
#include "platform/bcmnet.h"
#include "platform/cfg_api.h"
#include "platform/flashmgmt.h"
#include "platform/gpioctrl.h"
#include "platform/mgmtutil.h"
#include "platform/wlioctl.h"
#include "userapps/FTM/FTM_Apis.h"

namespace {

constexpr std::size_t word = sizeof(void*);

template <class Record>
std::string bytes(const Record& record) {
  return {reinterpret_cast<const char*>(&record), sizeof record};
}

/// A number as this processor keeps it.
template <class Number>
std::string stored(Number number) {
  return bytes(number);
}

/// Whether the processor keeps the high byte of a number first.
bool isBigEndian() {
  return stored(std::uint16_t{0x0102}) == std::string("\x01\x02");
}

struct FlagOfTest {
  std::uint16_t mask;
  void (*set)(ST_FTM_TST_FLAGS&);
};

const FlagOfTest flagsOfTests[] = {
    {ledTestMask, [](ST_FTM_TST_FLAGS& flags) { flags.bLedTst = 1; }},
    {resetSwitchTestMask, [](ST_FTM_TST_FLAGS& flags) { flags.bRstSwTst = 1; }},
    {throughputTestMask, [](ST_FTM_TST_FLAGS& flags) { flags.bThrPutTst = 1; }},
    {multiHybridTestMask, [](ST_FTM_TST_FLAGS& flags) { flags.bMulHybTst = 1; }},
    {autoPairTestMask, [](ST_FTM_TST_FLAGS& flags) { flags.bAutoPrTst = 1; }},
    {wirelessTestMask, [](ST_FTM_TST_FLAGS& flags) { flags.bWirelessTst = 1; }},
    {voiceTestMask, [](ST_FTM_TST_FLAGS& flags) { flags.bVoiceTst = 1; }},
};

} // namespace

TEST(PlatformRecords, ByteOrderIsTheOneThatTheCompilerSays) {
  EXPECT_EQ(isBigEndian(), __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__);
}

TEST(PlatformRecords, PointOfTheGpioDriverIsTwoWordsOf32Bits) {
  EXPECT_EQ(bytes(led_gpio_readwrite{eECLed, 1}), stored<std::int32_t>(42) + stored<std::int32_t>(1));
}

TEST(PlatformRecords, BootModeIsAFlagAndTwoHalfWords) {
  static_assert(std::is_same_v<ST_BOOTMODE_INFO, stBootmodeInfo>);
  const ST_BOOTMODE_INFO info{.bValid = 0, .ux16Bootmode = 0xFF09, .ux16FTMmode = 0x1234};
  EXPECT_EQ(bytes(info), stored<std::int32_t>(0) + stored<std::uint16_t>(0xFF09) + stored<std::uint16_t>(0x1234));
}

TEST(PlatformRecords, RequestCodesArePlainNumbersOf32Bits) {
  EXPECT_EQ(ADSLIOCTL_CONNECTION_START, 0xC004D003UL);
  EXPECT_EQ(ADSLIOCTL_CONNECTION_STOP, 0x4004D004UL);
  EXPECT_EQ(SIOCGLINKSTATE, 0x89F1UL);
  EXPECT_EQ(SIOCCURRENTSPEED, 0x8A01UL);
  EXPECT_EQ(FLSHMGMT_GET_BOOTMODE, 38UL);
  EXPECT_EQ(GPIOCTRL_ALLLEDS_ON, 12UL);
}

TEST(PlatformRecords, WirelessRequestHasItsDataPointerAlignedAfterTheCommand) {
  EXPECT_EQ(offsetof(wl_ioctl, cmd), 0U);
  EXPECT_EQ(offsetof(wl_ioctl, buf), word);
  EXPECT_EQ(offsetof(wl_ioctl, len), 2 * word);
  EXPECT_EQ(offsetof(wl_ioctl, set), 2 * word + 4);
  EXPECT_EQ(offsetof(wl_ioctl, used), 2 * word + 8);
  EXPECT_EQ(offsetof(wl_ioctl, needed), 2 * word + 12);
  EXPECT_EQ(sizeof(wl_ioctl), 2 * word + 16);
}

TEST(PlatformRecords, AnswersOfTheWirelessDriverHaveNoGaps) {
  EXPECT_EQ(offsetof(wlc_ssid_t, SSID), 4U);
  EXPECT_EQ(sizeof(wlc_ssid_t), 36U);
  EXPECT_EQ(offsetof(channel_info_t, target_channel), 4U);
  EXPECT_EQ(sizeof(channel_info_t), 12U);
}

TEST(PlatformRecords, ClientRecordOfTheIniLibraryEndsWithItsTwoPointers) {
  EXPECT_EQ(offsetof(stMgmtUtilClientInfo, iTimeOut), 16U);
  EXPECT_EQ(offsetof(stMgmtUtilClientInfo, uiImageLength), 36U);
  EXPECT_EQ(offsetof(stMgmtUtilClientInfo, pcData), 48U);
  EXPECT_EQ(offsetof(stMgmtUtilClientInfo, pszSRec), 48U + word);
  EXPECT_EQ(sizeof(stMgmtUtilClientInfo), 48U + 2 * word);
}

TEST(PlatformRecords, TableOfTheStoreHasItsCellsAfterItsSizes) {
  EXPECT_EQ(offsetof(ST_CFG_TABLE, nRows), 3 * word);
  EXPECT_EQ(offsetof(ST_CFG_TABLE, nCols), 3 * word + 4);
  EXPECT_EQ(offsetof(ST_CFG_TABLE, aszCells), 3 * word + 8);
  EXPECT_EQ(offsetof(ST_CFG_TABLE, szDbgStr1), 4 * word + 8);
}

TEST(PlatformRecords, InterfaceRequestStartsWithItsName) {
  EXPECT_EQ(offsetof(ifreq, ifr_name), 0U);
  EXPECT_EQ(offsetof(ifreq, ifr_data), std::size_t{IFNAMSIZ});
}

TEST(PlatformRecords, FlagOfEachTestIsItsMask) {
  for (const FlagOfTest& test : flagsOfTests) {
    U_FTM_TST_FLAGS flags{};
    test.set(flags.stbF);
    EXPECT_EQ(flags.usWd, test.mask);
  }
}
