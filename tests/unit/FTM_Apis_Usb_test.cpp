// The USB section. Its listing is the simulated kernel's, or a text of the test's own for what no kernel writes.
#include <gmock/gmock.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "platform/board.h"
#include "simulator/drivers/scsi.h"
#include "tests/unit/config_file.h"
#include "tests/unit/device_lines.h"

using testing::Each;
using testing::ElementsAre;

namespace {

std::string ownListing; ///< empty: the simulated kernel's
std::FILE* lastOpened;  ///< the last listing opened, until it is closed

std::FILE* openText(const std::string& text) {
  std::FILE* stream = std::tmpfile();
  std::fwrite(text.data(), 1, text.size(), stream);
  std::rewind(stream);
  return stream;
}

} // namespace

// The linker puts these in front of the functions.
extern "C" std::FILE* __real_board_fopen(const char* path, const char* mode);
extern "C" std::FILE* __wrap_board_fopen(const char* path, const char* mode);
extern "C" std::FILE* __wrap_board_fopen(const char* path, const char* mode) {
  if (ownListing.empty() || std::strcmp(path, "/proc/scsi/scsi") != 0)
    lastOpened = __real_board_fopen(path, mode);
  else
    lastOpened = openText(ownListing);
  return lastOpened;
}

extern "C" int __real_fclose(std::FILE* stream);
extern "C" int __wrap_fclose(std::FILE* stream);
extern "C" int __wrap_fclose(std::FILE* stream) {
  if (stream == lastOpened)
    lastOpened = nullptr;
  return __real_fclose(stream);
}

namespace {

const std::string header = "Attached devices:\n";
const std::string address = "Host: scsi0 Channel: 00 Id: 00 Lun: 00\n";
const std::string product = "  Vendor: Kestrel  Model: Pocket Drive 512 Rev: 1.04\n";
const std::string type = "  Type:   Direct-Access                    ANSI SCSI revision: 02\n";

class Usb : public ConfigFile {
protected:
  Usb() { ownListing.clear(); }
  ~Usb() override { ownListing.clear(); }

  static std::vector<std::string> texts(const std::vector<const char*>& tags) {
    std::vector<std::string> result;
    for (const char* tag : tags)
      result.push_back(inTree(std::string("USB/") + tag));
    return result;
  }
  static std::vector<std::string> addressTexts() { return texts({"HOST", "CHANNEL", "ID", "LUN"}); }
  static std::vector<std::string> productTexts() { return texts({"VENDOR", "MODEL", "REV"}); }
  static std::vector<std::string> typeTexts() { return texts({"TYPE", "ANSI_SCSI_REV"}); }
  static std::vector<std::string> allTexts() {
    return texts({"HOST", "CHANNEL", "ID", "LUN", "VENDOR", "MODEL", "REV", "TYPE", "ANSI_SCSI_REV"});
  }

  static void update(const std::string& listing) {
    ownListing = listing;
    EXPECT_EQ(FtmUpdateUSB(), 0);
    EXPECT_EQ(lastOpened, nullptr); // closed
  }
};

TEST_F(Usb, DeviceIsShownWithTheKernelsBlanks) {
  gateway::plugUsb(unit(), {"Kestrel", "Pocket Drive", "1.04"});
  EXPECT_EQ(FtmUpdateUSB(), 0);
  EXPECT_THAT(addressTexts(), ElementsAre("scsi0 ", "00 ", "00 ", "00"));
  EXPECT_THAT(productTexts(), ElementsAre("Kestrel  ", "Pocket Drive     ", "1.04"));
  EXPECT_THAT(typeTexts(), ElementsAre("  Direct-Access                    ", "02"));
}

TEST_F(Usb, OnlyTheFirstDeviceIsShown) {
  gateway::plugUsb(unit(), {"First", "Stick", "1"});
  gateway::plugUsb(unit(), {"Second", "Disk", "2"});
  EXPECT_EQ(FtmUpdateUSB(), 0);
  EXPECT_EQ(inTree("USB/VENDOR"), "First    ");
  EXPECT_EQ(inTree("USB/HOST"), "scsi0 ");
}

TEST_F(Usb, WithoutADeviceEveryElementIsNA) {
  gateway::plugUsb(unit(), {"First", "Stick", "1"});
  FtmUpdateUSB();
  gateway::unplugUsb(unit());
  EXPECT_EQ(FtmUpdateUSB(), 0);
  EXPECT_THAT(allTexts(), Each("NA"));
}

TEST_F(Usb, WithoutAListingTheConsoleSaysSoAndNothingChanges) {
  gateway::plugUsb(unit(), {"First", "Stick", "1"});
  FtmUpdateUSB();
  const std::vector<std::string> before = allTexts();
  unit().setFault(noUsbStorage, true);
  testing::internal::CaptureStdout();
  EXPECT_EQ(run(FtmUpdateUSB), (Outcome{-1, "", {}}));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "failed to open /proc/scsi/scsi\n");
  EXPECT_EQ(allTexts(), before);
}

TEST_F(Usb, WithoutAListingTheTreeIsNotCreated) {
  unit().setFault(noUsbStorage, true);
  EXPECT_EQ(FtmUpdateUSB(), -1);
  EXPECT_EQ(pstTestModeCfgElmt, nullptr);
}

TEST_F(Usb, ReadOfTheFileShowsTheDevice) {
  gateway::plugUsb(unit(), {"Kestrel", "Pocket Drive", "1.04"});
  EXPECT_EQ(readBack("USB/MODEL"), "Pocket Drive");
  gateway::unplugUsb(unit());
  EXPECT_EQ(readBack("USB/MODEL"), "NA");
}

// Listings that are not as they should be.

TEST_F(Usb, AnEmptyFileShowsNoDevice) {
  gateway::plugUsb(unit(), {"First", "Stick", "1"});
  FtmUpdateUSB();
  update("\n");
  EXPECT_THAT(allTexts(), Each("NA"));
}

TEST_F(Usb, TheHeaderIsNotLookedAt) {
  update(address + address + product + type);
  EXPECT_THAT(productTexts(), ElementsAre("Kestrel  ", "Pocket Drive 512 ", "1.04"));
}

TEST_F(Usb, AMissingLabelAfterTheFirstRunsTheValueBeforeItToTheEndOfTheLine) {
  update(header + address + product + "  Type:   Direct-Access    CCS\n");
  EXPECT_THAT(typeTexts(), ElementsAre("  Direct-Access    CCS", ""));
  EXPECT_THAT(productTexts(), ElementsAre("Kestrel  ", "Pocket Drive 512 ", "1.04"));
}

TEST_F(Usb, ElementsBehindAMissingLabelAreNA) {
  update(header + "Host: scsi0 Chan: 00 Id: 00 Lun: 00\n" + product + type);
  EXPECT_THAT(addressTexts(), ElementsAre("scsi0 Chan: 00 Id: 00 Lun: 00", "", "NA", "NA"));
  update(header + "Host: scsi0 Channel: 00 Id: 00\n" + product + type);
  EXPECT_THAT(addressTexts(), ElementsAre("scsi0 ", "00 ", "00", ""));
}

TEST_F(Usb, AMissingFirstLabelGivesItsElementNoTextAndTheOthersNA) {
  update(header + "Bus: 1 Channel: 00 Id: 00 Lun: 00\n" + "Model: Pocket Rev: 1.04\n" + "ANSI SCSI revision: 02\n");
  EXPECT_THAT(addressTexts(), ElementsAre("", "NA", "NA", "NA"));
  EXPECT_THAT(productTexts(), ElementsAre("", "NA", "NA"));
  EXPECT_THAT(typeTexts(), ElementsAre("", "NA"));
}

TEST_F(Usb, LinesThatTheListingLacksHaveNoFirstLabel) {
  update(header + address);
  EXPECT_THAT(addressTexts(), ElementsAre("scsi0 ", "00 ", "00 ", "00"));
  EXPECT_THAT(productTexts(), ElementsAre("", "NA", "NA"));
  EXPECT_THAT(typeTexts(), ElementsAre("", "NA"));
}

TEST_F(Usb, AnElementWithoutTextGetsItsTextWithTheNextDevice) {
  update(header + "\n\n\n");
  EXPECT_EQ(inTree("USB/VENDOR"), "");
  update(header + address + product + type);
  EXPECT_EQ(inTree("USB/VENDOR"), "Kestrel  ");
}

TEST_F(Usb, LabelsAreSearchedFromTheValueBeforeThemOn) {
  update(header + "Lun: 7 Id: 8 Host: scsi0 Channel: 01 Id: 02 Lun: 03\n" + product + type);
  EXPECT_THAT(addressTexts(), ElementsAre("scsi0 ", "01 ", "02 ", "03"));
}

TEST_F(Usb, OneCharacterBehindALabelIsSkippedWhateverItIs) {
  update(header + address + "Vendor:\tAModel:xBRev:\n" + "Type:ANSI SCSI revision: 02\n");
  EXPECT_THAT(productTexts(), ElementsAre("A", "B", ""));
  // The skipped character was the first of the next label.
  EXPECT_THAT(typeTexts(), ElementsAre("NSI SCSI revision: 02", ""));
}

TEST_F(Usb, ALineEndsAfter127CharactersAndTheRestIsTheNextLine) {
  const std::string line = "Host: scsi0 Channel: 00 Id: 00 Lun: ";
  update(header + line + std::string(127 - line.size(), '7') + "8" + product);
  EXPECT_EQ(inTree("USB/LUN"), std::string(127 - line.size(), '7'));
  EXPECT_THAT(productTexts(), ElementsAre("Kestrel  ", "Pocket Drive 512 ", "1.04"));
}

TEST_F(Usb, ALineOf127CharactersLeavesItsLineFeedToTheNextOne) {
  const std::string line = "Host: scsi0 Channel: 00 Id: 00 Lun: ";
  update(header + line + std::string(127 - line.size(), '7') + "\n" + product);
  EXPECT_THAT(productTexts(), ElementsAre("", "NA", "NA"));
}

TEST_F(Usb, AListingWithoutALastLineFeedIsReadWhole) {
  update(header + address + product + "  Type:   Direct-Access    ANSI SCSI revision: 02");
  EXPECT_THAT(typeTexts(), ElementsAre("  Direct-Access    ", "02"));
}

TEST_F(Usb, AnElementThatTheTreeLacksIsLeftOut) {
  RemoveElements(GetElmtPtr(TestModeCfgTree(), "TEST_CONFIG", "USB", nullptr), "MODEL");
  update(header + address + product + type);
  EXPECT_EQ(inTree("USB/MODEL"), "no element");
  EXPECT_EQ(inTree("USB/REV"), "1.04");
}

} // namespace
