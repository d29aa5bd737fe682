#include "userapps/FTM/VoipTask.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/unit/config_file.h"
#include "tests/unit/device_lines.h"

namespace {

constexpr int endOfTask = 42;
int roundsToEnd; ///< after so many takes of the task's mutex the process ends; 0: never

std::vector<int> handOvers; ///< the command for the task, each time that its mutex was taken and given back

void noteHandOver(const pthread_mutex_t* mutex) {
  if (mutex == &stVoipFtm_Mutex)
    handOvers.push_back(iFtmVoipCmd);
}

void countRound(const pthread_mutex_t* mutex) {
  if (mutex == &stVoipFtm_Mutex && roundsToEnd > 0 && --roundsToEnd == 0)
    std::exit(endOfTask);
}

} // namespace

// The linker puts these in front of the functions.
extern "C" int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
extern "C" int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex);
extern "C" int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  const int result = __real_pthread_mutex_lock(mutex);
  noteHandOver(mutex);
  countRound(mutex);
  return result;
}

extern "C" int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
extern "C" int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex);
extern "C" int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
  noteHandOver(mutex);
  return __real_pthread_mutex_unlock(mutex);
}

namespace {

std::vector<std::string> relayWritten(int point, int data) {
  return {gpioRequest(GPIOCTRL_ENTERFTM, point, data), gpioRequest(GPIOCTRL_WRITEIO, point, data)};
}

class Voip : public ConfigFile {
protected:
  static Outcome parseVoip(const std::string& children, const std::string& attributes = {}) {
    return parse("<VOIP" + attributes + ">" + children + "</VOIP>", [](ST_XML_ELEMENT* element) {
      int slot = 0;
      const int result = FTM_ParseTagVOIP(element, &slot);
      EXPECT_EQ(slot, 0); // no line function uses the slot
      return result;
    });
  }

  /// Adds a VOIP element to the tree, for the read-back.
  static void addVoipElement(const std::string& children) {
    std::string text = "<VOIP>" + children + "</VOIP>";
    const XmlTree document(create_xml_object(text.data()));
    ST_XML_ELEMENT* voip = GetElements(document.get())[0];
    document.get()->m_elements[0] = nullptr; // the tree of the file owns it now
    AddElement(GetElement(TestModeCfgTree(), "TEST_CONFIG"), voip);
  }
};

// Children.

TEST_F(Voip, AnyVoipElementSetsTheVoiceTestFlag) {
  EXPECT_EQ(parseVoip(""), (Outcome{0, "", {}}));
  EXPECT_EQ(unFtmState.usWd, voiceTestMask);
  unFtmState.usWd = 0;
  EXPECT_EQ(parseVoip("<HOOK_1>neither</HOOK_1>").result, -1);
  EXPECT_EQ(unFtmState.usWd, voiceTestMask);
}

TEST_F(Voip, RingVoltagesAndTonesFailWithoutAMessage) {
  for (const char* child :
       {"<RING_VOLTAGE_1>25v</RING_VOLTAGE_1>", "<RING_VOLTAGE_1>50v</RING_VOLTAGE_1>",
        "<RING_VOLTAGE_2>75v</RING_VOLTAGE_2>", "<TONE_1>1</TONE_1>", "<TONE_1>2</TONE_1>", "<TONE_2>3</TONE_2>",
        "<TONE_2>4</TONE_2>", "<TONE_2>None</TONE_2>", "<TONE_1>howler</TONE_1>", "<TONE_1></TONE_1>"})
    EXPECT_EQ(parseVoip(child), (Outcome{-1, "", {}})) << child;
}

TEST_F(Voip, TheLastChildsResultWins) {
  const std::string relay = "<CUT_RELAY_1>Enable</CUT_RELAY_1>";
  for (const char* failing : {"<RING_VOLTAGE_1>25v</RING_VOLTAGE_1>", "<TONE_2>1</TONE_2>"}) {
    EXPECT_EQ(parseVoip(failing + relay), (Outcome{0, "", relayWritten(22, 1)}));
    EXPECT_EQ(parseVoip(relay + failing), (Outcome{-1, "", relayWritten(22, 1)}));
  }
}

TEST_F(Voip, HookIsAcceptedAndHasNoEffect) {
  for (const char* child :
       {"<HOOK_1>ON</HOOK_1>", "<HOOK_1>OFF</HOOK_1>", "<HOOK_2>ON</HOOK_2>", "<HOOK_2>OFF</HOOK_2>"})
    EXPECT_EQ(parseVoip(child), (Outcome{0, "", {}})) << child;
}

TEST_F(Voip, RelaysDriveTheirPoints) {
  EXPECT_EQ(parseVoip("<CUT_RELAY_1>Enable</CUT_RELAY_1>"), (Outcome{0, "", relayWritten(22, 1)}));
  EXPECT_EQ(parseVoip("<CUT_RELAY_1>Disable</CUT_RELAY_1>"), (Outcome{0, "", relayWritten(22, 0)}));
  EXPECT_EQ(parseVoip("<CUT_RELAY_2>Enable</CUT_RELAY_2>"), (Outcome{0, "", relayWritten(23, 1)}));
  EXPECT_EQ(parseVoip("<CUT_RELAY_2>Disable</CUT_RELAY_2>"), (Outcome{0, "", relayWritten(23, 0)}));
}

TEST_F(Voip, AFailingRelayFailsWithoutAMessage) {
  unit().setFault(noGpio, true);
  EXPECT_EQ(parseVoip("<CUT_RELAY_1>Enable</CUT_RELAY_1>"), (Outcome{-1, "", {errorLine("Cannot open gpio driver")}}));
}

TEST_F(Voip, ARelayPortThatIsNoLineIsRefused) {
  for (const unsigned short port : std::vector<unsigned short>{0, 3, 22})
    EXPECT_EQ(run([port] { return FtmPutVOIP_CutThoRly(port, 1); }), (Outcome{-1, "", {}}));
}

TEST_F(Voip, ATextOutsideAChildsListIsNotSupportedAndEndsTheParse) {
  for (const char* child :
       {"<RING_VOLTAGE_1>60v</RING_VOLTAGE_1>", "<RING_VOLTAGE_2>25V</RING_VOLTAGE_2>", "<HOOK_1>on</HOOK_1>",
        "<HOOK_2>off</HOOK_2>", "<HOOK_1></HOOK_1>", "<CUT_RELAY_1>ON</CUT_RELAY_1>",
        "<CUT_RELAY_2>enable</CUT_RELAY_2>", "<DECODER_1>1</DECODER_1>", "<DECODER_2></DECODER_2>"})
    EXPECT_EQ(parseVoip(std::string(child) + "<CUT_RELAY_1>Enable</CUT_RELAY_1>"),
              (Outcome{-1, "Test not supported", {}}))
        << child;
}

TEST_F(Voip, ChildrenBeforeARefusedTextKeepTheirEffect) {
  EXPECT_EQ(parseVoip("<CUT_RELAY_2>Enable</CUT_RELAY_2><HOOK_1>on</HOOK_1>"),
            (Outcome{-1, "Test not supported", relayWritten(23, 1)}));
}

TEST_F(Voip, AnUnknownChildIsNamedOnTheConsoleAndChangesNoResult) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(parseVoip("<HOOK_3>ON</HOOK_3>"), (Outcome{0, "", {}}));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "No Element Found");
  testing::internal::CaptureStdout();
  EXPECT_EQ(parseVoip("<TONE_1>1</TONE_1><HOOK_3>ON</HOOK_3>"), (Outcome{-1, "", {}}));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "No Element Found");
}

// Decoders.

TEST_F(Voip, DecoderOnHandsItsCommandToTheTask) {
  EXPECT_EQ(parseVoip("<DECODER_1>ON</DECODER_1>"), (Outcome{0, "", {}}));
  EXPECT_EQ(iVoipDecoder, eVOIP1_ON);
  EXPECT_EQ(iFtmVoipCmd, eVOIP1_ON);
}

TEST_F(Voip, DecoderOnOfTheSecondLineHasItsOwnCommand) {
  EXPECT_EQ(parseVoip("<DECODER_2>ON</DECODER_2>"), (Outcome{0, "", {}}));
  EXPECT_EQ(iVoipDecoder, eVOIP2_ON);
  EXPECT_EQ(iFtmVoipCmd, eVOIP2_ON);
}

TEST_F(Voip, TheCommandIsHandedOverUnderItsMutex) {
  handOvers.clear();
  EXPECT_EQ(FtmPutVOIP_Decoder(2, eVOIP2_ON), 0);
  EXPECT_EQ(handOvers, (std::vector<int>{eVOIP_IDLE, eVOIP2_ON}));
}

TEST_F(Voip, OnlyOneDecoderMayBeOn) {
  ASSERT_EQ(parseVoip("<DECODER_1>ON</DECODER_1>").result, 0);
  iFtmVoipCmd = eVOIP_IDLE;
  EXPECT_EQ(parseVoip("<DECODER_2>ON</DECODER_2>"), (Outcome{-1, "", {}}));
  EXPECT_EQ(parseVoip("<DECODER_1>ON</DECODER_1>"), (Outcome{-1, "", {}}));
  EXPECT_EQ(iVoipDecoder, eVOIP1_ON);
  EXPECT_EQ(iFtmVoipCmd, eVOIP_IDLE);
}

TEST_F(Voip, DecoderMayBeSwitchedOnAfterAnOff) {
  for (const int off : {eVOIP1_OFF, eVOIP2_OFF}) {
    iVoipDecoder = off;
    EXPECT_EQ(FtmPutVOIP_Decoder(2, eVOIP2_ON), 0);
    EXPECT_EQ(iVoipDecoder, eVOIP2_ON);
  }
}

TEST_F(Voip, DecoderOffIsRefusedWithoutALineDriver) {
  iVoipDecoder = eVOIP1_ON;
  EXPECT_EQ(parseVoip("<DECODER_1>OFF</DECODER_1>"), (Outcome{-1, "", {}}));
  EXPECT_EQ(parseVoip("<DECODER_2>OFF</DECODER_2>"), (Outcome{-1, "", {}}));
  EXPECT_EQ(iVoipDecoder, eVOIP1_ON);
}

TEST_F(Voip, UnknownDecoderCommandsAreRefused) {
  for (const unsigned short code : std::vector<unsigned short>{0, 5, 65535})
    EXPECT_EQ(FtmPutVOIP_Decoder(1, code), -1);
  EXPECT_EQ(iVoipDecoder, eVOIP_IDLE);
}

// The attribute.

TEST_F(Voip, ReadClearIsSetByOneAndClearedByAnythingElse) {
  for (const char* value : {"0", "2", "yes", "11", ""}) {
    giReadClear = 1;
    EXPECT_EQ(parseVoip("", std::string(" ReadClear=\"") + value + "\""), (Outcome{0, "", {}}));
    EXPECT_EQ(giReadClear, 0) << value;
  }
  EXPECT_EQ(parseVoip("<HOOK_1>ON</HOOK_1>", " ReadClear=\"1\""), (Outcome{0, "", {}}));
  EXPECT_EQ(giReadClear, 1);
}

TEST_F(Voip, AnAttributeOfAnotherNameIsNoCommandAlthoughTheChildrenSucceeded) {
  for (const char* attribute : {" readclear=\"1\"", " Clear=\"1\" ReadClear=\"1\""}) {
    EXPECT_EQ(parseVoip("<CUT_RELAY_1>Enable</CUT_RELAY_1>", attribute),
              (Outcome{-1, "No Command Found", relayWritten(22, 1)}));
    EXPECT_EQ(giReadClear, 0);
  }
}

TEST_F(Voip, TheAttributeIsNotLookedAtAfterAFailure) {
  EXPECT_EQ(parseVoip("<TONE_1>1</TONE_1>", " ReadClear=\"1\""), (Outcome{-1, "", {}}));
  EXPECT_EQ(parseVoip("<TONE_1>1</TONE_1>", " Clear=\"1\""), (Outcome{-1, "", {}}));
  EXPECT_EQ(parseVoip("<HOOK_1>on</HOOK_1>", " ReadClear=\"1\""), (Outcome{-1, "Test not supported", {}}));
  EXPECT_EQ(giReadClear, 0);
}

TEST_F(Voip, AnEmptyListOfAttributesIsNone) {
  giReadClear = 1;
  const XmlTree voip(create_sub_xml_element("VOIP", 0, 0, nullptr, nullptr, nullptr));
  for (char*** list : {&voip->m_attrnames, &voip->m_attrvalues})
    *list = static_cast<char**>(std::calloc(1, sizeof(char*)));
  int slot = 0;
  EXPECT_EQ(FTM_ParseTagVOIP(voip.get(), &slot), 0);
  EXPECT_EQ(giReadClear, 1);
}

TEST_F(Voip, WithoutAnAttributeReadClearStays) {
  giReadClear = 1;
  EXPECT_EQ(parseVoip("<HOOK_1>ON</HOOK_1>"), (Outcome{0, "", {}}));
  EXPECT_EQ(giReadClear, 1);
}

// Placeholders of the line driver.

TEST_F(Voip, PlaceholdersOfTheLineDriverFailAndFillNothing) {
  EXPECT_EQ(FtmPutVOIP_RngVolt(1, 5), -1);
  EXPECT_EQ(FtmPutVOIP_Tone(2, "dial"), -1);
  EXPECT_EQ(FtmEnd_Tone(1), -1);
  EXPECT_EQ(ftm_reporttone("1"), -1);
  EXPECT_EQ(FtmUpdateVOIP_RngVolt(1, 1, "25v"), -1);
  EXPECT_EQ(FtmUpDateVoipTone(1, 1, "dial"), -1);
  ST_VOIP_TEST_RSLT results{};
  results.iPid_t = 7;
  EXPECT_EQ(Ftm_CMGetVoipTstRslt(&results), -1);
  EXPECT_EQ(results.iPid_t, 7);
}

// The task.

TEST_F(Voip, TaskClearsAnOnCommandAndPausesTwoSeconds) {
  for (const int command : {eVOIP1_ON, eVOIP2_ON}) {
    iFtmVoipCmd = command;
    const std::int64_t before = gateway::clock::nowMs();
    VoipTaskRound();
    EXPECT_EQ(iFtmVoipCmd, eVOIP_IDLE);
    EXPECT_EQ(gateway::clock::nowMs() - before, 2000);
  }
}

TEST_F(Voip, TaskLeavesOtherCommands) {
  for (const int command : {eVOIP_IDLE, eVOIP1_OFF, eVOIP2_OFF, eVOIP_MAX}) {
    iFtmVoipCmd = command;
    VoipTaskRound();
    EXPECT_EQ(iFtmVoipCmd, command);
  }
}

TEST_F(Voip, TaskPausesWithoutHoldingTheMutex) {
  int locked = -1;
  gateway::clock::at(1000, [&locked] {
    locked = pthread_mutex_trylock(&stVoipFtm_Mutex);
    if (locked == 0)
      pthread_mutex_unlock(&stVoipFtm_Mutex);
  });
  VoipTaskRound();
  EXPECT_EQ(locked, 0);
}

TEST_F(Voip, TaskNotesThatItHasRun) {
  iOnceVoip = 0;
  VoipTaskRound();
  EXPECT_EQ(iOnceVoip, 1);
}

using VoipDeathTest = Voip;

TEST_F(VoipDeathTest, TaskGoesOnForEver) {
  roundsToEnd = 3;
  EXPECT_EXIT(VoipTask(nullptr), testing::ExitedWithCode(endOfTask), "");
  roundsToEnd = 0;
}

TEST_F(Voip, TheCommandCanBeHandedOverBeforeTheTaskHasEverRun) {
  iOnceVoip = 0;
  EXPECT_EQ(FtmPutVOIP_Decoder(1, eVOIP1_ON), 0);
  VoipTaskRound();
  EXPECT_EQ(iFtmVoipCmd, eVOIP_IDLE);
}

// Read-back.

TEST_F(Voip, ReadBackWithoutTheElementsFails) {
  for (int (*update)() : {FtmUpDateVoipHook, FtmUpDateVoipCTRelay, FtmUpDateVoipDecoder, FtmUpDateVoipDigit}) {
    const Outcome outcome = run(update);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.message, "Xml File InValid");
  }
}

TEST_F(Voip, ReadBackWithOnlyTheFirstLinesElementFails) {
  addVoipElement("<HOOK_1/><CUT_RELAY_1/><DECODER_1/><DIGIT_RX_1/>");
  for (int (*update)() : {FtmUpDateVoipHook, FtmUpDateVoipCTRelay, FtmUpDateVoipDecoder, FtmUpDateVoipDigit})
    EXPECT_EQ(update(), -1);
}

TEST_F(Voip, ReadBackWithOnlyTheSecondLinesElementFails) {
  addVoipElement("<HOOK_2/><CUT_RELAY_2/><DECODER_2/><DIGIT_RX_2/>");
  for (int (*update)() : {FtmUpDateVoipHook, FtmUpDateVoipCTRelay, FtmUpDateVoipDecoder, FtmUpDateVoipDigit})
    EXPECT_EQ(update(), -1);
}

TEST_F(Voip, HookShowsTheLineDriversText) {
  addVoipElement("<HOOK_1/><HOOK_2/>");
  std::strcpy(stVoipTstRslt.cV1HookSt, "on hook");
  std::strcpy(stVoipTstRslt.cV2HookSt, "off hook");
  EXPECT_EQ(FtmUpDateVoipHook(), 0);
  EXPECT_EQ(inTree("VOIP/HOOK_1"), "on hook");
  EXPECT_EQ(inTree("VOIP/HOOK_2"), "off hook");
  EXPECT_EQ(FtmGetVOIP_Hook(0), "UNKNOWN");
  EXPECT_EQ(FtmGetVOIP_Hook(3), "UNKNOWN");
}

TEST_F(Voip, ATextThatFillsItsWholeFieldIsShownWhole) {
  addVoipElement("<HOOK_1/><HOOK_2/>");
  std::memset(&stVoipTstRslt, 'x', sizeof stVoipTstRslt);
  EXPECT_EQ(FtmUpDateVoipHook(), 0);
  EXPECT_EQ(inTree("VOIP/HOOK_1"), std::string(20, 'x'));
}

TEST_F(Voip, RelaysShowTheirPoints) {
  addVoipElement("<CUT_RELAY_1/><CUT_RELAY_2/>");
  FtmPutVOIP_CutThoRly(1, 1);
  FtmPutVOIP_CutThoRly(2, 0);
  EXPECT_EQ(run(FtmUpDateVoipCTRelay),
            (Outcome{0, "", {gpioRequest(GPIOCTRL_READIO, 22, 1), gpioRequest(GPIOCTRL_READIO, 23, 0)}}));
  EXPECT_EQ(inTree("VOIP/CUT_RELAY_1"), "Enable");
  EXPECT_EQ(inTree("VOIP/CUT_RELAY_2"), "Disable");
  unit().setFault(noGpio, true);
  EXPECT_EQ(FtmUpDateVoipCTRelay(), 0);
  EXPECT_EQ(inTree("VOIP/CUT_RELAY_1"), "UNKNOWN");
}

TEST_F(Voip, BothLinesShowTheSameDecoderState) {
  addVoipElement("<DECODER_1/><DECODER_2/>");
  for (const int command : {eVOIP_IDLE, eVOIP1_ON, eVOIP1_OFF, eVOIP2_ON, eVOIP2_OFF}) {
    iVoipDecoder = command;
    EXPECT_EQ(FtmUpDateVoipDecoder(), 0);
    const char* expected = command == eVOIP1_ON || command == eVOIP2_ON ? "ON" : "OFF";
    EXPECT_EQ(inTree("VOIP/DECODER_1"), expected) << command;
    EXPECT_EQ(inTree("VOIP/DECODER_2"), expected) << command;
  }
}

TEST_F(Voip, DigitsShownAreTheCurrentOnesWithReadClear) {
  addVoipElement("<DIGIT_RX_1/><DIGIT_RX_2/>");
  std::strcpy(stVoipTstRslt.cV1Digits, "0123");
  std::strcpy(stVoipTstRslt.cV2Digits, "4567");
  std::strcpy(stVoipTstRslt.cV1CurDigits, "3");
  std::strcpy(stVoipTstRslt.cV2CurDigits, "7");
  EXPECT_EQ(FtmUpDateVoipDigit(), 0);
  EXPECT_EQ(inTree("VOIP/DIGIT_RX_1"), "0123");
  EXPECT_EQ(inTree("VOIP/DIGIT_RX_2"), "4567");
  giReadClear = 1;
  EXPECT_EQ(FtmUpDateVoipDigit(), 0);
  EXPECT_EQ(inTree("VOIP/DIGIT_RX_1"), "3");
  EXPECT_EQ(inTree("VOIP/DIGIT_RX_2"), "7");
}

TEST_F(Voip, RingVoltageReadsAs75ForALineAnd25ForPort0) {
  unsigned short volts = 0;
  for (const unsigned short port : std::vector<unsigned short>{1, 2, 9}) {
    EXPECT_EQ(FtmGetVOIP_RngVolt(port, &volts), 0);
    EXPECT_EQ(volts, 75);
  }
  EXPECT_EQ(FtmGetVOIP_RngVolt(0, &volts), 0);
  EXPECT_EQ(volts, 25);
}

TEST_F(Voip, TheFileShowsNoLines) {
  EXPECT_EQ(readBack("VOIP"), "no element");
}

} // namespace
