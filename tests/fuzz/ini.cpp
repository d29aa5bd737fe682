// An INI text: taken as a whole, or refused with nothing changed.
#include "simulator/database.h"
#include "tests/fuzz/fresh_unit.h"
#include "tests/fuzz/fuzz.h"
#include "userapps/FTM/FTM_App.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::FreshUnit fresh;
  const auto before = fuzz::FreshUnit::unit().database().version();
  const std::string refusal = fuzz::writeFile("unit.ini", {reinterpret_cast<const char*>(data), size});
  const bool isUnchanged = fuzz::FreshUnit::unit().database().version() == before;
  fuzz::require(refusal.empty() || isUnchanged, "a refused text changes nothing");
  fuzz::require(DwLoadStatus() == 0 && IsFileFromFtm() == 0, "no file is on its way any more");
  fuzz::require(!fuzz::readFile(szFTM_ModemInfo).empty(), "the unit still tells who it is");
  return 0;
}
