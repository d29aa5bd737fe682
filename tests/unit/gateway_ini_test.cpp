#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "platform/cfg_api.h"
#include "tests/unit/bench_unit.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class GatewayIni : public BenchUnit {
protected:
  int parse(std::string text) {
    stMgmtUtilClientInfo client{};
    client.pcData = text.data();
    client.uiImageLength = static_cast<std::uint32_t>(text.size());
    return ParseIniFile(&client, &reboot, &reset, 0);
  }

  static void restoreFactory() {
    void* const session = cfg_startSession(CFG_ROLE_MODEM, "reset_cfg");
    EXPECT_EQ(cfg_resetCfg(session, 0), CFG_ERR_OK);
    cfg_endSession(session);
  }

  static std::string cell(std::string_view table, std::string_view column) {
    return unit().cell(table, 0, column).value_or("none");
  }

  /// A text that is refused as a whole, though its first line would do.
  void expectRefused(const std::string& rest) {
    EXPECT_NE(parse("[ProductionData]\nSerialNum = 99\n" + rest), 0) << rest;
    EXPECT_EQ(cell("ProductionData", "SerialNum"), "1234") << rest;
    EXPECT_THAT(journal(), IsEmpty()) << rest;
    EXPECT_EQ(reboot, 0) << rest;
    EXPECT_EQ(reset, 1) << rest;
  }

  int reboot = 0;
  int reset = 1;
};

} // namespace

TEST_F(GatewayIni, SetsTheCellsOfRowZero) {
  EXPECT_EQ(parse("; made for the line\n[ProductInfo]\nIniFileName = m77.ini\nIniVersion=2.1\n\n[ProductionData]\r\n"
                  "SerialNum = 4711\r\n"),
            0);
  EXPECT_EQ(cell("ProductInfo", "IniFileName"), "m77.ini");
  EXPECT_EQ(cell("ProductInfo", "IniVersion"), "2.1");
  EXPECT_EQ(cell("ProductionData", "SerialNum"), "4711");
  EXPECT_THAT(journal(), ElementsAre("write ProductInfo 0 IniFileName=m77.ini", "write ProductInfo 0 IniVersion=2.1",
                                     "write ProductionData 0 SerialNum=4711"));
}

TEST_F(GatewayIni, LeavesTheFlagsWithoutAControlSection) {
  EXPECT_EQ(parse("[XcvrTable]\nPsd=ON\n"), 0);
  EXPECT_EQ(reboot, 0);
  EXPECT_EQ(reset, 1);
}

TEST_F(GatewayIni, SetsTheFlagsOfTheControlSection) {
  EXPECT_EQ(parse("[control]\nreboot=1\nreset=0\n"), 0);
  EXPECT_EQ(reboot, 1);
  EXPECT_EQ(reset, 0);
  EXPECT_EQ(parse("[control]\nreboot=0\nreset=1\n"), 0);
  EXPECT_EQ(reboot, 0);
  EXPECT_EQ(reset, 1);
}

TEST_F(GatewayIni, AcceptsATextThatSaysNothing) {
  EXPECT_EQ(parse(""), 0);
  EXPECT_EQ(parse("\n\n; a comment\n# another\n[ProductInfo]\n"), 0);
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(GatewayIni, KeepsTheLastOfTwoValues) {
  EXPECT_EQ(parse("[XcvrTable]\nPsd=ON\nPsd=OFF\n"), 0);
  EXPECT_EQ(cell("XcvrTable", "Psd"), "OFF");
}

TEST_F(GatewayIni, EmptiesACell) {
  EXPECT_EQ(parse("[ProductInfo]\nIniVersion =\n"), 0);
  EXPECT_EQ(cell("ProductInfo", "IniVersion"), "");
}

TEST_F(GatewayIni, TakesAnIndentedLineForALineOfItsOwn) {
  EXPECT_EQ(parse("[XcvrTable]\n  MultiHybrid=HYBRID_2\n\tPsd=ON\n"), 0);
  EXPECT_EQ(cell("XcvrTable", "MultiHybrid"), "HYBRID_2");
  EXPECT_EQ(cell("XcvrTable", "Psd"), "ON");
}

TEST_F(GatewayIni, AddsTheRowOfAnEmptyTable) {
  unit().clearTable("WlanConfig");
  EXPECT_EQ(parse("[WlanConfig]\nSsid=bench\n"), 0);
  EXPECT_EQ(cell("WlanConfig", "Ssid"), "bench");
}

TEST_F(GatewayIni, MakesItsValuesPartOfTheFactoryConfiguration) {
  unit().setCell("XcvrTable", 0, "MultiHybrid", "HYBRID_1");
  EXPECT_EQ(parse("[XcvrTable]\nPsd=ON\n[ProductionData]\nSerialNum=4711\n"), 0);
  restoreFactory();
  EXPECT_EQ(cell("XcvrTable", "Psd"), "ON");
  EXPECT_EQ(cell("XcvrTable", "MultiHybrid"), "AUTO");
  EXPECT_EQ(cell("ProductionData", "SerialNum"), "4711");
}

TEST_F(GatewayIni, RefusesATextWithAnUnknownTableOrColumn) {
  expectRefused("[NoTable]\nPsd=ON\n");
  expectRefused("[XcvrTable]\nNoColumn=ON\n");
  expectRefused("[xcvrtable]\nPsd=ON\n");
  expectRefused("[XcvrTable]\npsd=ON\n");
  expectRefused("[journal]\ntext=x\n");
  expectRefused("[factory XcvrTable]\nPsd=ON\n");
  expectRefused("[ProductionData\" --]\nSerialNum=1\n");
  expectRefused("[ProductionData]\nSerialNum\"=1\n");
}

TEST_F(GatewayIni, RefusesAKeyBeforeAnySection) {
  EXPECT_NE(parse("Psd=ON\n[XcvrTable]\n"), 0);
  EXPECT_EQ(cell("XcvrTable", "Psd"), "AUTO");
}

TEST_F(GatewayIni, RefusesATextWithALineThatDoesNotParse) {
  expectRefused("nonsense\n");
  expectRefused("[XcvrTable\nPsd=ON\n");
  expectRefused("\x01\x02\x03\n");
  expectRefused("\xFF\xFE\n");
}

TEST_F(GatewayIni, RefusesABadControlValue) {
  for (const char* const line : {"reboot=2", "reboot=", "reset=yes", "reset=01", "reset=-1", "halt=1", "Reboot=1"})
    expectRefused(std::string("[control]\nreboot=1\nreset=0\n") + line + "\n");
}

TEST_F(GatewayIni, RefusesANulInTheText) {
  expectRefused(std::string("Revision=B\0C\n", 13));
  expectRefused(std::string(1, '\0'));
}

TEST_F(GatewayIni, TakesALineWholeOrNotAtAll) {
  constexpr std::size_t beyondAll = 10'000;
  std::size_t length = 1;
  while (length < beyondAll && parse("[ProductionData]\nE164=" + std::string(length, '7') + "\n") == 0)
    ASSERT_EQ(cell("ProductionData", "E164").size(), length++);
  EXPECT_GT(length, 100U);
  EXPECT_LT(length, beyondAll);
  EXPECT_EQ(cell("ProductionData", "E164").size(), length - 1);
}

TEST_F(GatewayIni, RefusesALineThatIsTooLongRatherThanCutIt) {
  for (const std::size_t size : {300U, 400U, 401U, 1'000U, 1'000'000U}) { // all are longer than what is taken
    expectRefused("Revision=B\nE164=" + std::string(size, '7') + "\n");
    expectRefused("Revision=B\nE164=" + std::string(size, '7'));
    expectRefused("Revision=B\n; " + std::string(size, '7') + "\n");
    expectRefused("Revision=B\n" + std::string(size, ' ') + "E164=" + std::string(size, '7') + "\n");
  }
}

TEST_F(GatewayIni, RefusesALongSectionOrKeyThatBeginsLikeAKnownOne) {
  expectRefused("[ProductionData" + std::string(60, ' ') + "x]\nRevision=B\n");
  expectRefused("[XcvrTable]\nPsd" + std::string(60, 'x') + "=ON\n");
}

TEST_F(GatewayIni, ReadsNoFurtherThanTheLengthOfTheText) {
  std::string text = "[XcvrTable]\nPsd=ON\nMultiHybrid=HYBRID_1\n";
  stMgmtUtilClientInfo client{};
  client.pcData = text.data();
  client.uiImageLength = 18; // up to the end of "Psd=ON"
  EXPECT_EQ(ParseIniFile(&client, &reboot, &reset, 0), 0);
  EXPECT_EQ(cell("XcvrTable", "Psd"), "ON");
  EXPECT_EQ(cell("XcvrTable", "MultiHybrid"), "AUTO");
}

TEST_F(GatewayIni, RefusesMissingArguments) {
  std::string text = "[XcvrTable]\nPsd=ON\n";
  stMgmtUtilClientInfo client{};
  EXPECT_NE(ParseIniFile(nullptr, &reboot, &reset, 0), 0);
  EXPECT_NE(ParseIniFile(&client, &reboot, &reset, 0), 0);
  client.pcData = text.data();
  client.uiImageLength = static_cast<std::uint32_t>(text.size());
  EXPECT_NE(ParseIniFile(&client, nullptr, &reset, 0), 0);
  EXPECT_NE(ParseIniFile(&client, &reboot, nullptr, 0), 0);
  EXPECT_EQ(cell("XcvrTable", "Psd"), "AUTO");
}

TEST_F(GatewayIni, FailsWhereItsFaultIsOn) {
  unit().setFault("ini", true);
  EXPECT_NE(parse("[XcvrTable]\nPsd=ON\n"), 0);
  EXPECT_EQ(cell("XcvrTable", "Psd"), "AUTO");
}

TEST_F(GatewayIni, SurvivesTextsOfAllKindsOfBytes) {
  const std::string bytes = "[]=:;#\n\r \tE164abc\\\"'\x80\xFF\x01";
  unsigned state = 1;
  for (int round = 0; round < 500; ++round) {
    std::string text = "[ProductionData]\n";
    for (int byte = 0; byte < 300; ++byte) {
      state = state * 1'103'515'245U + 12'345U;
      text += bytes[(state >> 16) % bytes.size()];
    }
    parse(text);
  }
  EXPECT_EQ(unit().columns("ProductionData").size(), 6U);
  EXPECT_EQ(cell("ProductionData", "SerialNum"), "1234");
}
