// A kernel's listing of its SCSI devices.
#include <string>

#include "platform/board.h"
#include "tests/fuzz/fresh_unit.h"
#include "tests/fuzz/fuzz.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_Tags.h"

namespace {

std::string listing;

} // namespace

std::FILE* wrap_fopen(const char* path, const char* mode) asm("__wrap_board_fopen");

std::FILE* wrap_fopen(const char*, const char*) {
  return listing.empty() ? nullptr : fmemopen(listing.data(), listing.size(), "r");
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::FreshUnit fresh;
  listing.assign(reinterpret_cast<const char*>(data), size);
  fuzz::require((FtmUpdateUSB() == 0) == !listing.empty(), "a listing that can be opened is shown");
  unsigned long length = 0;
  char* text = nullptr;
  fuzz::require(TFTP_createXmlFile(&text, &length, TestModeCfgTree()) == 0, "what is shown can be read");
  fuzz::require(std::strlen(text) + 1 == length, "the text is all of the file");
  std::free(text);
  return 0;
}
