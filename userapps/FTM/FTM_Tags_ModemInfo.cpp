// The modem information file: who the unit is, and the production data that the line writes.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <span>

#include "platform/board.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Store.h"
#include "userapps/FTM/FTM_Tags.h"
#include "userapps/FTM/FTM_Text.h"

char caE_164Strng[80];

namespace {

// The parser needs no quotes around the declaration's values; what a station reads has them.
constexpr char modemInfoTemplate[] = "<?xml version=1.0 encoding=UTF-8?><MODEM_INFO>"
                                     "<MODEL_NUM> M77-210010-04 </MODEL_NUM>"
                                     "<SERIAL_NUM> 1234 </SERIAL_NUM>"
                                     "<MAC_ADDR> 02:1a:2b:00:00:01 </MAC_ADDR>"
                                     "<PROD_DATE> 01252002 </PROD_DATE>"
                                     "<PROD_REV> A </PROD_REV>"
                                     "<SOFTWARE_VER> VER:01.05.06 </SOFTWARE_VER>"
                                     "<SOFTWARE_DESC> Quorvane Dual Connect </SOFTWARE_DESC>"
                                     "<INI_FILENAME> Unknown Ini </INI_FILENAME>"
                                     "<INI_VERSION> Unknown Ini Version </INI_VERSION>"
                                     "<XCVR_VER> None </XCVR_VER>"
                                     "<XCVR_DESC> None </XCVR_DESC>"
                                     "<SOFTWARE_LOAD> Unknown </SOFTWARE_LOAD>"
                                     "<RELEASE_BUILD_VER> Unknown </RELEASE_BUILD_VER>"
                                     "<FTM_SOFTWARE_VER> N/A </FTM_SOFTWARE_VER>"
                                     "<E_164> 0000 </E_164>"
                                     "<BOOT_DELAY> 5 </BOOT_DELAY>"
                                     "<SEC> N/A </SEC>"
                                     "</MODEM_INFO>";
static_assert(sizeof modemInfoTemplate == 664);

constexpr const char* productionTable = "ProductionData";
constexpr int dataRow = 0;

// Files from which the device would restore the configuration that it had before a write.
constexpr const char* savedConfigurations[] = {"/NVRM/current.cfg", "/NVRM/current.bak"};

int fail(const char* message, int result) {
  FTM_FlgErrorTFTP(0, message, 0);
  return result;
}

// Reading.

void showBootDelay(ST_XML_ELEMENT* element) {
  char delay[bootModeTextSize];
  FTM_GetBootMode(delay);
  SetTextBody(element, delay);
}

void showSoftwareVersion(ST_XML_ELEMENT* element) {
  SetTextBody(element, FTM_GetSoftwareVersion());
}

// An element and what it shows: a cell of one of the pass's tables, or what `show` finds out.
struct ShownField {
  const char* tag;
  std::size_t table;
  int column;
  void (*show)(ST_XML_ELEMENT*) = nullptr;
};

constexpr ShownField productionFields[] = {
    {"MODEL_NUM", 0, 0},
    {"SERIAL_NUM", 0, 1},
    {"MAC_ADDR", 0, 2},
    {"PROD_DATE", 0, 3},
    {"PROD_REV", 0, 4},
    {"E_164", 0, 5},
    {"BOOT_DELAY", 0, 0, showBootDelay},
};
constexpr ShownField softwareFields[] = {
    {"SOFTWARE_VER", 0, 2},
    {"SOFTWARE_DESC", 1, 0},
    {"RELEASE_BUILD_VER", 0, 4},
    {"FTM_SOFTWARE_VER", 0, 0, showSoftwareVersion},
};
constexpr ShownField productFields[] = {{"INI_FILENAME", 0, 0}, {"INI_VERSION", 0, 1}, {"SOFTWARE_LOAD", 0, 2}};
constexpr ShownField transceiverFields[] = {{"XCVR_VER", 0, 35}, {"XCVR_DESC", 0, 34}};

// One walk over the children of the document. It ends after `most` children that it knows, repeated ones included.
struct Pass {
  const char* table;
  const char* secondTable; // null: there is only one
  std::span<const ShownField> fields;
  int most;
};

constexpr Pass passes[] = {
    {productionTable, nullptr, productionFields, 7},
    {"AppSwInfo", "ProductType", softwareFields, 4},
    {"ProductInfo", nullptr, productFields, 4},
    {"Xcvr", nullptr, transceiverFields, 3},
};

using Tables = std::span<const TableSnapshot* const>;

// A cell that the table lacks leaves the text as it was.
void showField(ST_XML_ELEMENT* element, const ShownField& field, Tables tables) {
  if (field.show != nullptr)
    field.show(element);
  else if (const char* cell = tables[field.table]->cell(dataRow, field.column); cell != nullptr)
    SetTextBody(element, cell);
}

void fillChildren(const ST_XML_ELEMENT* info, const Pass& pass, Tables tables) {
  int shown = 0;
  ST_XML_ELEMENT** child = GetElements(info);
  for (; child != nullptr && *child != nullptr && shown < pass.most; ++child) {
    const auto isChild = [&](const ShownField& field) { return std::strcmp(field.tag, GetTag(*child)) == 0; };
    const auto field = std::find_if(pass.fields.begin(), pass.fields.end(), isChild);
    if (field == pass.fields.end())
      continue;
    showField(*child, *field, tables);
    ++shown;
  }
}

// Returns 0, or -1 with nothing filled when a table could not be read.
int fillPass(void* session, const ST_XML_ELEMENT* info, const Pass& pass) {
  const TableSnapshot first(session, pass.table);
  const bool isFirstUsable = isUsable(first, pass.table);
  if (pass.secondTable == nullptr) {
    if (!isFirstUsable)
      return -1;
    fillChildren(info, pass, std::array{&first});
    return 0;
  }
  const TableSnapshot second(session, pass.secondTable); // without the first too: each that is missing is reported
  if (!isUsable(second, pass.secondTable) || !isFirstUsable)
    return -1;
  fillChildren(info, pass, std::array{&first, &second});
  return 0;
}

// Writing.

struct WrittenField {
  const char* tag;
  const char* column;
};

constexpr WrittenField writtenFields[] = {
    {"MODEL_NUM", "ModelNum"}, {"SERIAL_NUM", "SerialNum"}, {"MAC_ADDR", "MacAddr"},
    {"PROD_DATE", "Date"},     {"PROD_REV", "Revision"},    {"E_164", "E164"},
};

int writeChild(void* session, const ST_XML_ELEMENT* child) {
  const char* tag = GetTag(child);
  const char* text = GetTextBody(child);
  if (std::strcmp(tag, "BOOT_DELAY") == 0)
    return FTM_PutBootMode(text);
  if (std::strcmp(tag, "E_164") == 0)
    copyText(caE_164Strng, text, std::strlen(text));
  for (const WrittenField& field : writtenFields)
    if (std::strcmp(tag, field.tag) == 0)
      return ftm_CMwrite_var(session, productionTable, field.column, dataRow, text);
  return 0;
}

// Up to the first child that fails.
int writeChildren(void* session, ST_XML_ELEMENT* const* children) {
  int result = 0;
  for (; result == 0 && *children != nullptr; ++children)
    result = writeChild(session, *children);
  return result;
}

// All of the children in one transaction, or none.
int writeProductionData(void* session, ST_XML_ELEMENT* const* children) {
  if (const int result = cfg_startTransaction(session); result != CFG_ERR_OK)
    return result;
  if (const int result = writeChildren(session, children); result != 0) {
    cfg_abortTransaction(session);
    return result;
  }
  return cfg_commitTransaction(session);
}

} // namespace

int TFTP_processGetModemInfo(char** ppOutFile, unsigned long* pOutFileSize) {
  char text[sizeof modemInfoTemplate]; // the parser cuts its text in place
  std::memcpy(text, modemInfoTemplate, sizeof text);
  const XmlTree document(create_xml_object(text));
  if (GetElements(document.get()) == nullptr)
    return fail(szCrtXobjFail, -1);
  if (ST_XML_ELEMENT* info = GetElement(document.get(), "MODEM_INFO"); info != nullptr)
    XMLS_GetModemInfoCM(info); // what could not be read keeps its default, and the file is still served
  return TFTP_createXmlFile(ppOutFile, pOutFileSize, document.get());
}

int XMLS_GetModemInfoCM(ST_XML_ELEMENT* pXmlInfo) {
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  if (!isUsable(session))
    return -1;
  int result = 0;
  for (const Pass& pass : passes)
    if (fillPass(session.get(), pXmlInfo, pass) != 0)
      result = -1;
  return result;
}

int TFTP_processPutModemInfo(char* pszXmlData) {
  const XmlTree document(create_xml_object(pszXmlData));
  if (GetElements(document.get()) == nullptr)
    return fail(szCrtXobjFail, -1);
  int result = 0;
  const ST_XML_ELEMENT* info = GetElement(document.get(), "MODEM_INFO");
  if (info != nullptr && GetElements(info) != nullptr) {
    const StoreSession session(CFG_ROLE_FACTORY, "FTM write");
    if (!session.isOpen())
      return -1;
    result = writeProductionData(session.get(), GetElements(info));
    if (result != 0)
      FTM_FlgErrorTFTP(0, szWrFail, 0);
  }
  for (const char* path : savedConfigurations)
    board_unlink(path);
  return result;
}

int mac_addrSep(char* macAddr, const char* ansiiHex) {
  constexpr std::size_t textLength = 17;
  constexpr std::size_t groupLength = 3; // two digits and a separator
  char bytes[6];
  if (std::strlen(ansiiHex) != textLength)
    return -1;
  for (char& byte : bytes) {
    const char digits[] = {ansiiHex[0], ansiiHex[1], '\0'};
    if (std::strspn(digits, "0123456789abcdefABCDEF") != 2)
      return -1;
    byte = static_cast<char>(std::strtoul(digits, nullptr, 16));
    ansiiHex += groupLength;
  }
  std::memcpy(macAddr, bytes, sizeof bytes);
  return 0;
}
