#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/unit/config_file.h"
#include "tests/unit/device_lines.h"

namespace {

std::vector<std::string> pointWritten(int point, int data) {
  return {gpioRequest(GPIOCTRL_ENTERFTM, point, data), gpioRequest(GPIOCTRL_WRITEIO, point, data)};
}

std::vector<std::string> operator+(std::vector<std::string> first, const std::vector<std::string>& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

class Parsers : public ConfigFile {
protected:
  using SlotParser = int (*)(ST_XML_ELEMENT*, int*);

  /// Runs a parser with the slot, which keeps its value between the sections of a test.
  Outcome parseWith(SlotParser parser, const std::string& section) {
    return parse(section, [&](ST_XML_ELEMENT* element) { return parser(element, &slot); });
  }
  Outcome led(const std::string& children) { return parseWith(FTM_ParseTagLED, "<LED>" + children + "</LED>"); }
  Outcome singleLed(const std::string& attributes) {
    return parse("<SINGLE_LED " + attributes + "/>",
                 [&](ST_XML_ELEMENT* element) { return FTM_ParseTagSingleLed(nullptr, element, &slot); });
  }
  Outcome singleLed(const std::string& number, const std::string& mode) {
    return singleLed("NUM=\"" + number + "\" MODE=\"" + mode + "\"");
  }
  Outcome throughput(const std::string& attributes, const std::string& children = {}) {
    return parseWith(FTM_ParseTagTHRPUT, "<THROUGHPUT " + attributes + ">" + children + "</THROUGHPUT>");
  }
  Outcome autoPair(const std::string& children) {
    return parseWith(FTM_ParseTagAutoPair, "<AUTO_PAIR>" + children + "</AUTO_PAIR>");
  }

  static void removeFromTree(const char* section, const char* tag) {
    RemoveElements(GetElmtPtr(TestModeCfgTree(), "TEST_CONFIG", section, nullptr), tag);
  }

  int slot = 0;
};

// Permissions.

TEST_F(Parsers, ReadingsAreReadOnlyAndSettingsAreWritable) {
  for (int (*isWritable)() : {Is_SESSION_LED_WrEnb, Is_READY_STATUS_WrEnb, Is_RESET_SW_STATUS_WrEnb,
                              Is_WPS_SW_STATUS_WrEnb, Is_ETHER_PORT_SPD_WrEnb})
    EXPECT_EQ(isWritable(), 0);
  for (int (*isWritable)() :
       {Is_READY_GREEN_LED_WrEnb, Is_READY_RED_LED_WrEnb, Is_ETHER_LED_WrEnb, Is_USB_LED_WrEnb, Is_WPS_LED_WrEnb,
        Is_ALL_LEDS_WrEnb, Is_MULTI_MODE_WrEnb, Is_AUTO_MODE_WrEnb, Is_PSD_MODE_WrEnb, Is_POWER_LED_WrEnb,
        Is_WAN_LED_WrEnb, Is_INTERNET_LED_WrEnb, Is_LAN_LED_WrEnb, Is_WIRELESS_LED_WrEnb})
    EXPECT_EQ(isWritable(), 1);
}

// LEDs.

TEST_F(Parsers, LedSectionWithoutChildrenSucceedsAndSetsNoFlag) {
  EXPECT_EQ(led(""), (Outcome{0, "", {}}));
  EXPECT_EQ(unFtmState.usWd, 0);
}

TEST_F(Parsers, EachLedDrivesItsOwnPoint) {
  const std::vector<std::pair<std::string, int>> leds = {
      {"READY_GREEN_LED", 3}, {"READY_RED_LED", 4}, {"ETHER_LED", 12}, {"USB_LED", 8}, {"WPS_LED", 42}};
  for (const auto& [name, point] : leds) {
    EXPECT_EQ(led("<" + name + ">ON</" + name + ">"), (Outcome{0, "", pointWritten(point, 1)}));
    EXPECT_EQ(led("<" + name + ">OFF</" + name + ">"), (Outcome{0, "", pointWritten(point, 0)}));
    EXPECT_EQ(unFtmState.usWd, ledTestMask);
    EXPECT_EQ(slot, 0);
  }
}

TEST_F(Parsers, LedChildrenAreCarriedOutInDocumentOrder) {
  EXPECT_EQ(led("<USB_LED>ON</USB_LED><READY_GREEN_LED>OFF</READY_GREEN_LED><USB_LED>OFF</USB_LED>"),
            (Outcome{0, "", pointWritten(8, 1) + pointWritten(3, 0) + pointWritten(8, 0)}));
}

TEST_F(Parsers, SessionLedIsReadOnlyAndEndsTheSection) {
  EXPECT_EQ(led("<SESSION_LED>ON</SESSION_LED><USB_LED>ON</USB_LED>"), (Outcome{-1, "Write test config failed", {}}));
  EXPECT_EQ(slot, -1);
  EXPECT_EQ(unFtmState.usWd, 0);
}

TEST_F(Parsers, AnotherTextForAnLedIsNotSupportedAndEndsTheSection) {
  for (const char* name : {"READY_GREEN_LED", "READY_RED_LED", "ETHER_LED", "USB_LED", "WPS_LED", "ALL_LEDS"})
    for (const char* text : {"on", "1", "ON OFF", ""}) {
      slot = 0;
      const std::string child = std::string("<") + name + ">" + text + "</" + name + ">";
      EXPECT_EQ(led(child + "<USB_LED>ON</USB_LED>"), (Outcome{-1, "Test not supported", {}})) << child;
      EXPECT_EQ(slot, -1) << child;
    }
  EXPECT_EQ(unFtmState.usWd, 0);
}

TEST_F(Parsers, AnUnknownLedEndsTheSectionAndLeavesTheSlot) {
  for (const int before : {0, -1}) {
    slot = before;
    EXPECT_EQ(led("<WAN_LED>ON</WAN_LED><USB_LED>ON</USB_LED>"), (Outcome{-1, "Test not supported", {}}));
    EXPECT_EQ(slot, before);
  }
}

TEST_F(Parsers, LedsBeforeARefusedOneKeepTheirEffect) {
  EXPECT_EQ(led("<USB_LED>ON</USB_LED><SESSION_LED>ON</SESSION_LED>"),
            (Outcome{-1, "Write test config failed", pointWritten(8, 1)}));
  EXPECT_EQ(unFtmState.usWd, ledTestMask);
}

TEST_F(Parsers, AFailedLedFailsTheSectionAndTheNextOnesAreStillDriven) {
  unit().setFault(gpioFault(GPIOCTRL_WRITEIO), true);
  EXPECT_EQ(led("<USB_LED>ON</USB_LED><ETHER_LED>ON</ETHER_LED>"),
            (Outcome{-1,
                     "Write data failed",
                     {gpioRequest(GPIOCTRL_ENTERFTM, 8, 1), gpioRequest(GPIOCTRL_WRITEIO, 8, 1) + failed,
                      errorLine("GPIOCTRL_WRITEIO ioctl failed"), gpioRequest(GPIOCTRL_ENTERFTM, 12, 1),
                      gpioRequest(GPIOCTRL_WRITEIO, 12, 1) + failed, errorLine("GPIOCTRL_WRITEIO ioctl failed")}}));
  EXPECT_EQ(slot, -1);
  EXPECT_EQ(unFtmState.usWd, 0);
}

TEST_F(Parsers, AnLedThatSucceedsAfterAFailedOneDoesNotMendTheSection) {
  unit().setFault(gpioFault(GPIOCTRL_WRITEIO), true); // all LEDs at once are another request
  EXPECT_EQ(led("<USB_LED>ON</USB_LED><ALL_LEDS>ON</ALL_LEDS>"),
            (Outcome{-1,
                     "Write data failed",
                     {gpioRequest(GPIOCTRL_ENTERFTM, 8, 1), gpioRequest(GPIOCTRL_WRITEIO, 8, 1) + failed,
                      errorLine("GPIOCTRL_WRITEIO ioctl failed"), gpioRequest(GPIOCTRL_ENTERFTM, 100, 1),
                      gpioRequest(GPIOCTRL_ALLLEDS_ON)}}));
  EXPECT_EQ(unFtmState.usWd, 0);
}

TEST_F(Parsers, AnLedThatFailsAfterAGoodOneLeavesTheFlagSet) {
  unit().setFault(gpioFault(GPIOCTRL_ALLLEDS_OFF), true);
  EXPECT_EQ(led("<USB_LED>ON</USB_LED><ALL_LEDS>OFF</ALL_LEDS>").result, -1);
  EXPECT_EQ(unFtmState.usWd, ledTestMask);
}

TEST_F(Parsers, ARefusedLedAfterAFailedOneGivesItsOwnMessage) {
  unit().setFault(noGpio, true);
  EXPECT_EQ(led("<USB_LED>ON</USB_LED><SESSION_LED>ON</SESSION_LED>").message, "Write test config failed");
}

TEST_F(Parsers, ASlotThatIsSetFailsEveryChildThatDoesNotSetItAgain) {
  slot = -1;
  const std::string single = "<SINGLE_LED NUM=\"8\" MODE=\"ON\"/>";
  EXPECT_EQ(led(single + single), (Outcome{-1, "Write data failed", pointWritten(8, 1) + pointWritten(8, 1)}));
  EXPECT_EQ(slot, -1);
  EXPECT_EQ(led("<USB_LED>OFF</USB_LED>"), (Outcome{0, "", pointWritten(8, 0)}));
  EXPECT_EQ(slot, 0);
}

TEST_F(Parsers, AllLedsAreSwitchedAtOnce) {
  EXPECT_EQ(led("<ALL_LEDS>ON</ALL_LEDS><ALL_LEDS>OFF</ALL_LEDS>"),
            (Outcome{0,
                     "",
                     {gpioRequest(GPIOCTRL_ENTERFTM, 100, 1), gpioRequest(GPIOCTRL_ALLLEDS_ON),
                      gpioRequest(GPIOCTRL_ENTERFTM, 100, 0), gpioRequest(GPIOCTRL_ALLLEDS_OFF)}}));
  EXPECT_EQ(unFtmState.usWd, ledTestMask);
}

TEST_F(Parsers, AllLedsThatFailEndTheSection) {
  unit().setFault(gpioFault(GPIOCTRL_ALLLEDS_ON), true);
  EXPECT_EQ(led("<ALL_LEDS>ON</ALL_LEDS><USB_LED>ON</USB_LED>"),
            (Outcome{-1,
                     "Write data failed",
                     {gpioRequest(GPIOCTRL_ENTERFTM, 100, 1), gpioRequest(GPIOCTRL_ALLLEDS_ON) + failed,
                      errorLine("GPIOCTRL_WRITEIO ioctl failed")}}));
  EXPECT_EQ(slot, -1);
  EXPECT_EQ(unFtmState.usWd, 0);
}

TEST_F(Parsers, AWriteDoesNotChangeTheTextOfAnLed) {
  EXPECT_EQ(led("<USB_LED>OFF</USB_LED>").result, 0);
  EXPECT_EQ(inTree("LED/USB_LED"), "ON");
}

// A single LED.

TEST_F(Parsers, SingleLedDrivesItsPoint) {
  EXPECT_EQ(singleLed("12", "ON"), (Outcome{0, "", pointWritten(12, 1)}));
  EXPECT_EQ(singleLed("12", "OFF"), (Outcome{0, "", pointWritten(12, 0)}));
  EXPECT_EQ(unFtmState.usWd, ledTestMask);
  EXPECT_EQ(inTree("LED/SINGLE_LED@NUM"), "12");
  EXPECT_EQ(inTree("LED/SINGLE_LED@MODE"), "OFF");
}

TEST_F(Parsers, SingleLedBelow73NeedsAMode) {
  for (const char* number : {"0", "10", "72", "", "green"})
    for (const char* mode : {"on", "BLINK", "", "1"}) {
      slot = 0;
      EXPECT_EQ(singleLed(number, mode), (Outcome{-1, "Test not supported", {}})) << number << mode;
      EXPECT_EQ(slot, -1);
    }
  EXPECT_EQ(unFtmState.usWd, 0);
  EXPECT_EQ(inTree("LED/SINGLE_LED@NUM"), "0");
}

TEST_F(Parsers, SingleLedFrom73To255PassesWhateverTheModeAndDrivesNothing) {
  for (const char* number : {"73", "80", "255"}) {
    EXPECT_EQ(singleLed(number, "BLINK"), (Outcome{0, "", {}})) << number;
    EXPECT_EQ(slot, 0);
    EXPECT_EQ(inTree("LED/SINGLE_LED@NUM"), number);
    EXPECT_EQ(inTree("LED/SINGLE_LED@MODE"), "BLINK");
  }
  EXPECT_EQ(unFtmState.usWd, ledTestMask);
}

TEST_F(Parsers, SingleLedFrom256IsRefusedWhateverTheMode) {
  for (const char* number : {"256", "300", "65535", "-1", "2147483647"})
    for (const char* mode : {"ON", "OFF", "BLINK"}) {
      slot = 0;
      EXPECT_EQ(singleLed(number, mode), (Outcome{-1, "Test not supported", {}})) << number << mode;
      EXPECT_EQ(slot, -1);
    }
  EXPECT_EQ(unFtmState.usWd, 0);
}

TEST_F(Parsers, SingleLedKeepsItsPointIn16Bits) {
  EXPECT_EQ(singleLed("65539", "ON"), (Outcome{0, "", pointWritten(3, 1)}));
  EXPECT_EQ(inTree("LED/SINGLE_LED@NUM"), "65539");
}

TEST_F(Parsers, SingleLedNumberThatNoIntHoldsIsTheNearestOne) {
  for (const char* number : {"2147483648", "4294967299", "99999999999999999999"}) // 65535 in 16 bits
    EXPECT_EQ(singleLed(number, "ON"), (Outcome{-1, "Test not supported", {}})) << number;
  for (const char* number : {"-2147483649", "-99999999999999999999"}) // 0 in 16 bits
    EXPECT_EQ(singleLed(number, "BLINK"), (Outcome{-1, "Test not supported", {}})) << number;
  EXPECT_EQ(unFtmState.usWd, 0);
}

TEST_F(Parsers, SingleLedNumberEndsAtItsFirstOtherCharacter) {
  EXPECT_EQ(singleLed("8 green", "ON"), (Outcome{0, "", pointWritten(8, 1)}));
}

TEST_F(Parsers, SingleLed100IsAllLeds) {
  EXPECT_EQ(singleLed("100", "ON"),
            (Outcome{0, "", {gpioRequest(GPIOCTRL_ENTERFTM, 100, 1), gpioRequest(GPIOCTRL_ALLLEDS_ON)}}));
}

TEST_F(Parsers, SingleLedTakesItsAttributesByPosition) {
  EXPECT_EQ(singleLed("POINT=\"8\" STATE=\"ON\" MODE=\"OFF\""), (Outcome{0, "", pointWritten(8, 1)}));
  EXPECT_EQ(inTree("LED/SINGLE_LED@POINT"), "8");
  EXPECT_EQ(inTree("LED/SINGLE_LED@STATE"), "ON");
  EXPECT_EQ(inTree("LED/SINGLE_LED@MODE"), "OFF"); // the template's
  EXPECT_EQ(singleLed("MODE=\"ON\" NUM=\"8\""), (Outcome{-1, "Test not supported", {}}));
}

TEST_F(Parsers, SingleLedWithoutAttributesIsPointZeroWithoutAMode) {
  EXPECT_EQ(singleLed(""), (Outcome{-1, "Test not supported", {}}));
  EXPECT_EQ(singleLed("NUM=\"8\""), (Outcome{-1, "Test not supported", {}}));
}

TEST_F(Parsers, SingleLedFrom73WithoutAModePassesAndKeepsNothing) {
  EXPECT_EQ(singleLed("NUM=\"80\""), (Outcome{0, "", {}}));
  EXPECT_EQ(unFtmState.usWd, ledTestMask);
  EXPECT_EQ(inTree("LED/SINGLE_LED@NUM"), "0");
}

TEST_F(Parsers, SingleLedIgnoresTheDriversAnswer) {
  unit().setFault(noGpio, true);
  EXPECT_EQ(singleLed("8", "ON"), (Outcome{0, "", {errorLine("Cannot open gpio driver")}}));
  EXPECT_EQ(slot, 0);
}

TEST_F(Parsers, SingleLedWithoutItsElementInTheTreeFindsNoCommand) {
  removeFromTree("LED", "SINGLE_LED");
  EXPECT_EQ(singleLed("8", "ON"), (Outcome{-1, "No Command Found", {}}));
  EXPECT_EQ(slot, 0);
  EXPECT_EQ(unFtmState.usWd, ledTestMask);
}

TEST_F(Parsers, SingleLedThatFailsEndsItsSection) {
  EXPECT_EQ(led("<SINGLE_LED NUM=\"300\" MODE=\"ON\"/><USB_LED>ON</USB_LED>"), (Outcome{-1, "Test not supported", {}}));
}

TEST_F(Parsers, SingleLedTestWithAnyPartMissingDoesNothing) {
  char number[] = "8";
  char mode[] = "ON";
  char* numberSlot = number;
  char* modeSlot = mode;
  char* noText = nullptr;
  for (int missing = 0; missing < 4; ++missing)
    for (char** absent : {static_cast<char**>(nullptr), &noText}) {
      char** parts[] = {&numberSlot, &modeSlot, &numberSlot, &modeSlot};
      parts[missing] = absent;
      EXPECT_EQ(run([&] { return FtmSingleLedTest(parts[0], parts[1], parts[2], parts[3]); }), (Outcome{0, "", {}}));
    }
}

// Throughput.

class Throughput : public Parsers {
protected:
  static std::vector<std::string> circuitMoved(const std::string& from, const std::string& to) {
    const std::string mac = unit().cell("ProductionData", 0, "MacAddr").value_or("no address");
    return {"command /etc/init.d/DelOrgVpiVci.sh " + from, "command /etc/init.d/NewVpiVci.sh " + to + " " + mac};
  }
};

TEST_F(Throughput, CircuitIsMovedAndTheAttributesAreKept) {
  EXPECT_EQ(throughput("VPI=\"8\" VCI=\"36\""), (Outcome{0, "", circuitMoved("1.0.35", "1.8.36")}));
  EXPECT_EQ(slot, 0);
  EXPECT_EQ(unFtmState.usWd, throughputTestMask);
  EXPECT_EQ(inTree("THROUGHPUT@VPI"), "8");
  EXPECT_EQ(inTree("THROUGHPUT@VCI"), "36");
}

TEST_F(Throughput, AttributesAreTakenByPositionAndKeptByName) {
  EXPECT_EQ(throughput("VCI=\"8\" VPI=\"36\""), (Outcome{0, "", circuitMoved("1.0.35", "1.8.36")}));
  EXPECT_EQ(inTree("THROUGHPUT@VCI"), "8");
  EXPECT_EQ(inTree("THROUGHPUT@VPI"), "36");
}

TEST_F(Throughput, ReadyStatusIsReadOnlyAndNothingIsMoved) {
  for (const char* text : {"READY", "NOT_READY", "other"})
    EXPECT_EQ(throughput("VPI=\"8\" VCI=\"36\"", std::string("<READY_STATUS>") + text + "</READY_STATUS>"),
              (Outcome{-1, "Write test config failed", {}}));
  EXPECT_EQ(slot, 0);
  EXPECT_EQ(unFtmState.usWd, 0);
  EXPECT_EQ(inTree("THROUGHPUT@VPI"), "0");
}

TEST_F(Throughput, OtherChildrenAreIgnored) {
  EXPECT_EQ(throughput("VPI=\"8\" VCI=\"36\"", "<SPEED>fast</SPEED>").result, 0);
  EXPECT_EQ(inTree("THROUGHPUT@VPI"), "8");
}

TEST_F(Throughput, WithFewerThanTwoAttributesOnlyTheFlagIsSet) {
  for (const char* attributes : {"", "VPI=\"8\""}) {
    unFtmState.usWd = 0;
    EXPECT_EQ(throughput(attributes), (Outcome{0, "", {}}));
    EXPECT_EQ(unFtmState.usWd, throughputTestMask);
  }
  EXPECT_EQ(inTree("THROUGHPUT@VPI"), "0");
  EXPECT_EQ(inTree("THROUGHPUT@VCI"), "35");
}

TEST_F(Throughput, AFailedMoveSetsTheSlotAndKeepsTheAttributes) {
  unit().setFault(noSession, true);
  const Outcome outcome = throughput("VPI=\"8\" VCI=\"36\"");
  EXPECT_EQ(outcome.result, -1);
  EXPECT_EQ(outcome.message, "Fail to Create Xml File");
  EXPECT_EQ(slot, -1);
  EXPECT_EQ(unFtmState.usWd, throughputTestMask);
  EXPECT_EQ(inTree("THROUGHPUT@VPI"), "8");
}

TEST_F(Throughput, WithoutItsElementInTheTreeNoCommandIsFound) {
  RemoveElements(GetElement(TestModeCfgTree(), "TEST_CONFIG"), "THROUGHPUT");
  EXPECT_EQ(throughput("VPI=\"8\" VCI=\"36\""), (Outcome{-1, "No Command Found", {}}));
  EXPECT_EQ(slot, 0);
}

TEST_F(Throughput, TestWithAnyPartMissingDoesNothing) {
  char vpi[] = "8";
  char* present = vpi;
  char* noText = nullptr;
  for (int missing = 0; missing < 4; ++missing)
    for (char** absent : {static_cast<char**>(nullptr), &noText}) {
      char** parts[] = {&present, &present, &present, &present};
      parts[missing] = absent;
      slot = 7;
      EXPECT_EQ(run([&] { return FtmThroughPutTest(parts[0], parts[1], parts[2], parts[3], &slot); }),
                (Outcome{0, "", {}}));
      EXPECT_EQ(slot, 7);
    }
}

// DSL pair.

TEST_F(Parsers, AutoPairDrivesThePairsPoint) {
  EXPECT_EQ(autoPair("<AUTO_MODE>OUTER</AUTO_MODE>"), (Outcome{0, "", pointWritten(41, 1)}));
  EXPECT_EQ(autoPair("<AUTO_MODE>INNER</AUTO_MODE>"), (Outcome{0, "", pointWritten(41, 0)}));
  EXPECT_EQ(unFtmState.usWd, autoPairTestMask);
  EXPECT_EQ(slot, 0);
}

TEST_F(Parsers, AutoPairAutoIsRefusedAndSetsTheSlot) {
  EXPECT_EQ(autoPair("<AUTO_MODE>AUTO</AUTO_MODE>"), (Outcome{-1, "Test not supported", {}}));
  EXPECT_EQ(slot, -1);
  EXPECT_EQ(unFtmState.usWd, 0);
}

TEST_F(Parsers, AutoPairOtherTextsAreRefusedAndLeaveTheSlot) {
  for (const char* text : {"inner", "", "BOTH"})
    EXPECT_EQ(autoPair(std::string("<AUTO_MODE>") + text + "</AUTO_MODE>"), (Outcome{-1, "Test not supported", {}}));
  EXPECT_EQ(slot, 0);
  EXPECT_EQ(unFtmState.usWd, 0);
}

TEST_F(Parsers, AutoPairWithoutChildrenSetsNoFlag) {
  EXPECT_EQ(autoPair(""), (Outcome{0, "", {}}));
  EXPECT_EQ(unFtmState.usWd, 0);
}

TEST_F(Parsers, AutoPairIgnoresOtherChildrenAndStillSetsTheFlag) {
  EXPECT_EQ(autoPair("<PAIR>INNER</PAIR>"), (Outcome{0, "", {}}));
  EXPECT_EQ(unFtmState.usWd, autoPairTestMask);
}

TEST_F(Parsers, AutoPairIgnoresTheDriversAnswer) {
  unit().setFault(noGpio, true);
  EXPECT_EQ(autoPair("<AUTO_MODE>OUTER</AUTO_MODE>"), (Outcome{0, "", {errorLine("Cannot open gpio driver")}}));
  EXPECT_EQ(unFtmState.usWd, autoPairTestMask);
}

TEST_F(Parsers, AutoPairModesBeforeARefusedOneKeepTheirEffect) {
  EXPECT_EQ(autoPair("<AUTO_MODE>OUTER</AUTO_MODE><AUTO_MODE>AUTO</AUTO_MODE>"),
            (Outcome{-1, "Test not supported", pointWritten(41, 1)}));
  EXPECT_EQ(unFtmState.usWd, 0);
}

// Ethernet port.

TEST_F(Parsers, EtherPortSpeedIsReadOnlyAndClearsTheSlot) {
  for (const char* text : {"AUTO", "10", "100", "1000"}) {
    slot = -1;
    EXPECT_EQ(parseWith(FTM_ParseTagEtherPort,
                        std::string("<ETHER_PORT><ETHER_PORT_SPD>") + text + "</ETHER_PORT_SPD></ETHER_PORT>"),
              (Outcome{-1, "Write test config failed", {}}));
    EXPECT_EQ(slot, 0);
  }
}

TEST_F(Parsers, EtherPortWithoutASpeedSucceedsAndLeavesTheSlot) {
  slot = -1;
  EXPECT_EQ(parseWith(FTM_ParseTagEtherPort, "<ETHER_PORT><DUPLEX>FULL</DUPLEX></ETHER_PORT>"), (Outcome{0, "", {}}));
  EXPECT_EQ(parseWith(FTM_ParseTagEtherPort, "<ETHER_PORT/>"), (Outcome{0, "", {}}));
  EXPECT_EQ(slot, -1);
}

// Sections that no document may hold.

TEST_F(Parsers, MultiHybridStoresItsModes) {
  for (const char* mode : {"AUTO", "HYBRID_1", "HYBRID_2", "HYBRID_3", "HYBRID_4"}) {
    unFtmState.usWd = 0;
    const Outcome outcome = parseWith(FTM_ParseTagMultiHybrid, std::string("<MULTI_HYBRID><MULTI_MODE>") + mode +
                                                                   "</MULTI_MODE></MULTI_HYBRID>");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.message, "");
    EXPECT_EQ(unit().cell("XcvrTable", 0, "MultiHybrid"), mode);
    EXPECT_EQ(unFtmState.usWd, multiHybridTestMask);
  }
}

TEST_F(Parsers, MultiHybridRefusesOtherModes) {
  for (const char* mode : {"HYBRID_5", "auto", ""})
    EXPECT_EQ(parseWith(FTM_ParseTagMultiHybrid,
                        std::string("<MULTI_HYBRID><MULTI_MODE>") + mode + "</MULTI_MODE></MULTI_HYBRID>"),
              (Outcome{-1, "Test not supported", {}}));
  EXPECT_EQ(unFtmState.usWd, 0);
}

TEST_F(Parsers, MultiHybridWithoutChildrenSetsNoFlag) {
  EXPECT_EQ(parseWith(FTM_ParseTagMultiHybrid, "<MULTI_HYBRID/>"), (Outcome{0, "", {}}));
  EXPECT_EQ(unFtmState.usWd, 0);
}

TEST_F(Parsers, SectionsThatLostTheirChildrenSetNoFlag) {
  const auto emptied = [this](SlotParser parser) {
    return [this, parser](ST_XML_ELEMENT* section) {
      RemoveElements(section, "AUTO_MODE");
      return parser(section, &slot);
    };
  };
  const char* const section = "<SECTION><AUTO_MODE>OUTER</AUTO_MODE></SECTION>";
  EXPECT_EQ(parse(section, emptied(FTM_ParseTagAutoPair)), (Outcome{0, "", {}}));
  EXPECT_EQ(parse(section, emptied(FTM_ParseTagMultiHybrid)), (Outcome{0, "", {}}));
  EXPECT_EQ(unFtmState.usWd, 0);
}

TEST_F(Parsers, TransceiverSettingsPassOverOtherChildren) {
  unit().setCell("XcvrTable", 0, "Psd", "AUTO");
  EXPECT_EQ(parseWith(FTM_ParseTagPsdSetting, "<PSD_SETTING><MULTI_MODE>ON</MULTI_MODE></PSD_SETTING>"),
            (Outcome{0, "", {}}));
  EXPECT_EQ(unit().cell("XcvrTable", 0, "Psd"), "AUTO");
}

TEST_F(Parsers, PsdSettingStoresItsModes) {
  for (const char* mode : {"AUTO", "ON", "OFF"}) {
    EXPECT_EQ(
        parseWith(FTM_ParseTagPsdSetting, std::string("<PSD_SETTING><PSD_MODE>") + mode + "</PSD_MODE></PSD_SETTING>")
            .result,
        0);
    EXPECT_EQ(unit().cell("XcvrTable", 0, "Psd"), mode);
  }
  EXPECT_EQ(unFtmState.usWd, 0);
}

TEST_F(Parsers, PsdSettingRefusesOtherModes) {
  for (const char* mode : {"HYBRID_1", "on", ""})
    EXPECT_EQ(
        parseWith(FTM_ParseTagPsdSetting, std::string("<PSD_SETTING><PSD_MODE>") + mode + "</PSD_MODE></PSD_SETTING>"),
        (Outcome{-1, "Test not supported", {}}));
}

TEST_F(Parsers, TransceiverSettingsThatCannotBeStoredAreFailedWrites) {
  unit().setFault(noSession, true);
  const Outcome hybrid =
      parseWith(FTM_ParseTagMultiHybrid, "<MULTI_HYBRID><MULTI_MODE>AUTO</MULTI_MODE></MULTI_HYBRID>");
  EXPECT_EQ(hybrid.result, -1);
  EXPECT_EQ(hybrid.message, "Write data failed");
  EXPECT_EQ(unFtmState.usWd, 0);
  const Outcome psd = parseWith(FTM_ParseTagPsdSetting, "<PSD_SETTING><PSD_MODE>ON</PSD_MODE></PSD_SETTING>");
  EXPECT_EQ(psd.result, -1);
  EXPECT_EQ(psd.message, "Write data failed");
}

TEST_F(Parsers, ResetSwitchStatusIsReadOnly) {
  EXPECT_EQ(parse("<RESET_SWITCH><RESET_SW_STATUS>OPEN</RESET_SW_STATUS></RESET_SWITCH>", FTM_ParseTagRSTSW),
            (Outcome{-1, "Write test config failed", {}}));
  EXPECT_EQ(unFtmState.usWd, 0);
}

TEST_F(Parsers, ResetSwitchWithoutItsStatusSetsTheFlag) {
  EXPECT_EQ(parse("<RESET_SWITCH><OTHER/></RESET_SWITCH>", FTM_ParseTagRSTSW), (Outcome{0, "", {}}));
  EXPECT_EQ(unFtmState.usWd, resetSwitchTestMask);
}

} // namespace
