#include "userapps/FTM/manu_core.h"

#include <gmock/gmock.h>

#include "tests/unit/bench_unit.h"
#include "tests/unit/store_calls.h"
#include "tests/unit/virtual_files.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// What the INI library is given.
struct IniCall {
  std::string text;
  int rebootFlag;
  int resetFlag;
  int options;
  bool operator==(const IniCall&) const = default;
};
std::vector<IniCall> iniCalls;
int flagsFromLibrary = -1; // what both flags are set to; -1: what the text asks for

class IniText : public BenchUnit {
protected:
  IniText() {
    FTM_ClrErrorTFTP();
    storeCalls.clear();
    iniCalls.clear();
    flagsFromLibrary = -1;
  }

  /// The answer; standard output goes to `output`.
  std::string apply(std::string text) {
    testing::internal::CaptureStdout();
    const ST_TFTP_ERROR* error = FtmProcessINI(text.data(), "config.ini");
    output = testing::internal::GetCapturedStdout();
    return answerFor(error);
  }

  static std::string serialNumber() { return unit().cell("ProductionData", 0, "SerialNum").value_or("no cell"); }
  static std::string hybrid() { return unit().cell("XcvrTable", 0, "MultiHybrid").value_or("no cell"); }

  std::string output;
};

} // namespace

int real_ParseIniFile(stMgmtUtilClientInfo* client, int* rebootFlag, int* resetFlag,
                      int options) asm("__real_ParseIniFile");
int wrap_ParseIniFile(stMgmtUtilClientInfo* client, int* rebootFlag, int* resetFlag,
                      int options) asm("__wrap_ParseIniFile");

int wrap_ParseIniFile(stMgmtUtilClientInfo* client, int* rebootFlag, int* resetFlag, int options) {
  iniCalls.push_back({{client->pcData, client->uiImageLength}, *rebootFlag, *resetFlag, options});
  const int result = real_ParseIniFile(client, rebootFlag, resetFlag, options);
  if (flagsFromLibrary != -1)
    *rebootFlag = *resetFlag = flagsFromLibrary;
  return result;
}

TEST_F(IniText, IsGivenToTheLibraryWithItsLengthAndTheFlagsPreset) {
  apply("[ProductionData]\nSerialNum = 4711\n");
  apply("");
  EXPECT_EQ(iniCalls, (std::vector<IniCall>{{"[ProductionData]\nSerialNum = 4711\n", 0, 1, 0}, {"", 0, 1, 0}}));
}

TEST_F(IniText, CausesNeitherResetNorRebootForFlagsOtherThanOne) {
  for (const int flags : {0, 2}) {
    flagsFromLibrary = flags;
    EXPECT_EQ(apply("[ProductionData]\nSerialNum = 4711\n"), "ACK");
  }
  EXPECT_THAT(storeCalls, IsEmpty());
  EXPECT_THAT(journal("signal"), IsEmpty());
}

TEST_F(IniText, IsAppliedWithoutAWord) {
  EXPECT_EQ(apply("[ProductionData]\nSerialNum = 4711\n"), "ACK");
  EXPECT_EQ(serialNumber(), "4711");
  EXPECT_EQ(output, "");
  EXPECT_EQ(recordedMessage(), "");
}

TEST_F(IniText, ThatKeepsTheResetFlagRestoresTheFactoryConfiguration) {
  unit().setCell("XcvrTable", 0, "MultiHybrid", "HYBRID_3");
  EXPECT_EQ(apply("[ProductionData]\nSerialNum = 4711\n"), "ACK");
  EXPECT_EQ(hybrid(), "AUTO");
  EXPECT_EQ(serialNumber(), "4711");
  EXPECT_THAT(storeCalls, ElementsAre("session 0 reset_cfg", "reset 0", "end"));
}

TEST_F(IniText, ThatClearsTheResetFlagKeepsTheConfiguration) {
  unit().setCell("XcvrTable", 0, "MultiHybrid", "HYBRID_3");
  EXPECT_EQ(apply("[ProductionData]\nSerialNum = 4711\n[control]\nreset = 0\n"), "ACK");
  EXPECT_EQ(hybrid(), "HYBRID_3");
}

TEST_F(IniText, ThatAsksForNoRebootCausesNone) {
  EXPECT_EQ(apply("[ProductionData]\nSerialNum = 4711\n"), "ACK");
  EXPECT_THAT(journal("signal"), IsEmpty());
  EXPECT_EQ(gateway::clock::nowMs(), 0);
}

TEST_F(IniText, ThatAsksForARebootRestartsTheDeviceASecondLater) {
  std::int64_t restarted = -1;
  unit().onReboot = [&] { restarted = gateway::clock::nowMs(); };
  EXPECT_EQ(apply("[control]\nreboot = 1\nreset = 0\n"), "ACK");
  EXPECT_EQ(restarted, 1000);
  EXPECT_THAT(journal("signal"), ElementsAre("15 to 1"));
}

TEST_F(IniText, ResetsTheConfigurationBeforeTheReboot) {
  unit().setCell("XcvrTable", 0, "MultiHybrid", "HYBRID_3");
  std::string atRestart = "no restart";
  unit().onReboot = [&] { atRestart = hybrid(); };
  EXPECT_EQ(apply("[control]\nreboot = 1\n"), "ACK");
  EXPECT_EQ(atRestart, "AUTO");
}

TEST_F(IniText, ThatIsRefusedChangesNothingAndIsReported) {
  unit().setCell("XcvrTable", 0, "MultiHybrid", "HYBRID_3");
  const std::string before = serialNumber();
  for (const char* text : {"[NoSuchTable]\nx = 1\n", "[ProductionData]\nSerialNum = 4711\nNoSuchColumn = 1\n",
                           "[ProductionData]\nSerialNum = 4711\nnot a line of it\n"}) {
    FTM_ClrErrorTFTP();
    EXPECT_EQ(apply(text) + " " + output, "ERROR 0 Write data failed Process INI Fail!") << text;
    EXPECT_EQ(serialNumber() + " " + hybrid(), before + " HYBRID_3") << text; // no reset either
  }
  EXPECT_THAT(journal("signal"), IsEmpty());
}

TEST_F(IniText, ThatIsRefusedReturnsTheErrorRecord) {
  char text[] = "[NoSuchTable]\nx = 1\n";
  testing::internal::CaptureStdout();
  EXPECT_EQ(FtmProcessINI(text, "config.ini"), FTM_ErrorTFTP());
  testing::internal::GetCapturedStdout();
}

TEST_F(IniText, OfAnotherLengthIsTakenAtItsOwn) {
  EXPECT_EQ(apply("[ProductionData]\nSerialNum = 4711\nRevision = B\n"), "ACK");
  EXPECT_EQ(apply("[ProductionData]\nSerialNum = 9\n"), "ACK");
  EXPECT_EQ(serialNumber(), "9");
}

TEST_F(IniText, WithNothingInItResetsTheConfiguration) {
  unit().setCell("XcvrTable", 0, "MultiHybrid", "HYBRID_3");
  EXPECT_EQ(apply(""), "ACK");
  EXPECT_EQ(hybrid(), "AUTO");
}

TEST_F(IniText, StillRebootsWhenNoSessionForTheResetCanBeHad) {
  unit().setCell("XcvrTable", 0, "MultiHybrid", "HYBRID_3");
  unit().setFault("session", true);
  EXPECT_EQ(apply("[control]\nreboot = 1\n"), "ACK");
  EXPECT_EQ(hybrid(), "HYBRID_3");
  EXPECT_THAT(storeCalls, ElementsAre("session 0 reset_cfg"));
  EXPECT_THAT(journal("signal"), ElementsAre("15 to 1"));
}
