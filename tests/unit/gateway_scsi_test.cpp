#include "simulator/drivers/scsi.h"

#include <fcntl.h>

#include <cstdio>
#include <memory>

#include "platform/board.h"
#include "tests/unit/bench_unit.h"
#include "tests/unit/device_lines.h"
#include "userapps/FTM/FTM_Handles.h"

using gateway::UsbDevice;

namespace {

class ScsiListing : public BenchUnit {
protected:
  /// What the kernel's file holds, or "no file".
  static std::string listing() {
    const TextStream stream(board_fopen("/proc/scsi/scsi", "r"));
    if (stream == nullptr)
      return "no file";
    std::string text;
    for (int character = std::fgetc(stream.get()); character != EOF; character = std::fgetc(stream.get()))
      text += static_cast<char>(character);
    return text;
  }
};

const UsbDevice stick = {"Kestrel", "Pocket Drive 512", "1.04"};

TEST_F(ScsiListing, WithoutADeviceThereIsOnlyTheHeader) {
  EXPECT_EQ(listing(), "Attached devices:\n");
}

TEST_F(ScsiListing, DeviceIsListedWithItsTextsPadded) {
  gateway::plugUsb(unit(), {"ACME", "Stick", "2", "CD-ROM", 5});
  EXPECT_EQ(listing(), "Attached devices:\n"
                       "Host: scsi0 Channel: 00 Id: 00 Lun: 00\n"
                       "  Vendor: ACME     Model: Stick            Rev: 2   \n"
                       "  Type:   CD-ROM                           ANSI SCSI revision: 05\n");
}

TEST_F(ScsiListing, DevicesAreListedInTheOrderOfPluggingIn) {
  gateway::plugUsb(unit(), stick);
  gateway::plugUsb(unit(), {"ACME", "Stick", "2"});
  EXPECT_EQ(listing(), "Attached devices:\n"
                       "Host: scsi0 Channel: 00 Id: 00 Lun: 00\n"
                       "  Vendor: Kestrel  Model: Pocket Drive 512 Rev: 1.04\n"
                       "  Type:   Direct-Access                    ANSI SCSI revision: 02\n"
                       "Host: scsi1 Channel: 00 Id: 00 Lun: 00\n"
                       "  Vendor: ACME     Model: Stick            Rev: 2   \n"
                       "  Type:   Direct-Access                    ANSI SCSI revision: 02\n");
}

TEST_F(ScsiListing, TextsAreCutAtTheirFieldsAndUnprintableCharactersAreBlanks) {
  gateway::plugUsb(unit(), {"123456789", "12345678901234567", "12345", "123456789012345678", 0x1ff});
  gateway::plugUsb(unit(), {"a\tb", "c\nd", "e\x1f"});
  EXPECT_EQ(listing(), "Attached devices:\n"
                       "Host: scsi0 Channel: 00 Id: 00 Lun: 00\n"
                       "  Vendor: 12345678 Model: 1234567890123456 Rev: 1234\n"
                       "  Type:   12345678901234567                ANSI SCSI revision: 1ff\n"
                       "Host: scsi1 Channel: 00 Id: 00 Lun: 00\n"
                       "  Vendor: a b      Model: c d              Rev: e   \n"
                       "  Type:   Direct-Access                    ANSI SCSI revision: 02\n");
}

TEST_F(ScsiListing, UnpluggingTakesAllDevicesAway) {
  gateway::plugUsb(unit(), stick);
  gateway::plugUsb(unit(), stick);
  gateway::unplugUsb(unit());
  EXPECT_EQ(listing(), "Attached devices:\n");
  EXPECT_TRUE(gateway::usbDevices(unit()).empty());
}

TEST_F(ScsiListing, ADevicePluggedInAfterUnpluggingIsTheFirstHostAgain) {
  gateway::plugUsb(unit(), stick);
  gateway::unplugUsb(unit());
  gateway::plugUsb(unit(), stick);
  EXPECT_NE(listing().find("Host: scsi0 "), std::string::npos);
}

TEST_F(ScsiListing, DevicesAreReportedAsTheyWerePluggedIn) {
  const UsbDevice other = {"ACME\n", "A model with a name that is too long", "10.20", "Optical Device", 4};
  gateway::plugUsb(unit(), stick);
  gateway::plugUsb(unit(), other);
  EXPECT_EQ(gateway::usbDevices(unit()), (std::vector{stick, other}));
}

TEST_F(ScsiListing, WithoutUsbStorageSupportThereIsNoListing) {
  gateway::plugUsb(unit(), stick);
  unit().setFault(noUsbStorage, true);
  EXPECT_EQ(listing(), "no file");
}

} // namespace
