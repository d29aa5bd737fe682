// A written modem information file: its production data are in the store as they stood, or nothing of them is. The
// first byte says which of the cells the store refuses, if that many are written.
#include <map>

#include "platform/cfg_api.h"
#include "tests/fuzz/fresh_unit.h"
#include "tests/fuzz/fuzz.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/xml_parser.h"

namespace {

struct Field {
  const char* tag;
  const char* column;
};
constexpr Field fields[] = {
    {"MODEL_NUM", "ModelNum"}, {"SERIAL_NUM", "SerialNum"}, {"MAC_ADDR", "MacAddr"},
    {"PROD_DATE", "Date"},     {"PROD_REV", "Revision"},    {"E_164", "E164"},
};

using Cells = std::map<std::string_view, std::string>; // by column

Cells storedCells() {
  Cells cells;
  for (const Field& field : fields)
    cells[field.column] = fuzz::FreshUnit::unit().cell("ProductionData", 0, field.column).value_or("");
  return cells;
}

/// What the store holds once the document has been taken: of a repeated element the last.
Cells cellsAfter(std::string_view text, Cells cells) {
  fuzz::WritableText copy(text);
  const XmlTree document(create_xml_object(copy.get()));
  const ST_XML_ELEMENT* const info = GetElement(document.get(), "MODEM_INFO");
  for (ST_XML_ELEMENT** child = info == nullptr ? nullptr : info->m_elements; child != nullptr && *child != nullptr;
       ++child)
    for (const Field& field : fields)
      if (std::strcmp((*child)->m_tag, field.tag) == 0)
        cells[field.column] = GetTextBody(*child);
  return cells;
}

std::uint8_t acceptedCells;

} // namespace

int real_setField(void* session, const char* table, int row, int column, const char* value) asm("__real_cfg_setField");
int wrap_setField(void* session, const char* table, int row, int column, const char* value) asm("__wrap_cfg_setField");

int wrap_setField(void* session, const char* table, int row, int column, const char* value) {
  if (acceptedCells == 0)
    return CFG_ERR_OTHER;
  --acceptedCells;
  return real_setField(session, table, row, column, value);
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::FreshUnit fresh;
  fuzz::Input input(data, size);
  acceptedCells = input.byte();
  const std::string_view text = input.rest();
  const Cells before = storedCells();
  const bool isTaken = fuzz::writeFile(szFTM_ModemInfo, text).empty();
  fuzz::require(storedCells() == (isTaken ? cellsAfter(text, before) : before), "all production data, or none");
  fuzz::require(!fuzz::readFile(szFTM_ModemInfo).empty(), "the file can be read");
  return 0;
}
