// The line tests on a gateway with a line driver: this program links one in place of the placeholders.
#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

#include "tests/unit/config_file.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> calls;
int digitCollector;
int lockDuringReport; // what an attempt to take the command's mutex gives meanwhile

int called(const std::string& entryPoint, const char* arguments) {
  calls.push_back(entryPoint + " \"" + arguments + "\"");
  return 0;
}

} // namespace

int ftm_slicmode(const char* pcArguments) {
  return called("slicmode", pcArguments);
}
int ftm_playtone(const char* pcArguments) {
  return called("playtone", pcArguments);
}
int ftm_endtone(const char* pcArguments) {
  return called("endtone", pcArguments);
}
int ftm_reporttone(const char* pcArguments) {
  lockDuringReport = pthread_mutex_trylock(&stVoipFtm_Mutex);
  if (lockDuringReport == 0)
    pthread_mutex_unlock(&stVoipFtm_Mutex);
  return called("reporttone", pcArguments);
}
int Ftm_CMGetVoipTstRslt(ST_VOIP_TEST_RSLT* pstRslt) {
  pstRslt->iPid_t = digitCollector;
  return 0;
}

namespace {

class LineDriver : public ConfigFile {
protected:
  LineDriver() {
    calls.clear();
    digitCollector = 0;
  }

  static int parseChild(const std::string& child) {
    return parse("<VOIP>" + child + "</VOIP>",
                 [](ST_XML_ELEMENT* element) {
                   int slot = 0;
                   return FTM_ParseTagVOIP(element, &slot);
                 })
        .result;
  }
};

TEST_F(LineDriver, RingVoltagesAreHandedOverAsPortAndCode) {
  for (const char* child : {"<RING_VOLTAGE_1>25v</RING_VOLTAGE_1>", "<RING_VOLTAGE_1>50v</RING_VOLTAGE_1>",
                            "<RING_VOLTAGE_2>75v</RING_VOLTAGE_2>"})
    EXPECT_EQ(parseChild(child), -1); // the file can't show it, whatever the driver says
  EXPECT_THAT(calls, ElementsAre("slicmode \"1 0\"", "slicmode \"1 5\"", "slicmode \"2 7\""));
}

TEST_F(LineDriver, TonesAreHandedOverByName) {
  for (const char* tone : {"1", "2", "3", "4", "howler", "5", "none", ""})
    EXPECT_EQ(parseChild("<TONE_2>" + std::string(tone) + "</TONE_2>"), -1);
  EXPECT_THAT(calls,
              ElementsAre("playtone \"2 busy\"", "playtone \"2 confirm\"", "playtone \"2 dial\"", "playtone \"2 msgw\"",
                          "playtone \"2 howler\"", "playtone \"2 5\"", "playtone \"2 none\"", "playtone \"2 \""));
}

TEST_F(LineDriver, ALongToneNameIsHandedOverWhole) {
  const std::string name(5000, 't');
  EXPECT_EQ(parseChild("<TONE_1>" + name + "</TONE_1>"), -1);
  EXPECT_THAT(calls, ElementsAre("playtone \"1 " + name + "\""));
}

TEST_F(LineDriver, NoneEndsTheTone) {
  EXPECT_EQ(parseChild("<TONE_1>None</TONE_1>"), -1);
  EXPECT_THAT(calls, ElementsAre("endtone \"1\""));
}

TEST_F(LineDriver, HookCallsNothing) {
  EXPECT_EQ(parseChild("<HOOK_1>ON</HOOK_1>"), 0);
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(LineDriver, TaskReportsTheToneOfTheLineOnceForEachCommand) {
  for (const int command : {eVOIP1_ON, eVOIP2_ON, eVOIP1_OFF, eVOIP2_OFF, eVOIP_MAX}) {
    iFtmVoipCmd = command;
    VoipTaskRound();
    VoipTaskRound();
  }
  EXPECT_THAT(calls, ElementsAre("reporttone \"1\"", "reporttone \"2\""));
}

TEST_F(LineDriver, TaskHoldsTheMutexWhileItTakesItsCommand) {
  iFtmVoipCmd = eVOIP1_ON;
  lockDuringReport = 0;
  VoipTaskRound();
  EXPECT_EQ(lockDuringReport, EBUSY);
}

TEST_F(LineDriver, DecoderOffEndsTheDigitCollector) {
  iVoipDecoder = eVOIP1_ON;
  digitCollector = 4711;
  EXPECT_EQ(parseChild("<DECODER_1>OFF</DECODER_1>"), 0);
  EXPECT_EQ(iVoipDecoder, eVOIP1_OFF);
  EXPECT_EQ(iFtmVoipCmd, eVOIP_IDLE);
  EXPECT_THAT(journal(), ElementsAre("signal " + std::to_string(SIGTERM) + " to 4711"));
}

TEST_F(LineDriver, DecoderOffOfTheOtherLineIsAcceptedToo) {
  iVoipDecoder = eVOIP1_ON;
  digitCollector = 4711;
  EXPECT_EQ(parseChild("<DECODER_2>OFF</DECODER_2>"), 0);
  EXPECT_EQ(iVoipDecoder, eVOIP2_OFF);
}

TEST_F(LineDriver, DecoderOffWithoutADigitCollectorIsRefused) {
  iVoipDecoder = eVOIP1_ON;
  EXPECT_EQ(parseChild("<DECODER_1>OFF</DECODER_1>"), -1);
  EXPECT_EQ(iVoipDecoder, eVOIP1_ON);
  EXPECT_THAT(journal(), IsEmpty());
}

} // namespace
