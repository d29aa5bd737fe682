#include <gmock/gmock.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/unit/bench_unit.h"
#include "tests/unit/device_lines.h"
#include "tests/unit/store_calls.h"
#include "tests/unit/virtual_files.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Handles.h"

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

namespace {

int lostColumn = -1; ///< of a table that is read; the store then has no cells in it
bool isFormattingFailing = false;

/// Who reads a table, as the store is told.
struct Reader {
  std::string table;
  std::string sourceFile;
  std::string function;
  int line;
};
std::vector<Reader> readers;

} // namespace

// The linker puts these in front of the store's and the library's functions.
int real_getTable(void* session, const char* table, ST_CFG_TABLE** snapshot, const char* sourceFile,
                  const char* function, int line) asm("__real_cl_cfg_getTable");
int wrap_getTable(void* session, const char* table, ST_CFG_TABLE** snapshot, const char* sourceFile,
                  const char* function, int line) asm("__wrap_cl_cfg_getTable");

int wrap_getTable(void* session, const char* table, ST_CFG_TABLE** snapshot, const char* sourceFile,
                  const char* function, int line) {
  readers.push_back({table, sourceFile, function, line});
  const int result = real_getTable(session, table, snapshot, sourceFile, function, line);
  if (result == CFG_ERR_OK && lostColumn >= 0)
    for (int row = 1; row <= (*snapshot)->nRows; ++row)
      (*snapshot)->aszCells[row * (*snapshot)->nCols + lostColumn] = nullptr;
  return result;
}

int wrap_snprintf(char* text, std::size_t size, const char* format, ...) asm("__wrap_snprintf");

int wrap_snprintf(char* text, std::size_t size, const char* format, ...) {
  if (isFormattingFailing)
    return -1;
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(text, size, format, arguments);
  va_end(arguments);
  return length;
}

namespace {

const std::string sessionLine = "error: failed to start session\n";

// What a process answers before anybody has asked for the channel number.
const std::string firstVpiAnswer = McfgAtmVPI(1);
const std::string firstVciAnswer = McfgAtmVCI(1);

std::string tableLine(const std::string& table) {
  return "error: failed to read table: " + table + "\n";
}

class Dsl : public BenchUnit {
protected:
  Dsl() {
    unFtmState.usWd = 0;
    FTM_ClrErrorTFTP();
    unit().setCell("ProductionData", 0, "MacAddr", "02:aa:bb:cc:dd:ee");
    setCircuits({{"nas0", "0", "35"}});
    useScriptsThatFail();
    storeCalls.clear();
    readers.clear();
  }
  ~Dsl() override { unsetenv("GATEWAY_TOOLS"); }

  /// The journal shows how the scripts are called; what they return does not matter, and what they do is not tested
  /// here.
  static void useScriptsThatFail() {
    const std::filesystem::path tools = unit().gatewayPath("/tools");
    std::filesystem::create_directories(tools / "etc/init.d");
    for (const char* name : {"DelOrgVpiVci.sh", "NewVpiVci.sh"}) {
      const std::filesystem::path script = tools / "etc/init.d" / name;
      std::ofstream(script) << "#!/bin/sh\nexit 1\n";
      std::filesystem::permissions(script, std::filesystem::perms::owner_all);
    }
    setenv("GATEWAY_TOOLS", tools.c_str(), 1);
  }

  static void setCircuits(const std::vector<std::vector<std::string>>& rows) {
    unit().clearTable("VccStat");
    const std::vector<std::string> columns = unit().columns("VccStat");
    for (int row = 0; row < static_cast<int>(rows.size()); ++row)
      for (std::size_t column = 0; column < 3; ++column)
        unit().setCell("VccStat", row, columns[column], rows[static_cast<std::size_t>(row)][column]);
  }

  /// Result of the resynchronisation; its standard output goes to `output`.
  int resync() {
    testing::internal::CaptureStdout();
    const int result = FTM_DSL_Resync();
    output = testing::internal::GetCapturedStdout();
    return result;
  }

  /// Result of a circuit change; its standard error goes to `output`.
  int change(const std::string& vpi, const std::string& vci) {
    testing::internal::CaptureStderr();
    const int result = ftm_ChangeVpiVci(vpi.c_str(), vci.c_str());
    output = testing::internal::GetCapturedStderr();
    return result;
  }

  /// The present circuit, or "none"; standard error goes to `output`.
  std::string circuit() {
    char text[circuitTextSize] = "";
    testing::internal::CaptureStderr();
    const char* result = FTM_GetCurrentVpiVci(text);
    output = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(result == nullptr || result == text);
    return result == nullptr ? "none" : result;
  }

  std::string output;
};

// Resynchronising.

TEST_F(Dsl, ResyncStopsAndStartsTheLineWithoutAPause) {
  const std::int64_t before = gateway::clock::nowMs();
  EXPECT_EQ(resync(), 0);
  EXPECT_EQ(gateway::clock::nowMs(), before);
  EXPECT_EQ(output, "");
  EXPECT_THAT(journal(),
              ElementsAre(adslRequest(ADSLIOCTL_CONNECTION_STOP, 0), adslRequest(ADSLIOCTL_CONNECTION_START, 0)));
}

TEST_F(Dsl, ResyncWithoutTheDriverIsReported) {
  unit().setFault(noAdsl, true);
  EXPECT_EQ(resync(), -1);
  EXPECT_EQ(output, "Cannot open adsl driver\n");
  EXPECT_THAT(journal(), ElementsAre(errorLine("Cannot open adsl driver")));
}

TEST_F(Dsl, ResyncStartsTheLineEvenWhenTheStopFails) {
  unit().setFault(adslFault(ADSLIOCTL_CONNECTION_STOP), true);
  EXPECT_EQ(resync(), -1);
  EXPECT_EQ(output, "ADSLIOCTL_CONNECTION_STOP ioctl failed\n");
  EXPECT_THAT(journal(), ElementsAre(adslRequest(ADSLIOCTL_CONNECTION_STOP, 0) + failed,
                                     errorLine("ADSLIOCTL_CONNECTION_STOP ioctl failed"),
                                     adslRequest(ADSLIOCTL_CONNECTION_START, 0)));
}

TEST_F(Dsl, ResyncWhoseStartFailsIsReported) {
  unit().setFault(adslFault(ADSLIOCTL_CONNECTION_START), true);
  EXPECT_EQ(resync(), -1);
  EXPECT_EQ(output, "ADSLIOCTL_CONNECTION_START ioctl failed\n");
  EXPECT_THAT(journal(), ElementsAre(adslRequest(ADSLIOCTL_CONNECTION_STOP, 0),
                                     adslRequest(ADSLIOCTL_CONNECTION_START, 0) + failed,
                                     errorLine("ADSLIOCTL_CONNECTION_START ioctl failed")));
}

TEST_F(Dsl, ResyncWhoseStopIsRefusedFailsInTheStartThatLeavesTheStatusAlone) {
  unit().setFault(adslRefusal(ADSLIOCTL_CONNECTION_STOP), true);
  EXPECT_EQ(resync(), -1);
  EXPECT_EQ(output,
            "ADSLIOCTL_CONNECTION_STOP ioctl return failure\nADSLIOCTL_CONNECTION_START ioctl return failure\n");
  EXPECT_THAT(journal(), ElementsAre(adslRequest(ADSLIOCTL_CONNECTION_STOP, 1),
                                     errorLine("ADSLIOCTL_CONNECTION_STOP ioctl return failure"),
                                     adslRequest(ADSLIOCTL_CONNECTION_START, 1),
                                     errorLine("ADSLIOCTL_CONNECTION_START ioctl return failure")));
}

TEST_F(Dsl, ResyncWhoseStopIsRefusedReportsBothFailuresOfAStartThatCannotBeIssued) {
  unit().setFault(adslRefusal(ADSLIOCTL_CONNECTION_STOP), true);
  unit().setFault(adslFault(ADSLIOCTL_CONNECTION_START), true);
  EXPECT_EQ(resync(), -1);
  EXPECT_EQ(output, "ADSLIOCTL_CONNECTION_STOP ioctl return failure\nADSLIOCTL_CONNECTION_START ioctl failed\n"
                    "ADSLIOCTL_CONNECTION_START ioctl return failure\n");
  EXPECT_THAT(journal(), ElementsAre(adslRequest(ADSLIOCTL_CONNECTION_STOP, 1),
                                     errorLine("ADSLIOCTL_CONNECTION_STOP ioctl return failure"),
                                     adslRequest(ADSLIOCTL_CONNECTION_START, 1) + failed,
                                     errorLine("ADSLIOCTL_CONNECTION_START ioctl failed"),
                                     errorLine("ADSLIOCTL_CONNECTION_START ioctl return failure")));
}

TEST_F(Dsl, ResyncWhoseStartIsRefusedFails) {
  unit().setFault(adslRefusal(ADSLIOCTL_CONNECTION_START), true);
  EXPECT_EQ(resync(), -1);
  EXPECT_EQ(output, "ADSLIOCTL_CONNECTION_START ioctl return failure\n");
}

TEST_F(Dsl, ResyncSetsNoErrorForTheStation) {
  unit().setFault(noAdsl, true);
  resync();
  EXPECT_EQ(recordedMessage(), "");
}

// The present circuit.

TEST_F(Dsl, CircuitIsTheDataInterfacesRow) {
  EXPECT_EQ(circuit(), "1.0.35");
}

TEST_F(Dsl, CircuitIsReadInASessionOfItsOwn) {
  EXPECT_EQ(circuit(), "1.0.35");
  EXPECT_THAT(storeCalls, ElementsAre("session 0", "end"));
  storeCalls.clear();
  unit().setFault(noTable("VccStat"), true);
  EXPECT_EQ(circuit(), "none");
  EXPECT_THAT(storeCalls, ElementsAre("session 0", "end"));
}

TEST_F(Dsl, StoreIsToldWhoReads) {
  EXPECT_EQ(change("8", "36"), 0);
  ASSERT_EQ(readers.size(), 2U);
  EXPECT_EQ(readers[0].table, "ProductionData");
  EXPECT_EQ(readers[0].function, "readProductionMac");
  EXPECT_EQ(readers[1].table, "VccStat");
  EXPECT_EQ(readers[1].function, "FTM_GetCurrentVpiVci");
  for (const Reader& reader : readers)
    EXPECT_THAT(reader.sourceFile, EndsWith("userapps/FTM/FTM_Apis_Dsl.cpp"));
  EXPECT_GT(readers[0].line, 0);
  EXPECT_GT(readers[1].line, readers[0].line); // it stands further down
}

TEST_F(Dsl, StoreIsToldTheLineOfTheReadItself) {
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  const int line = __LINE__ + 1;
  const TableSnapshot circuits(session.get(), "VccStat");
  ASSERT_EQ(readers.size(), 1U);
  EXPECT_EQ(readers[0].line, line);
  EXPECT_THAT(readers[0].sourceFile, EndsWith("FTM_Apis_Dsl_test.cpp"));
  EXPECT_EQ(readers[0].function, __func__);
}

TEST_F(Dsl, CircuitIsTheFirstRowOfExactlyThatInterface) {
  setCircuits({{"nas1", "1", "32"}, {"nas00", "2", "33"}, {"nas0", "8", "36"}, {"nas0", "9", "37"}});
  EXPECT_EQ(circuit(), "1.8.36");
}

TEST_F(Dsl, ThereIsNoCircuitWithoutSuchARow) {
  setCircuits({{"nas1", "1", "32"}});
  EXPECT_EQ(circuit(), "none");
  setCircuits({});
  EXPECT_EQ(circuit(), "none");
  EXPECT_EQ(output, "");
  EXPECT_EQ(recordedMessage(), "");
}

TEST_F(Dsl, CircuitThatDoesNotFitIsNone) {
  const std::size_t longestVci = circuitTextSize - std::string("1.0.").size() - 1;
  setCircuits({{"nas0", "0", std::string(longestVci, '3')}});
  EXPECT_EQ(circuit(), "1.0." + std::string(longestVci, '3'));
  setCircuits({{"nas0", "0", std::string(longestVci + 1, '3')}});
  EXPECT_EQ(circuit(), "none");
}

TEST_F(Dsl, CircuitThatLacksAPartIsNone) {
  for (const int part : {1, 2}) {
    lostColumn = part;
    EXPECT_EQ(circuit(), "none") << part;
  }
  lostColumn = -1;
  EXPECT_EQ(circuit(), "1.0.35");
}

TEST_F(Dsl, CircuitThatCannotBeFormattedIsNone) {
  isFormattingFailing = true;
  const std::string result = circuit();
  isFormattingFailing = false;
  EXPECT_EQ(result, "none");
}

TEST_F(Dsl, CircuitWithoutASessionIsReported) {
  unit().setFault(noSession, true);
  EXPECT_EQ(circuit(), "none");
  EXPECT_EQ(output, sessionLine);
  EXPECT_EQ(recordedMessage(), "Fail to Create Xml File");
}

TEST_F(Dsl, CircuitWithoutItsTableIsReported) {
  unit().setFault(noTable("VccStat"), true);
  EXPECT_EQ(circuit(), "none");
  EXPECT_EQ(output, tableLine("VccStat"));
  EXPECT_EQ(recordedMessage(), "Fail to Create Xml File");
}

// Moving the circuit.

TEST_F(Dsl, ChangeDeletesTheCircuitAndMakesTheNewOneWithTheUnitsAddress) {
  EXPECT_EQ(change("8", "36"), 0);
  EXPECT_EQ(output, "");
  EXPECT_EQ(recordedMessage(), "");
  EXPECT_THAT(journal("command"),
              ElementsAre("/etc/init.d/DelOrgVpiVci.sh 1.0.35", "/etc/init.d/NewVpiVci.sh 1.8.36 02:aa:bb:cc:dd:ee"));
}

TEST_F(Dsl, ChangeReadsTheAddressAndTheCircuitInOneSessionAfterTheOther) {
  EXPECT_EQ(change("8", "36"), 0);
  EXPECT_THAT(storeCalls, ElementsAre("session 0", "end", "session 0", "end"));
}

TEST_F(Dsl, ChangeWithoutACircuitOnlyMakesTheNewOne) {
  setCircuits({});
  EXPECT_EQ(change("8", "36"), 0);
  EXPECT_THAT(journal("command"), ElementsAre("/etc/init.d/NewVpiVci.sh 1.8.36 02:aa:bb:cc:dd:ee"));
}

TEST_F(Dsl, ChangeWithoutTheStoreMakesTheNewCircuitWithTheDefaultAddressAndFails) {
  unit().setFault(noSession, true);
  EXPECT_EQ(change("8", "36"), -1);
  EXPECT_EQ(output, sessionLine + sessionLine); // for the address, then for the circuit
  EXPECT_EQ(recordedMessage(), "Fail to Create Xml File");
  EXPECT_THAT(journal("command"), ElementsAre("/etc/init.d/NewVpiVci.sh 1.8.36 02:1a:2b:00:00:01"));
}

TEST_F(Dsl, ChangeWithoutProductionDataUsesTheDefaultAddressAndFails) {
  unit().setFault(noTable("ProductionData"), true);
  EXPECT_EQ(change("8", "36"), -1);
  EXPECT_EQ(output, tableLine("ProductionData"));
  EXPECT_EQ(recordedMessage(), "Fail to Create Xml File");
  EXPECT_THAT(journal("command"),
              ElementsAre("/etc/init.d/DelOrgVpiVci.sh 1.0.35", "/etc/init.d/NewVpiVci.sh 1.8.36 02:1a:2b:00:00:01"));
}

TEST_F(Dsl, ChangeWithoutTheCircuitTableSucceedsAndOnlyMakesTheNewOne) {
  unit().setFault(noTable("VccStat"), true);
  EXPECT_EQ(change("8", "36"), 0);
  EXPECT_EQ(output, tableLine("VccStat"));
  EXPECT_THAT(journal("command"), ElementsAre("/etc/init.d/NewVpiVci.sh 1.8.36 02:aa:bb:cc:dd:ee"));
}

TEST_F(Dsl, ChangeWithAnEmptyProductionTableUsesTheDefaultAddress) {
  unit().clearTable("ProductionData");
  EXPECT_EQ(change("8", "36"), 0);
  EXPECT_THAT(journal("command"),
              ElementsAre("/etc/init.d/DelOrgVpiVci.sh 1.0.35", "/etc/init.d/NewVpiVci.sh 1.8.36 02:1a:2b:00:00:01"));
}

TEST_F(Dsl, ChangeCutsAnAddressThatIsTooLong) {
  unit().setCell("ProductionData", 0, "MacAddr", "02:aa:bb:cc:dd:ee:ff:ff");
  EXPECT_EQ(change("8", "36"), 0);
  EXPECT_EQ(journal("command").back(), "/etc/init.d/NewVpiVci.sh 1.8.36 02:aa:bb:cc:dd:ee");
}

TEST_F(Dsl, ChangeHandsHostileTextToTheShellAsReceived) {
  EXPECT_EQ(change("8; echo $(echo ran) >&2 #", "36"), 0);
  EXPECT_EQ(output, "ran\n");
  EXPECT_EQ(journal("command").back(), "/etc/init.d/NewVpiVci.sh 1.8; echo $(echo ran) >&2 #.36 02:aa:bb:cc:dd:ee");
}

TEST_F(Dsl, ChangeRunsTheLongestCommandAndNothingOfALongerOne) {
  const std::size_t fixed = std::string("/etc/init.d/NewVpiVci.sh 1.8. 02:aa:bb:cc:dd:ee").size();
  const std::string longestVci(511 - fixed, '6');
  EXPECT_EQ(change("8", longestVci), 0);
  EXPECT_EQ(journal("command").back(), "/etc/init.d/NewVpiVci.sh 1.8." + longestVci + " 02:aa:bb:cc:dd:ee");
  const std::size_t commands = journal("command").size();
  EXPECT_EQ(change("8", longestVci + "6"), -1);
  EXPECT_EQ(recordedMessage(), "Write data failed");
  EXPECT_EQ(journal("command").size(), commands);
}

TEST_F(Dsl, ChangeRunsNothingWhenItsCommandCannotBeFormatted) {
  isFormattingFailing = true;
  const int result = change("8", "36");
  isFormattingFailing = false;
  EXPECT_EQ(result, -1);
  EXPECT_EQ(recordedMessage(), "Write data failed");
  EXPECT_THAT(journal("command"), IsEmpty());
}

// Pair and mode.

TEST_F(Dsl, PairIsTheGpioPointAndModeTellsThatNoTestIsActive) {
  int pair = 7;
  int mode = 7;
  EXPECT_EQ(TRANCVR_FtmApStats(&pair, &mode), 0);
  EXPECT_EQ(pair, 0);
  EXPECT_EQ(mode, 1);
  ledTest(eDSLPair, 1);
  for (const std::uint16_t mask : {std::uint16_t{0x8000}, std::uint16_t{0x0001}}) {
    unFtmState.usWd = mask;
    EXPECT_EQ(TRANCVR_FtmApStats(&pair, &mode), 0);
    EXPECT_EQ(pair, 1);
    EXPECT_EQ(mode, 0);
  }
}

TEST_F(Dsl, PairThatCannotBeReadIsMinusOne) {
  unit().setFault(noGpio, true);
  int pair = 7;
  int mode = 7;
  EXPECT_EQ(TRANCVR_FtmApStats(&pair, &mode), 0);
  EXPECT_EQ(pair, -1);
  EXPECT_EQ(mode, 1);
}

// Placeholders.

TEST_F(Dsl, AttenuationsShareOneBuffer) {
  EXPECT_STREQ(XCVR_ATTEN_Downstream(), "11.23");
  EXPECT_EQ(XCVR_ATTEN_Downstream(), aucB);
  EXPECT_STREQ(XCVR_ATTEN_Upstream(), "10.13");
  EXPECT_STREQ(aucB, "10.13");
}

TEST_F(Dsl, ChannelQueriesAnswerTestUntilTheChannelNumberWasAsked) {
  EXPECT_EQ(firstVpiAnswer, "Test");
  EXPECT_EQ(firstVciAnswer, "Test");
  iVcChanNum = 5;
  EXPECT_STREQ(McfgAtmVC(), "1");
  EXPECT_EQ(iVcChanNum, 1);
  EXPECT_STREQ(McfgAtmVPI(2), "1");
  EXPECT_STREQ(McfgAtmVCI(2), "1");
}

TEST_F(Dsl, FixedAnswers) {
  EXPECT_EQ(TRANCVR_FtmApEnable(1), 0);
  EXPECT_EQ(TRANCVR_FtmApSetInner(), 0);
  EXPECT_EQ(TRANCVR_FtmApSetOuter(), 0);
  TRANCVRForceDSLRetrain();
  EXPECT_EQ(TRANCVR_FtmDslState(), DSL_STATE_DOWN);
  EXPECT_EQ(sysToMonitor(3), 0);
  EXPECT_EQ(WANM_FTMReadyForData(), 1);
  EXPECT_EQ(WANM_FTMSetVCIVPI(), 0);
  EXPECT_THAT(journal(), IsEmpty());
}

} // namespace
