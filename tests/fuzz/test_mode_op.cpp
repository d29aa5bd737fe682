// Two written test-mode operation files, one behind a NUL of the other: the tests that are active then are the ones
// that the file shows, and can all be left.
#include <utility>

#include "tests/fuzz/fresh_unit.h"
#include "tests/fuzz/fuzz.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_App.h"

namespace {

constexpr std::pair<std::uint16_t, const char*> activeTests[] = {
    {ledTestMask, "<LED>"},
    {resetSwitchTestMask, "<RESET_SWITCH>"},
    {throughputTestMask, "<THROUGH_PUT>"},
    {autoPairTestMask, "<AUTO_PAIR>"},
    {wirelessTestMask, "<BCOM_WIRELESS>"},
    {voiceTestMask, "<VOIP>"},
};

void requireListed() {
  const std::string text = fuzz::readFile(szFTM_TestModeOp);
  fuzz::require(!text.empty(), "the file can be read");
  const std::size_t list = text.find("<ACTIVE_TEST>");
  fuzz::require(list != std::string::npos, "the file lists the active tests");
  for (const auto& [mask, tag] : activeTests)
    fuzz::require(((unFtmState.usWd & mask) != 0) == (text.find(tag, list) != std::string::npos), tag);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::FreshUnit fresh;
  fuzz::Input input(data, size);
  fuzz::writeFile(szFTM_TestModeOp, input.upTo('\0'));
  requireListed();
  fuzz::writeFile(szFTM_TestModeOp, input.rest());
  requireListed();
  fuzz::require(fuzz::writeFile(szFTM_TestModeOp, "<EXIT_TEST/>").empty(), "every test can be left");
  fuzz::require(unFtmState.usWd == 0, "no test is active then");
  return 0;
}
