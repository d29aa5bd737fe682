// Two written test configuration files, one behind a NUL of the other, and what the wireless task does of them: the
// file can be read in between and after.
#include "tests/fuzz/fresh_unit.h"
#include "tests/fuzz/fuzz.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/WrLsTask.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::FreshUnit fresh;
  fuzz::Input input(data, size);
  const std::string_view first = input.upTo('\0');
  for (const std::string_view text : {first, input.rest()}) {
    fuzz::writeFile(szFTM_TestModeCfg, text);
    WrLsTaskRound();
    fuzz::require(!fuzz::readFile(szFTM_TestModeCfg).empty(), "the file can be read");
  }
  fuzz::require(iFtmWrLsCmd == eWRLS_IDLE, "no request to the radio is left");
  return 0;
}
