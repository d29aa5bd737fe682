// The statistics, four-port and progress files.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Store.h"
#include "userapps/FTM/FTM_Tags.h"

ST_XML_ELEMENT* pstFTMStatElmt;
ST_XML_ELEMENT* pstFTMStats4pElmt;
ST_XML_ELEMENT* pstFTMProgElmt;

// The declaration's values stand without quotes, and "DSL_ACTIVITY_UPTREAM" is what the station looks for.
// clang-format off
constexpr char statisticsTemplate[] =
    "<?xml version=1.0 encoding=UTF-8?>"
    "<FTM_STATS>"
    "  <ETHERNET>"
    "     <ETH_DISCARD_IN> 0 </ETH_DISCARD_IN>"
    "     <ETH_DISCARD_OUT> 0 </ETH_DISCARD_OUT>"
    "     <ETH_IN> 0 </ETH_IN>"
    "     <ETH_OUT> 0  </ETH_OUT>"
    "  </ETHERNET>"
    "  <ATM>"
    "     <ATM_DISCARD_IN> 0 </ATM_DISCARD_IN>"
    "     <ATM_DISCARD_OUT> 0 </ATM_DISCARD_OUT>"
    "     <ATM_IN> 0 </ATM_IN>"
    "     <ATM_OUT> 0 </ATM_OUT>"
    "     <VC_CHAN_NUM> 1"
    "        <VC_VPI> 1 </VC_VPI>"
    "       <VC_VCI> 1 </VC_VCI>"
    "     </VC_CHAN_NUM>"
    "  </ATM>"
    "  <DSL>"
    "     <DSL_ACTIVITY_DOWNSTREAM> 1 </DSL_ACTIVITY_DOWNSTREAM>"
    "     <DSL_ACTIVITY_UPTREAM> 1 </DSL_ACTIVITY_UPTREAM>"
    "     <DSL_FEC_DOWNSTREAM> 1 </DSL_FEC_DOWNSTREAM>"
    "     <DSL_FEC_UPSTREAM> 1 </DSL_FEC_UPSTREAM>"
    "     <DSL_CRC_DOWNSTREAM> 1 </DSL_CRC_DOWNSTREAM>"
    "     <DSL_CRC_UPSTREAM> 1 </DSL_CRC_UPSTREAM>"
    "     <DSL_HEC_DOWNSTREAM> 1 </DSL_HEC_DOWNSTREAM>"
    "     <DSL_HEC_UPSTREAM> 1 </DSL_HEC_UPSTREAM>"
    "     <DSL_ATTEN_DOWNSTREAM> 1 </DSL_ATTEN_DOWNSTREAM>"
    "     <DSL_ATTEN_UPSTREAM> 1 </DSL_ATTEN_UPSTREAM>"
    "     <DSL_MARGIN_DOWNSTREAM> 1 </DSL_MARGIN_DOWNSTREAM>"
    "     <DSL_MARGIN_UPSTREAM> 1 </DSL_MARGIN_UPSTREAM>"
    "     <DSL_SPEED_DOWNSTREAM> 1 </DSL_SPEED_DOWNSTREAM>"
    "     <DSL_SPEED_UPSTREAM> 1 </DSL_SPEED_UPSTREAM>"
    "     <DSL_POWER_DOWNSTREAM> 1 </DSL_POWER_DOWNSTREAM>"
    "     <SIGNAL_LOSS> 1 </SIGNAL_LOSS>"
    "     <READY_STATUS> READY </READY_STATUS>"
    "     <DSL_STATE> DOWN </DSL_STATE>"
    "  </DSL>"
    "  <BCOM_WIRELESS>"
    "     <WIRE_TXBYTES> NA </WIRE_TXBYTES>"
    "     <WIRE_TXPACKETS> NA </WIRE_TXPACKETS>"
    "     <WIRE_TXERRORS> NA </WIRE_TXERRORS>"
    "     <WIRE_TXDROPS> NA </WIRE_TXDROPS>"
    "     <WIRE_RXBYTES> NA </WIRE_RXBYTES>"
    "     <WIRE_RXPACKETS> NA </WIRE_RXPACKETS>"
    "     <WIRE_RXERRORS> NA </WIRE_RXERRORS>"
    "     <WIRE_RXDROPS> NA </WIRE_RXDROPS>"
    "     <WIRE_STATIONS> NA </WIRE_STATIONS>"
    "  </BCOM_WIRELESS>"
    "  <FLASH>"
    "     <DEV_TYPE> OK </DEV_TYPE>"
    "     <WRITE> OK </WRITE>"
    "     <ERASE> OK </ERASE>"
    "     <CORRUPT_FILE> NO </CORRUPT_FILE>"
    "     <FILE_CRC_ERROR> NO </FILE_CRC_ERROR>"
    "  </FLASH>"
    "</FTM_STATS>";

namespace {

constexpr char fourPortTemplate[] =
    "<?xml version=1.0 encoding=UTF-8?><ETHERNET>"
    "    <PORT_1>"
    "      <ETH_PORT_ACTIVE> NO </ETH_PORT_ACTIVE>"
    "      <ETH_DISCARD_IN> 0 </ETH_DISCARD_IN>"
    "      <ETH_DISCARD_OUT> 0 </ETH_DISCARD_OUT>"
    "      <ETH_IN> 0 </ETH_IN>"
    "      <ETH_OUT> 0  </ETH_OUT>"
    "    </PORT_1>"
    "    <PORT_2>"
    "      <ETH_PORT_ACTIVE> NO </ETH_PORT_ACTIVE>"
    "      <ETH_DISCARD_IN> 0 </ETH_DISCARD_IN>"
    "      <ETH_DISCARD_OUT> 0 </ETH_DISCARD_OUT>"
    "      <ETH_IN> 0 </ETH_IN>"
    "      <ETH_OUT> 0  </ETH_OUT>"
    "    </PORT_2>"
    "    <PORT_3>"
    "      <ETH_PORT_ACTIVE> NO </ETH_PORT_ACTIVE>"
    "      <ETH_DISCARD_IN> 0 </ETH_DISCARD_IN>"
    "      <ETH_DISCARD_OUT> 0 </ETH_DISCARD_OUT>"
    "      <ETH_IN> 0 </ETH_IN>"
    "      <ETH_OUT> 0  </ETH_OUT>"
    "    </PORT_3>"
    "    <PORT_4>"
    "      <ETH_PORT_ACTIVE> NO </ETH_PORT_ACTIVE>"
    "      <ETH_DISCARD_IN> 0 </ETH_DISCARD_IN>"
    "      <ETH_DISCARD_OUT> 0 </ETH_DISCARD_OUT>"
    "      <ETH_IN> 0 </ETH_IN>"
    "      <ETH_OUT> 0  </ETH_OUT>"
    "    </PORT_4>"
    "</ETHERNET>";
constexpr char progressTemplate[] =
    "<?xml version=1.0 encoding=UTF-8?><DOWNLOAD_STATUS> DONE </DOWNLOAD_STATUS>";
// clang-format on
static_assert(sizeof statisticsTemplate == 1915 && sizeof fourPortTemplate == 900 && sizeof progressTemplate == 76);
static_assert(std::string_view(statisticsTemplate).size() + 1 == sizeof statisticsTemplate); // its size is declared

ST_XML_ELEMENT* treeFrom(std::string_view xmlTemplate) {
  std::string document(xmlTemplate); // parsed in place
  return create_xml_object(document.data());
}

// Where the text of an element comes from: a column of its section's table row.
struct ElementColumn {
  std::string_view element;
  int column;
};

constexpr ElementColumn etherColumns[] = {
    {"ETH_DISCARD_IN", 4}, {"ETH_DISCARD_OUT", 12}, {"ETH_IN", 2}, {"ETH_OUT", 10}};

constexpr ElementColumn atmColumns[] = {{"ATM_DISCARD_IN", 27}, {"ATM_DISCARD_OUT", 28}, {"ATM_IN", 4}, {"ATM_OUT", 6}};
constexpr int vpiColumn = 2;
constexpr int vciColumn = 3;
constexpr ElementColumn circuitColumns[] = {{"VC_VPI", vpiColumn}, {"VC_VCI", vciColumn}};

constexpr ElementColumn dslColumns[] = {
    {"DSL_STATE", 0},
    {"DSL_ACTIVITY_DOWNSTREAM", 1},
    {"DSL_ACTIVITY_UPTREAM", 2},
    {"DSL_FEC_DOWNSTREAM", 5},
    {"DSL_FEC_UPSTREAM", 6},
    {"DSL_CRC_DOWNSTREAM", 7},
    {"DSL_CRC_UPSTREAM", 8},
    {"DSL_HEC_DOWNSTREAM", 10}, // the other way round than FEC and CRC, on purpose
    {"DSL_HEC_UPSTREAM", 9},
    {"DSL_ATTEN_DOWNSTREAM", 12},
    {"DSL_ATTEN_UPSTREAM", 13},
    {"DSL_MARGIN_DOWNSTREAM", 14},
    {"DSL_MARGIN_UPSTREAM", 15},
    {"DSL_POWER_DOWNSTREAM", 18},
    {"DSL_POWER_UPSTREAM", 19}, // known, though the file has no such element
    {"SIGNAL_LOSS", 20},
};
constexpr ElementColumn dslSpeedColumns[] = {{"DSL_SPEED_DOWNSTREAM", 16}, {"DSL_SPEED_UPSTREAM", 17}};

constexpr ElementColumn flashColumns[] = {
    {"DEV_TYPE", 0}, {"WRITE", 1}, {"ERASE", 2}, {"CORRUPT_FILE", 3}, {"FILE_CRC_ERROR", 4}};

constexpr ElementColumn wirelessColumns[] = {
    {"WIRE_RXBYTES", 1}, {"WIRE_RXPACKETS", 2},  {"WIRE_RXERRORS", 3},  {"WIRE_RXDROPS", 4},
    {"WIRE_TXBYTES", 9}, {"WIRE_TXPACKETS", 10}, {"WIRE_TXERRORS", 11}, {"WIRE_TXDROPS", 12},
};
constexpr ElementColumn stationColumns[] = {{"WIRE_STATIONS", 0}};

constexpr int firstRow = 0;
constexpr int interfaceColumn = 0;

// Texts of the DSL section that no table holds.
const char* readyStatus() {
  const bool isReady = (unFtmState.usWd & throughputTestMask) != 0 && WANM_FTMReadyForData() != 0;
  return isReady ? "READY" : "NOT_READY";
}

const char* hybridStatus() {
  return "UNKNOWN";
}

const char* pairStatus() {
  constexpr int outerPair = 2;
  int pair = 0;
  int mode = 0;
  TRANCVR_FtmApStats(&pair, &mode);
  return pair == outerPair ? "OUTER" : "INNER";
}

struct ElementText {
  std::string_view element;
  const char* (*text)();
};
// Only the first of them is an element of the file; the others are known all the same.
constexpr ElementText dslTexts[] = {
    {"READY_STATUS", readyStatus}, {"MULTI_HYBRID", hybridStatus}, {"HYBRID_1", hybridStatus},
    {"HYBRID_2", hybridStatus},    {"HYBRID_3", hybridStatus},     {"HYBRID_4", hybridStatus},
    {"AUTO_PAIR", pairStatus},
};

// The entry of a vocabulary for an element, or null.
template <typename Entry>
const Entry* entryFor(const ST_XML_ELEMENT* element, std::span<const Entry> entries) {
  for (const Entry& entry : entries)
    if (entry.element == GetTag(element))
      return &entry;
  return nullptr;
}

// The direct children of an element that a vocabulary knows, in order, each with its entry.
template <typename Entry, typename Action>
void forKnownChildren(const ST_XML_ELEMENT* section, std::span<const Entry> entries, Action action) {
  ST_XML_ELEMENT** child = GetElements(section);
  for (; child != nullptr && *child != nullptr; ++child)
    if (const Entry* entry = entryFor(*child, entries); entry != nullptr)
      action(*child, *entry);
}

// A cell that the table lacks leaves the text as it was.
void fillFromRow(ST_XML_ELEMENT* section, std::span<const ElementColumn> columns, const TableSnapshot& table, int row) {
  forKnownChildren(section, columns, [&](ST_XML_ELEMENT* child, const ElementColumn& source) {
    if (const char* cell = table.cell(row, source.column); cell != nullptr)
      SetTextBody(child, cell);
  });
}

void fillSpeeds(ST_XML_ELEMENT* section, const TableSnapshot& line) {
  forKnownChildren(section, std::span<const ElementColumn>(dslSpeedColumns),
                   [&](ST_XML_ELEMENT* child, const ElementColumn& source) {
                     const char* cell = line.cell(firstRow, source.column);
                     if (cell == nullptr)
                       return;
                     char kilobits[kilobitTextSize];
                     ftmConvertToKBS(cell, kilobits);
                     SetTextBody(child, kilobits);
                   });
}

void fillStations(ST_XML_ELEMENT* section, const char* text) {
  forKnownChildren(section, std::span<const ElementColumn>(stationColumns),
                   [&](ST_XML_ELEMENT* child, const ElementColumn&) { SetTextBody(child, text); });
}

// First row of an interface, or -1.
int rowOfInterface(const TableSnapshot& devices, const char* name) {
  for (int row = 0; row < devices.rows(); ++row) {
    const char* interface = devices.cell(row, interfaceColumn);
    if (interface != nullptr && std::strcmp(interface, name) == 0)
      return row;
  }
  return -1;
}

// The column of "SwitchStat" and the counter behind an element of a port.
struct ElementCounter {
  std::string_view element;
  int column;
  E4PST_IX index;
};
constexpr ElementCounter portCounters[] = {{"ETH_IN", 4, eETHPACK_RX}, {"ETH_OUT", 3, eETHPACK_TX}};
constexpr int linkColumn = 0;
constexpr const char* linkUpWord = "up";

constexpr const char* portElements[] = {"PORT_1", "PORT_2", "PORT_3", "PORT_4"};
constexpr const char* offsetModel = "6204"; // models whose first port is row 1 of "SwitchStat"
constexpr int modelColumn = 0;

bool isLinkUp(const ST_CFG_TABLE& ports, int row) {
  const char* link = TableSnapshot::tableCell(ports, row, linkColumn);
  return link != nullptr && std::strcmp(link, linkUpWord) == 0;
}

void fillPortCount(ST_XML_ELEMENT* element, const ElementCounter& source, const ST_CFG_TABLE& ports, int row,
                   bool isUp) {
  const auto port = static_cast<unsigned int>(row);
  ftmSave4PortStatCt(TableSnapshot::tableCell(ports, row, source.column), isUp ? 1 : 0, port, source.index);
  char total[portCountTextSize];
  ftmGet4PortStatCt(total, port, source.index);
  SetTextBody(element, total);
}

// Row of "SwitchStat" that the first port shows; 0 when the model is not known.
int firstPortRow(void* session) {
  const TableSnapshot production(session, "ProductionData");
  if (!isUsable(production, "ProductionData"))
    return 0;
  const char* model = production.cell(firstRow, modelColumn);
  return model != nullptr && std::strstr(model, offsetModel) != nullptr ? 1 : 0;
}

struct StatisticsSection {
  const char* element;
  int (*fill)(ST_XML_ELEMENT*);
};
// In the order in which they are read.
constexpr StatisticsSection statisticsSections[] = {
    {"ETHERNET", XMLS_initEtherStatCatCM},
    {"ATM", [](ST_XML_ELEMENT* atm) { return XMLS_initAtmStatCatCM(1, atm); }},
    {"DSL", XMLS_initDslStatCM},
    {"FLASH", XMLS_GetFlashErrCM},
    {"BCOM_WIRELESS", XMLS_Get_Wl0_StatCM},
};

} // namespace

ST_XML_ELEMENT* CreateFtmStatisticsXml() {
  return treeFrom(statisticsTemplate);
}

ST_XML_ELEMENT* CreateFtmStats4portXml() {
  return treeFrom(fourPortTemplate);
}

ST_XML_ELEMENT* CreateFtmProgressXml() {
  return treeFrom(progressTemplate);
}

int TFTP_processGetStatistics(char** ppOutFile, unsigned long* pOutSize) {
  if (pstFTMStatElmt == nullptr)
    pstFTMStatElmt = CreateFtmStatisticsXml();
  if (const int result = FtmUpdStatistics(); result != 0)
    return result;
  return TFTP_createXmlFile(ppOutFile, pOutSize, pstFTMStatElmt);
}

int TFTP_processGetStatistics2(char**, unsigned long*) {
  return -1;
}

int TFTP_processGetStats4port(char** ppOutFile, unsigned long* pOutSize) {
  if (pstFTMStats4pElmt == nullptr)
    pstFTMStats4pElmt = CreateFtmStats4portXml();
  if (const int result = FtmUpdStats4portNew(); result != 0)
    return result;
  return TFTP_createXmlFile(ppOutFile, pOutSize, pstFTMStats4pElmt);
}

char* TFTP_processGetProgress() {
  std::free(pOFilePROG);
  pOFilePROG = nullptr;
  if (pstFTMProgElmt == nullptr)
    pstFTMProgElmt = CreateFtmProgressXml();
  ST_XML_ELEMENT* status = GetElmtPtr(pstFTMProgElmt, "DOWNLOAD_STATUS", nullptr, nullptr);
  if (status == nullptr)
    return nullptr;
  SetTextBody(status, DwLoadStatus() != 0 ? "NOT_DONE" : "DONE");
  TFTP_createXmlFile(&pOFilePROG, &ulOutSizePROG, pstFTMProgElmt);
  return pOFilePROG;
}

int FtmUpdStatistics() {
  for (const StatisticsSection& section : statisticsSections)
    if (ST_XML_ELEMENT* element = GetElmtPtr(pstFTMStatElmt, "FTM_STATS", section.element, nullptr); element != nullptr)
      section.fill(element);
  return 0;
}

int XMLS_initEtherStatCatCM(ST_XML_ELEMENT* pXmlEther) {
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  if (!isUsable(session))
    return -1;
  char name[interfaceNameSize];
  if (GetInterfaceName(session.get(), "Omnilane", name) != 0)
    return 0;
  const TableSnapshot devices(session.get(), "NetDev");
  if (!isUsable(devices, "NetDev"))
    return -1;
  // An interface without a row shows the counters of the first device; the wireless section shows none instead.
  fillFromRow(pXmlEther, etherColumns, devices, std::max(rowOfInterface(devices, name), firstRow));
  return 0;
}

int XMLS_initAtmStatCatCM(int, ST_XML_ELEMENT* pXmlAtm) {
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  if (!isUsable(session))
    return -1;
  const TableSnapshot circuits(session.get(), "BcmAtm");
  if (!isUsable(circuits, "BcmAtm"))
    return -1;
  fillFromRow(pXmlAtm, atmColumns, circuits, firstRow);
  if (ST_XML_ELEMENT* channel = GetElement(pXmlAtm, "VC_CHAN_NUM"); channel != nullptr) {
    SetTextBody(channel, McfgAtmVC());
    fillFromRow(channel, circuitColumns, circuits, firstRow);
  }
  return 0;
}

int XMLS_initDslStatCM(ST_XML_ELEMENT* pXmlDsl) {
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  if (!isUsable(session))
    return -1;
  const TableSnapshot line(session.get(), "Xcvr");
  if (!isUsable(line, "Xcvr"))
    return -1;
  fillFromRow(pXmlDsl, dslColumns, line, firstRow);
  fillSpeeds(pXmlDsl, line);
  forKnownChildren(pXmlDsl, std::span<const ElementText>(dslTexts),
                   [](ST_XML_ELEMENT* child, const ElementText& source) { SetTextBody(child, source.text()); });
  return 0;
}

int XMLS_GetFlashErrCM(ST_XML_ELEMENT* pXmlFlash) {
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  if (!isUsable(session))
    return -1;
  const TableSnapshot errors(session.get(), "FlashErr");
  if (!isUsable(errors, "FlashErr"))
    return -1;
  fillFromRow(pXmlFlash, flashColumns, errors, firstRow);
  return 0;
}

int XMLS_Get_Wl0_StatCM(ST_XML_ELEMENT* pXmlWireless) {
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  if (!isUsable(session))
    return -1;
  char name[interfaceNameSize];
  // Without a name no device matches, and the counters stay as they were.
  GetInterfaceName(session.get(), "Wireless", name);
  const TableSnapshot devices(session.get(), "NetDev");
  if (!isUsable(devices, "NetDev"))
    return -1;
  fillFromRow(pXmlWireless, wirelessColumns, devices, rowOfInterface(devices, name));
  const TableSnapshot stations(session.get(), "WlanStations");
  if (!isUsable(stations, "WlanStations")) {
    fillStations(pXmlWireless, "Read Fail");
    return stations.result();
  }
  fillFromRow(pXmlWireless, stationColumns, stations, firstRow);
  return 0;
}

int XMLS_SetAttrValueCM(ST_XML_ELEMENT* pXml, int) {
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  if (!isUsable(session))
    return -1;
  const TableSnapshot circuits(session.get(), "BcmAtm");
  if (!isUsable(circuits, "BcmAtm"))
    return -1;
  if (const char* vpi = circuits.cell(firstRow, vpiColumn); vpi != nullptr)
    SetAttrValue(pXml, "VPI", vpi);
  if (const char* vci = circuits.cell(firstRow, vciColumn); vci != nullptr)
    SetAttrValue(pXml, "VCI", vci);
  return 0;
}

int FtmUpdStats4portNew() {
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  if (!isUsable(session))
    return -1;
  int row = firstPortRow(session.get());
  const TableSnapshot ports(session.get(), "SwitchStat");
  if (!isUsable(ports, "SwitchStat"))
    return -1;
  for (const char* name : portElements) {
    if (ST_XML_ELEMENT* port = GetElmtPtr(pstFTMStats4pElmt, "ETHERNET", name, nullptr); port != nullptr)
      XMLS_Fill_SwEthX_Field(port, row, ports.get());
    ++row;
  }
  return 0;
}

void XMLS_Fill_SwEthX_Field(ST_XML_ELEMENT* pXmlTmp, int iRow, const ST_CFG_TABLE* pstTbl) {
  // The counts go by the link that "ETH_PORT_ACTIVE" showed, so they take it for down until they have passed it.
  bool isUp = false;
  ST_XML_ELEMENT** child = GetElements(pXmlTmp);
  for (; child != nullptr && *child != nullptr; ++child) {
    const std::string_view tag = GetTag(*child);
    if (tag == "ETH_PORT_ACTIVE") {
      isUp = isLinkUp(*pstTbl, iRow);
      SetTextBody(*child, isUp ? "YES" : "NO");
    } else if (tag == "ETH_DISCARD_IN" || tag == "ETH_DISCARD_OUT") {
      SetTextBody(*child, "Not Support");
    } else if (const ElementCounter* counter = entryFor(*child, std::span<const ElementCounter>(portCounters));
               counter != nullptr) {
      fillPortCount(*child, *counter, *pstTbl, iRow, isUp);
    }
  }
}
