// The statistics, four-port and progress files: every element shows its own source, and keeps its text when that fails.
#include <gmock/gmock.h>

#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/unit/bench_unit.h"
#include "tests/unit/store_calls.h"
#include "tests/unit/virtual_files.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Handles.h"
#include "userapps/FTM/FTM_Tags.h"

namespace {
int reportedPair; // what the DSL part reports; the points of the board know no pair 2
int reportedReady = 1;
} // namespace

extern "C" int __wrap__Z18TRANCVR_FtmApStatsPiS_(int* pair, int* mode) {
  *pair = reportedPair;
  *mode = 2; // no such mode: it does not count here
  return 0;
}

extern "C" int __wrap__Z20WANM_FTMReadyForDatav() {
  return reportedReady;
}

namespace {

constexpr const char* sessionFault = "session";

// A filler and the element that it fills.
struct SectionFiller {
  const char* section;
  int (*fill)(ST_XML_ELEMENT*);
};
constexpr SectionFiller sectionFillers[] = {
    {"ETHERNET", XMLS_initEtherStatCatCM},
    {"ATM", [](ST_XML_ELEMENT* atm) { return XMLS_initAtmStatCatCM(1, atm); }},
    {"DSL", XMLS_initDslStatCM},
    {"FLASH", XMLS_GetFlashErrCM},
    {"BCOM_WIRELESS", XMLS_Get_Wl0_StatCM},
    {"DSL", [](ST_XML_ELEMENT* element) { return XMLS_SetAttrValueCM(element, 1); }},
};

std::string tableFault(std::string_view table) {
  return "table " + std::string(table);
}

void forget(ST_XML_ELEMENT*& tree) {
  destroy_xml_object(std::exchange(tree, nullptr));
}

// What a cell holds when the whole table was filled with its own coordinates.
std::string coordinates(std::string_view table, int row, int column) {
  return std::string(table) + " " + std::to_string(row) + "/" + std::to_string(column);
}

class StatisticsFiles : public BenchUnit {
protected:
  StatisticsFiles() {
    forgetFiles();
    FTM_ClrErrorTFTP();
    storeCalls.clear();
    FtmClear4PortStat();
    unFtmState.usWd = 0;
  }
  ~StatisticsFiles() override { forgetFiles(); }

  static void forgetFiles() {
    forget(pstFTMStatElmt);
    forget(pstFTMStats4pElmt);
    forget(pstFTMProgElmt);
    for (char** text : {&pOFileSTAT, &pOFileSTAT4P, &pOFilePROG})
      std::free(std::exchange(*text, nullptr));
  }

  static void setCellAt(std::string_view table, int row, int column, std::string_view value) {
    unit().setCell(table, row, unit().columns(table).at(static_cast<std::size_t>(column)), value);
  }

  static void fillWithCoordinates(std::string_view table, int rows) {
    unit().clearTable(table);
    const int columns = static_cast<int>(unit().columns(table).size());
    for (int row = 0; row < rows; ++row)
      for (int column = 0; column < columns; ++column)
        setCellAt(table, row, column, coordinates(table, row, column));
  }

  // Devices "a" (row 0), the Ethernet interface (row 1) and the wireless one (row 2), the rest of each row being the
  // coordinates of its cells.
  static void fillDevices() {
    fillWithCoordinates("NetDev", 3);
    setCellAt("NetDev", 0, 0, "a");
    setCellAt("NetDev", 1, 0, "eth9");
    setCellAt("NetDev", 2, 0, "radio9");
    unit().clearTable("ProductInterfaces");
    addInterface(0, "Omnilane", "eth9");
    addInterface(1, "Wireless", "radio9");
  }

  static void addInterface(int row, std::string_view nickname, std::string_view name) {
    setCellAt("ProductInterfaces", row, 1, nickname);
    setCellAt("ProductInterfaces", row, 2, name);
  }

  static void fillEverything() {
    fillDevices();
    for (const char* table : {"BcmAtm", "Xcvr", "FlashErr", "WlanStations"})
      fillWithCoordinates(table, 2);
    setCellAt("Xcvr", 0, 16, "8128000");
    setCellAt("Xcvr", 0, 17, "832000");
  }

  static std::string readStatistics() {
    std::free(std::exchange(pOFileSTAT, nullptr));
    EXPECT_EQ(TFTP_processGetStatistics(&pOFileSTAT, &ulOutSizeSTAT), 0);
    return pOFileSTAT != nullptr ? pOFileSTAT : "";
  }

  static std::string text(const std::string& path) {
    const char* body = GetElementBody(pstFTMStatElmt, ("FTM_STATS/" + path).c_str());
    return body != nullptr ? body : "no such element";
  }

  // Text of an element of the DSL section, which the file's own section may lack.
  static std::string dslText(const char* element) {
    XmlTree section(create_sub_xml_element("DSL", 1, 0, nullptr, nullptr, nullptr));
    AddElement(section.get(), create_sub_xml_element(element, 1, 0, nullptr, nullptr, "before"));
    EXPECT_EQ(XMLS_initDslStatCM(section.get()), 0);
    return GetElementBody(section.get(), element);
  }
};

// Templates.

TEST_F(StatisticsFiles, StatisticsTemplateHasEveryElementInOrder) {
  pstFTMStatElmt = CreateFtmStatisticsXml();
  char* file = nullptr;
  unsigned long size = 0;
  ASSERT_EQ(TFTP_createXmlFile(&file, &size, pstFTMStatElmt), 0);
  std::string lines;
  for (const char c : std::string(file))
    if (c != '\r' && c != ' ')
      lines += c == '\n' ? ' ' : c;
  std::free(file);
  EXPECT_EQ(lines,
            "<?xmlversion=\"1.0\"encoding=\"UTF-8\"?> <FTM_STATS> "
            "<ETHERNET> <ETH_DISCARD_IN> 0 </ETH_DISCARD_IN> <ETH_DISCARD_OUT> 0 </ETH_DISCARD_OUT> "
            "<ETH_IN> 0 </ETH_IN> <ETH_OUT> 0 </ETH_OUT> </ETHERNET> "
            "<ATM> <ATM_DISCARD_IN> 0 </ATM_DISCARD_IN> <ATM_DISCARD_OUT> 0 </ATM_DISCARD_OUT> "
            "<ATM_IN> 0 </ATM_IN> <ATM_OUT> 0 </ATM_OUT> "
            "<VC_CHAN_NUM> 1 <VC_VPI> 1 </VC_VPI> <VC_VCI> 1 </VC_VCI> </VC_CHAN_NUM> </ATM> "
            "<DSL> <DSL_ACTIVITY_DOWNSTREAM> 1 </DSL_ACTIVITY_DOWNSTREAM> "
            "<DSL_ACTIVITY_UPTREAM> 1 </DSL_ACTIVITY_UPTREAM> <DSL_FEC_DOWNSTREAM> 1 </DSL_FEC_DOWNSTREAM> "
            "<DSL_FEC_UPSTREAM> 1 </DSL_FEC_UPSTREAM> <DSL_CRC_DOWNSTREAM> 1 </DSL_CRC_DOWNSTREAM> "
            "<DSL_CRC_UPSTREAM> 1 </DSL_CRC_UPSTREAM> <DSL_HEC_DOWNSTREAM> 1 </DSL_HEC_DOWNSTREAM> "
            "<DSL_HEC_UPSTREAM> 1 </DSL_HEC_UPSTREAM> <DSL_ATTEN_DOWNSTREAM> 1 </DSL_ATTEN_DOWNSTREAM> "
            "<DSL_ATTEN_UPSTREAM> 1 </DSL_ATTEN_UPSTREAM> <DSL_MARGIN_DOWNSTREAM> 1 </DSL_MARGIN_DOWNSTREAM> "
            "<DSL_MARGIN_UPSTREAM> 1 </DSL_MARGIN_UPSTREAM> <DSL_SPEED_DOWNSTREAM> 1 </DSL_SPEED_DOWNSTREAM> "
            "<DSL_SPEED_UPSTREAM> 1 </DSL_SPEED_UPSTREAM> <DSL_POWER_DOWNSTREAM> 1 </DSL_POWER_DOWNSTREAM> "
            "<SIGNAL_LOSS> 1 </SIGNAL_LOSS> <READY_STATUS> READY </READY_STATUS> <DSL_STATE> DOWN </DSL_STATE> </DSL> "
            "<BCOM_WIRELESS> <WIRE_TXBYTES> NA </WIRE_TXBYTES> <WIRE_TXPACKETS> NA </WIRE_TXPACKETS> "
            "<WIRE_TXERRORS> NA </WIRE_TXERRORS> <WIRE_TXDROPS> NA </WIRE_TXDROPS> "
            "<WIRE_RXBYTES> NA </WIRE_RXBYTES> <WIRE_RXPACKETS> NA </WIRE_RXPACKETS> "
            "<WIRE_RXERRORS> NA </WIRE_RXERRORS> <WIRE_RXDROPS> NA </WIRE_RXDROPS> "
            "<WIRE_STATIONS> NA </WIRE_STATIONS> </BCOM_WIRELESS> "
            "<FLASH> <DEV_TYPE> OK </DEV_TYPE> <WRITE> OK </WRITE> <ERASE> OK </ERASE> "
            "<CORRUPT_FILE> NO </CORRUPT_FILE> <FILE_CRC_ERROR> NO </FILE_CRC_ERROR> </FLASH> </FTM_STATS> ");
}

TEST_F(StatisticsFiles, FourPortTemplateHasFourPortsWithTheirActivityFirst) {
  pstFTMStats4pElmt = CreateFtmStats4portXml();
  const ST_XML_ELEMENT* ports = GetElement(pstFTMStats4pElmt, "ETHERNET");
  ASSERT_NE(ports, nullptr);
  std::string names;
  for (ST_XML_ELEMENT** port = GetElements(ports); *port != nullptr; ++port) {
    names += std::string(GetTag(*port)) + ":";
    for (ST_XML_ELEMENT** element = GetElements(*port); *element != nullptr; ++element)
      names += std::string(" ") + GetTag(*element) + "=" + GetTextBody(*element);
    names += "; ";
  }
  const std::string port = ": ETH_PORT_ACTIVE=NO ETH_DISCARD_IN=0 ETH_DISCARD_OUT=0 ETH_IN=0 ETH_OUT=0; ";
  EXPECT_EQ(names, "PORT_1" + port + "PORT_2" + port + "PORT_3" + port + "PORT_4" + port);
}

// Sources of the statistics file.

struct Source {
  const char* path;
  const char* table;
  int row;
  int column;
};

class StatisticsSources : public StatisticsFiles, public testing::WithParamInterface<Source> {};

TEST_P(StatisticsSources, ElementShowsItsOwnCell) {
  const auto& [path, table, row, column] = GetParam();
  fillEverything();
  readStatistics();
  EXPECT_EQ(text(path), coordinates(table, row, column));
}

INSTANTIATE_TEST_SUITE_P(
    All, StatisticsSources,
    testing::Values(
        Source{"ETHERNET/ETH_DISCARD_IN", "NetDev", 1, 4}, Source{"ETHERNET/ETH_DISCARD_OUT", "NetDev", 1, 12},
        Source{"ETHERNET/ETH_IN", "NetDev", 1, 2}, Source{"ETHERNET/ETH_OUT", "NetDev", 1, 10},
        Source{"ATM/ATM_DISCARD_IN", "BcmAtm", 0, 27}, Source{"ATM/ATM_DISCARD_OUT", "BcmAtm", 0, 28},
        Source{"ATM/ATM_IN", "BcmAtm", 0, 4}, Source{"ATM/ATM_OUT", "BcmAtm", 0, 6},
        Source{"ATM/VC_CHAN_NUM/VC_VPI", "BcmAtm", 0, 2}, Source{"ATM/VC_CHAN_NUM/VC_VCI", "BcmAtm", 0, 3},
        Source{"DSL/DSL_STATE", "Xcvr", 0, 0}, Source{"DSL/DSL_ACTIVITY_DOWNSTREAM", "Xcvr", 0, 1},
        Source{"DSL/DSL_ACTIVITY_UPTREAM", "Xcvr", 0, 2}, Source{"DSL/DSL_FEC_DOWNSTREAM", "Xcvr", 0, 5},
        Source{"DSL/DSL_FEC_UPSTREAM", "Xcvr", 0, 6}, Source{"DSL/DSL_CRC_DOWNSTREAM", "Xcvr", 0, 7},
        Source{"DSL/DSL_CRC_UPSTREAM", "Xcvr", 0, 8}, Source{"DSL/DSL_HEC_DOWNSTREAM", "Xcvr", 0, 10},
        Source{"DSL/DSL_HEC_UPSTREAM", "Xcvr", 0, 9}, Source{"DSL/DSL_ATTEN_DOWNSTREAM", "Xcvr", 0, 12},
        Source{"DSL/DSL_ATTEN_UPSTREAM", "Xcvr", 0, 13}, Source{"DSL/DSL_MARGIN_DOWNSTREAM", "Xcvr", 0, 14},
        Source{"DSL/DSL_MARGIN_UPSTREAM", "Xcvr", 0, 15}, Source{"DSL/DSL_POWER_DOWNSTREAM", "Xcvr", 0, 18},
        Source{"DSL/SIGNAL_LOSS", "Xcvr", 0, 20}, Source{"FLASH/DEV_TYPE", "FlashErr", 0, 0},
        Source{"FLASH/WRITE", "FlashErr", 0, 1}, Source{"FLASH/ERASE", "FlashErr", 0, 2},
        Source{"FLASH/CORRUPT_FILE", "FlashErr", 0, 3}, Source{"FLASH/FILE_CRC_ERROR", "FlashErr", 0, 4},
        Source{"BCOM_WIRELESS/WIRE_RXBYTES", "NetDev", 2, 1}, Source{"BCOM_WIRELESS/WIRE_RXPACKETS", "NetDev", 2, 2},
        Source{"BCOM_WIRELESS/WIRE_RXERRORS", "NetDev", 2, 3}, Source{"BCOM_WIRELESS/WIRE_RXDROPS", "NetDev", 2, 4},
        Source{"BCOM_WIRELESS/WIRE_TXBYTES", "NetDev", 2, 9}, Source{"BCOM_WIRELESS/WIRE_TXPACKETS", "NetDev", 2, 10},
        Source{"BCOM_WIRELESS/WIRE_TXERRORS", "NetDev", 2, 11}, Source{"BCOM_WIRELESS/WIRE_TXDROPS", "NetDev", 2, 12},
        Source{"BCOM_WIRELESS/WIRE_STATIONS", "WlanStations", 0, 0}),
    [](const auto& row) {
      const std::string path = row.param.path;
      return path.substr(path.rfind('/') + 1);
    });

TEST_F(StatisticsFiles, EveryElementOfTheFileHasASource) {
  fillEverything();
  readStatistics();
  // Only these hold texts that are not a cell's.
  const std::vector<std::string> others = {"VC_CHAN_NUM", "READY_STATUS", "DSL_SPEED_DOWNSTREAM", "DSL_SPEED_UPSTREAM"};
  std::vector<std::string> strangers;
  ST_XML_ELEMENT** section = GetElements(GetElement(pstFTMStatElmt, "FTM_STATS"));
  for (; *section != nullptr; ++section)
    for (ST_XML_ELEMENT** element = GetElements(*section); *element != nullptr; ++element)
      if (std::string_view(GetTextBody(*element)).find('/') == std::string_view::npos)
        strangers.emplace_back(GetTag(*element));
  EXPECT_THAT(strangers, testing::UnorderedElementsAreArray(others));
}

TEST_F(StatisticsFiles, ChannelNumberIsATextBesideItsChildren) {
  pstFTMStatElmt = CreateFtmStatisticsXml();
  SetTextBody(GetElement(GetElement(GetElement(pstFTMStatElmt, "FTM_STATS"), "ATM"), "VC_CHAN_NUM"), "before");
  fillEverything();
  EXPECT_THAT(readStatistics(), testing::HasSubstr("<VC_CHAN_NUM>\r\n        1\r\n        <VC_VPI>\r\n"));
}

TEST_F(StatisticsFiles, SpeedsAreKilobitsInTenCharacters) {
  fillEverything();
  readStatistics();
  EXPECT_EQ(text("DSL/DSL_SPEED_DOWNSTREAM"), "  8128.000");
  EXPECT_EQ(text("DSL/DSL_SPEED_UPSTREAM"), "   832.000");
}

TEST_F(StatisticsFiles, UpstreamPowerIsKnownThoughTheFileLacksIt) {
  fillEverything();
  EXPECT_EQ(dslText("DSL_POWER_UPSTREAM"), coordinates("Xcvr", 0, 19));
  EXPECT_THAT(readStatistics(), testing::Not(testing::HasSubstr("DSL_POWER_UPSTREAM")));
}

TEST_F(StatisticsFiles, HybridsAreKnownAsUnknownThoughTheFileLacksThem) {
  fillEverything();
  for (const char* element : {"MULTI_HYBRID", "HYBRID_1", "HYBRID_2", "HYBRID_3", "HYBRID_4"})
    EXPECT_EQ(dslText(element), "UNKNOWN") << element;
}

TEST_F(StatisticsFiles, PairIsOuterOnlyForPairTwo) {
  fillEverything();
  for (const auto& [pair, shown] : {std::pair(-1, "INNER"), std::pair(0, "INNER"), std::pair(1, "INNER"),
                                    std::pair(2, "OUTER"), std::pair(3, "INNER")}) {
    reportedPair = pair;
    EXPECT_EQ(dslText("AUTO_PAIR"), shown) << pair;
  }
  EXPECT_THAT(readStatistics(), testing::Not(testing::HasSubstr("AUTO_PAIR")));
}

TEST_F(StatisticsFiles, UnknownElementsKeepTheirTexts) {
  fillEverything();
  EXPECT_EQ(dslText("HYBRID_5"), "before");
  EXPECT_EQ(dslText("DSL_ACTIVITY_UPSTREAM"), "before");
  EXPECT_EQ(dslText("dsl_state"), "before");
}

TEST_F(StatisticsFiles, SectionWithoutChildrenStaysWithout) {
  fillEverything();
  const XmlTree section(create_sub_xml_element("DSL", 1, 0, nullptr, nullptr, "before"));
  EXPECT_EQ(XMLS_initDslStatCM(section.get()), 0);
  EXPECT_EQ(GetElements(section.get()), nullptr);
  EXPECT_STREQ(GetTextBody(section.get()), "before");
}

TEST_F(StatisticsFiles, SectionThatTheFileLacksIsLeftOutAndTheOthersAreFilled) {
  fillEverything();
  pstFTMStatElmt = CreateFtmStatisticsXml();
  RemoveElements(GetElement(pstFTMStatElmt, "FTM_STATS"), "ETHERNET");
  RemoveElements(GetElement(GetElement(pstFTMStatElmt, "FTM_STATS"), "ATM"), "VC_CHAN_NUM");
  EXPECT_THAT(readStatistics(), testing::Not(testing::HasSubstr("ETHERNET")));
  EXPECT_EQ(text("ATM/ATM_IN"), coordinates("BcmAtm", 0, 4));
  EXPECT_EQ(text("ATM/VC_CHAN_NUM"), "no such element");
  EXPECT_EQ(text("FLASH/WRITE"), coordinates("FlashErr", 0, 1));
}

TEST_F(StatisticsFiles, LineIsReadyOnlyDuringTheThroughputTest) {
  fillEverything();
  readStatistics();
  EXPECT_EQ(text("DSL/READY_STATUS"), "NOT_READY");
  unFtmState.usWd = throughputTestMask;
  readStatistics();
  EXPECT_EQ(text("DSL/READY_STATUS"), "READY");
  unFtmState.usWd = static_cast<std::uint16_t>(~throughputTestMask);
  readStatistics();
  EXPECT_EQ(text("DSL/READY_STATUS"), "NOT_READY");
}

TEST_F(StatisticsFiles, LineThatIsNotReadyForDataIsNotReadyInTheThroughputTestEither) {
  fillEverything();
  unFtmState.usWd = throughputTestMask;
  reportedReady = 0;
  readStatistics();
  reportedReady = 1;
  EXPECT_EQ(text("DSL/READY_STATUS"), "NOT_READY");
}

TEST_F(StatisticsFiles, CellsAreShownAsTheyStand) {
  fillEverything();
  setCellAt("FlashErr", 0, 0, "<b> & \"text\"");
  EXPECT_THAT(readStatistics(), testing::HasSubstr("<DEV_TYPE>\r\n        <b> & \"text\"\r\n      </DEV_TYPE>"));
}

TEST_F(StatisticsFiles, AnEmptyCellRemovesTheText) {
  fillEverything();
  setCellAt("FlashErr", 0, 0, "");
  EXPECT_THAT(readStatistics(), testing::HasSubstr("<DEV_TYPE>\r\n      </DEV_TYPE>"));
}

TEST_F(StatisticsFiles, AttributesOfTheThroughputAreTheCircuit) {
  fillEverything();
  XmlTree element(create_sub_xml_element("THROUGHPUT", 1, 0, "VPI=\"0\" VCI=\"35\"", nullptr, nullptr));
  EXPECT_EQ(XMLS_SetAttrValueCM(element.get(), 1), 0);
  EXPECT_STREQ(GetAttrValue(element.get(), "VPI"), coordinates("BcmAtm", 0, 2).c_str());
  EXPECT_STREQ(GetAttrValue(element.get(), "VCI"), coordinates("BcmAtm", 0, 3).c_str());
}

TEST_F(StatisticsFiles, AttributesOfTheThroughputStayWhenTheCircuitCannotBeRead) {
  XmlTree element(create_sub_xml_element("THROUGHPUT", 1, 0, "VPI=\"0\" VCI=\"35\"", nullptr, nullptr));
  unit().setFault(tableFault("BcmAtm"), true);
  EXPECT_EQ(XMLS_SetAttrValueCM(element.get(), 1), -1);
  EXPECT_EQ(recordedMessage(), szCrtXmlFail);
  unit().setFault(tableFault("BcmAtm"), false);
  unit().clearTable("BcmAtm");
  EXPECT_EQ(XMLS_SetAttrValueCM(element.get(), 1), 0);
  EXPECT_STREQ(GetAttrValue(element.get(), "VPI"), "0");
  EXPECT_STREQ(GetAttrValue(element.get(), "VCI"), "35");
}

// Interfaces.

TEST_F(StatisticsFiles, EthernetInterfaceWithoutARowShowsTheFirstDevice) {
  fillEverything();
  setCellAt("NetDev", 1, 0, "other");
  readStatistics();
  EXPECT_EQ(text("ETHERNET/ETH_IN"), coordinates("NetDev", 0, 2));
  EXPECT_EQ(text("ETHERNET/ETH_DISCARD_OUT"), coordinates("NetDev", 0, 12));
}

TEST_F(StatisticsFiles, WirelessInterfaceWithoutARowKeepsItsCountersButShowsItsStations) {
  fillEverything();
  setCellAt("NetDev", 2, 0, "other");
  readStatistics();
  EXPECT_EQ(text("BCOM_WIRELESS/WIRE_RXBYTES"), "NA");
  EXPECT_EQ(text("BCOM_WIRELESS/WIRE_STATIONS"), coordinates("WlanStations", 0, 0));
  setCellAt("NetDev", 2, 0, "radio9");
  readStatistics();
  setCellAt("NetDev", 2, 0, "other");
  setCellAt("NetDev", 2, 1, "later");
  readStatistics();
  EXPECT_EQ(text("BCOM_WIRELESS/WIRE_RXBYTES"), coordinates("NetDev", 2, 1));
}

TEST_F(StatisticsFiles, NoEthernetInterfaceLeavesItsSectionAlone) {
  fillEverything();
  setCellAt("ProductInterfaces", 0, 1, "other");
  XmlTree section(create_sub_xml_element("ETHERNET", 1, 0, nullptr, nullptr, nullptr));
  AddElement(section.get(), create_sub_xml_element("ETH_IN", 1, 0, nullptr, nullptr, "before"));
  EXPECT_EQ(XMLS_initEtherStatCatCM(section.get()), 0);
  EXPECT_STREQ(GetElementBody(section.get(), "ETH_IN"), "before");
}

TEST_F(StatisticsFiles, NoWirelessInterfaceStillShowsTheStations) {
  fillEverything();
  setCellAt("ProductInterfaces", 1, 1, "other");
  readStatistics();
  EXPECT_EQ(text("BCOM_WIRELESS/WIRE_TXBYTES"), "NA");
  EXPECT_EQ(text("BCOM_WIRELESS/WIRE_STATIONS"), coordinates("WlanStations", 0, 0));
}

TEST_F(StatisticsFiles, TheFirstOfTwoDevicesOfOneNameCounts) {
  fillEverything();
  setCellAt("NetDev", 2, 0, "eth9");
  readStatistics();
  EXPECT_EQ(text("ETHERNET/ETH_IN"), coordinates("NetDev", 1, 2));
}

// Failures.

TEST_F(StatisticsFiles, WithoutASessionTheFileIsServedWithItsEarlierTexts) {
  fillEverything();
  const std::string before = readStatistics();
  fillWithCoordinates("FlashErr", 1);
  setCellAt("FlashErr", 0, 0, "later");
  unit().setFault(sessionFault, true);
  testing::internal::CaptureStderr();
  EXPECT_EQ(readStatistics(), before);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("error: failed to start session\n"));
  EXPECT_EQ(recordedMessage(), szCrtXmlFail);
  EXPECT_EQ(FTM_ErrorTFTP()->usErrorCode, 0);
}

struct Filler {
  const char* table;
  const char* path; ///< an element of the table's section
  int column;
};

class StatisticsTables : public StatisticsFiles, public testing::WithParamInterface<Filler> {};

TEST_P(StatisticsTables, UnreadableOneKeepsTheTextsOfItsSectionAndTheFileIsServed) {
  const auto& [table, path, column] = GetParam();
  fillEverything();
  readStatistics();
  const std::string before = text(path);
  for (int row = 0; row < 3; ++row)
    setCellAt(table, row, column, "later");
  unit().setFault(tableFault(table), true);
  testing::internal::CaptureStderr();
  readStatistics();
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::HasSubstr("error: failed to read table: " + std::string(table) + "\n"));
  EXPECT_EQ(text(path), before);
  EXPECT_EQ(recordedMessage(), szCrtXmlFail);
  unit().setFault(tableFault(table), false);
  readStatistics();
  EXPECT_EQ(text(path), "later");
}

TEST_P(StatisticsTables, MissingRowsKeepTheTexts) {
  const auto& [table, path, column] = GetParam();
  fillEverything();
  readStatistics();
  const std::string before = text(path);
  unit().clearTable(table);
  readStatistics();
  EXPECT_EQ(text(path), before);
}

INSTANTIATE_TEST_SUITE_P(All, StatisticsTables,
                         testing::Values(Filler{"NetDev", "ETHERNET/ETH_IN", 2}, Filler{"BcmAtm", "ATM/ATM_IN", 4},
                                         Filler{"Xcvr", "DSL/DSL_STATE", 0}, Filler{"FlashErr", "FLASH/WRITE", 1},
                                         Filler{"NetDev", "BCOM_WIRELESS/WIRE_RXBYTES", 1}),
                         [](const auto& row) {
                           const std::string path = row.param.path;
                           return path.substr(path.rfind('/') + 1);
                         });

TEST_F(StatisticsFiles, SectionsAreReadInTheirOrder) {
  fillEverything();
  for (const char* table : {"NetDev", "BcmAtm", "Xcvr", "FlashErr"})
    unit().setFault(tableFault(table), true);
  testing::internal::CaptureStderr();
  readStatistics();
  const std::string start = "error: failed to read table: ";
  EXPECT_EQ(testing::internal::GetCapturedStderr(), start + "NetDev\n" + start + "BcmAtm\n" + start + "Xcvr\n" + start +
                                                        "FlashErr\n" + start + "NetDev\n"); // the radio's counters
}

TEST_F(StatisticsFiles, FillersReportThatThereIsNoSession) {
  fillEverything();
  pstFTMStatElmt = CreateFtmStatisticsXml();
  unit().setFault(sessionFault, true);
  for (const SectionFiller& filler : sectionFillers) {
    FTM_FlgErrorTFTP(7, szInLed, 0); // for another to take its place
    storeCalls.clear();
    testing::internal::CaptureStderr();
    EXPECT_EQ(filler.fill(GetElement(GetElement(pstFTMStatElmt, "FTM_STATS"), filler.section)), -1) << filler.section;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "error: failed to start session\n") << filler.section;
    EXPECT_EQ(recordedMessage(), "Fail to Create Xml File") << filler.section;
    EXPECT_THAT(storeCalls, testing::ElementsAre("session 0")) << filler.section;
  }
}

TEST_F(StatisticsFiles, EachFillerReadsInASessionOfItsOwn) {
  fillEverything();
  pstFTMStatElmt = CreateFtmStatisticsXml();
  for (const SectionFiller& filler : sectionFillers) {
    storeCalls.clear();
    EXPECT_EQ(filler.fill(GetElement(GetElement(pstFTMStatElmt, "FTM_STATS"), filler.section)), 0) << filler.section;
    EXPECT_THAT(storeCalls, testing::ElementsAre("session 0", "end")) << filler.section;
  }
  storeCalls.clear();
  readStatistics();
  EXPECT_THAT(storeCalls, testing::ElementsAre("session 0", "end", "session 0", "end", "session 0", "end", "session 0",
                                               "end", "session 0", "end"));
}

TEST_F(StatisticsFiles, FillersReportAnUnreadableTableAndEndTheirSessions) {
  fillEverything();
  pstFTMStatElmt = CreateFtmStatisticsXml();
  for (const char* table : {"NetDev", "BcmAtm", "Xcvr", "FlashErr"})
    unit().setFault(tableFault(table), true);
  for (const SectionFiller& filler : sectionFillers) {
    storeCalls.clear();
    EXPECT_EQ(filler.fill(GetElement(GetElement(pstFTMStatElmt, "FTM_STATS"), filler.section)), -1) << filler.section;
    EXPECT_THAT(storeCalls, testing::ElementsAre("session 0", "end")) << filler.section;
  }
}

TEST_F(StatisticsFiles, UnreadableStationsSayReadFailAndGiveTheStoresOwnResult) {
  fillEverything();
  readStatistics();
  ASSERT_EQ(recordedMessage(), "");
  unit().setFault(tableFault("WlanStations"), true);
  readStatistics();
  EXPECT_EQ(text("BCOM_WIRELESS/WIRE_STATIONS"), "Read Fail");
  EXPECT_EQ(text("BCOM_WIRELESS/WIRE_RXBYTES"), coordinates("NetDev", 2, 1));
  EXPECT_EQ(recordedMessage(), szCrtXmlFail);
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  const int failure = TableSnapshot(session.get(), "WlanStations").result();
  EXPECT_NE(failure, CFG_ERR_OK);
  EXPECT_EQ(XMLS_Get_Wl0_StatCM(GetElement(GetElement(pstFTMStatElmt, "FTM_STATS"), "BCOM_WIRELESS")), failure);
}

TEST_F(StatisticsFiles, StationsAreNotReadWhenTheDevicesCannotBe) {
  fillEverything();
  for (const char* table : {"NetDev", "WlanStations"})
    unit().setFault(tableFault(table), true);
  readStatistics();
  EXPECT_EQ(text("BCOM_WIRELESS/WIRE_STATIONS"), "NA");
}

TEST_F(StatisticsFiles, StatisticsTwoFailsAndLeavesTheErrorRecordAlone) {
  FTM_FlgErrorTFTP(7, szInLed, 0);
  EXPECT_EQ(TFTP_processGetStatistics2(&pOFileSTAT2, &ulOutSizeSTAT2), -1);
  EXPECT_STREQ(FTM_ErrorTFTP()->psErrMsg, szInLed);
  EXPECT_EQ(FTM_ErrorTFTP()->usErrorCode, 7);
  EXPECT_EQ(pOFileSTAT2, nullptr);
}

TEST_F(StatisticsFiles, StatisticsTwoAnswersWithWhateverTheErrorRecordHolds) {
  ST_TFTP_ERROR* answer = nullptr;
  EXPECT_EQ(getFtmXml(szFTM_Statistics2, &answer), nullptr);
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer->psErrMsg, nullptr);
  FTM_FlgErrorTFTP(0, szTstUnsp, 0);
  EXPECT_EQ(getFtmXml(szFTM_Statistics2, &answer), nullptr);
  ASSERT_NE(answer, nullptr);
  EXPECT_STREQ(answer->psErrMsg, szTstUnsp);
}

TEST_F(StatisticsFiles, EveryFileIsReadByItsName) {
  fillEverything();
  ST_TFTP_ERROR* answer = nullptr;
  for (const char* name : {szFTM_Statistics, szFTM_Stats4port, szFTM_Progress}) {
    EXPECT_NE(getFtmXml(name, &answer), nullptr) << name;
    EXPECT_EQ(answer, nullptr) << name;
  }
}

TEST_F(StatisticsFiles, NoneOfTheFilesCanBeWritten) {
  for (const char* name : {szFTM_Statistics, szFTM_Statistics2, szFTM_Stats4port, szFTM_Progress}) {
    FTM_ClrErrorTFTP();
    char document[] = "<FTM_STATS></FTM_STATS>";
    const ST_TFTP_ERROR* answer = putFtmXml(document, name);
    ASSERT_NE(answer, nullptr) << name;
    EXPECT_STREQ(answer->psErrMsg, szFileNSprt) << name;
  }
}

// Four-port file.

struct SwitchRow {
  const char* link;
  const char* transmitted;
  const char* received;
};

class FourPortFile : public StatisticsFiles {
protected:
  FourPortFile() {
    unit().clearTable("SwitchStat");
    for (int row = 0; row < 5; ++row)
      setRow(row, {"down", "0", "0"});
    setModel("1000");
  }

  static void setModel(std::string_view model) { setCellAt("ProductionData", 0, 0, model); }

  static void setRow(int row, const SwitchRow& values) {
    setCellAt("SwitchStat", row, 0, values.link);
    setCellAt("SwitchStat", row, 3, values.transmitted);
    setCellAt("SwitchStat", row, 4, values.received);
  }

  static int read() {
    std::free(std::exchange(pOFileSTAT4P, nullptr));
    return TFTP_processGetStats4port(&pOFileSTAT4P, &ulOutSizeSTAT4P);
  }

  static std::string port(int number, const char* element) {
    const std::string path = "ETHERNET/PORT_" + std::to_string(number) + "/" + element;
    const char* body = GetElementBody(pstFTMStats4pElmt, path.c_str());
    return body != nullptr ? body : "no such element";
  }
};

TEST_F(FourPortFile, PortsShowTheFirstFourRows) {
  for (int row = 0; row < 5; ++row) {
    const std::string transmitted = std::to_string(10 + row);
    const std::string received = std::to_string(20 + row);
    setRow(row, {"up", transmitted.c_str(), received.c_str()});
  }
  ASSERT_EQ(read(), 0);
  for (int number = 1; number <= 4; ++number) {
    EXPECT_EQ(port(number, "ETH_PORT_ACTIVE"), "YES");
    EXPECT_EQ(port(number, "ETH_IN"), std::to_string(19 + number));
    EXPECT_EQ(port(number, "ETH_OUT"), std::to_string(9 + number));
    EXPECT_EQ(port(number, "ETH_DISCARD_IN"), "Not Support");
    EXPECT_EQ(port(number, "ETH_DISCARD_OUT"), "Not Support");
  }
}

TEST_F(FourPortFile, IsReadInOneSession) {
  ASSERT_EQ(read(), 0);
  EXPECT_THAT(storeCalls, testing::ElementsAre("session 0", "end"));
}

TEST_F(FourPortFile, AModelWith6204AnywhereShiftsThePortsByOneRow) {
  setRow(0, {"down", "0", "0"});
  for (int row = 1; row < 5; ++row)
    setRow(row, {"up", "0", std::to_string(100 + row).c_str()});
  for (const char* model : {"6204", "GW-6204X", "x6204"}) {
    setModel(model);
    FtmClear4PortStat();
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(port(1, "ETH_IN"), "101") << model;
    EXPECT_EQ(port(4, "ETH_IN"), "104") << model;
  }
  for (const char* model : {"620", "62 04", ""}) {
    setModel(model);
    FtmClear4PortStat();
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(port(1, "ETH_PORT_ACTIVE"), "NO") << model;
    EXPECT_EQ(port(4, "ETH_IN"), "103") << model;
  }
}

TEST_F(FourPortFile, LinkTextIsExactlyUp) {
  for (const char* link : {"UP", "up ", " up", "Up", "uplink", "u", ""}) {
    setRow(0, {link, "0", "0"});
    read();
    EXPECT_EQ(port(1, "ETH_PORT_ACTIVE"), "NO") << "'" << link << "'";
    EXPECT_EQ(stPortStatCt[0].stStatCt[eETHPACK_RX].iPortState, eDOWN) << "'" << link << "'";
  }
  setRow(0, {"up", "0", "0"});
  read();
  EXPECT_EQ(port(1, "ETH_PORT_ACTIVE"), "YES");
}

TEST_F(FourPortFile, CountsSurviveALinkThatDrops) {
  std::vector<std::string> shown;
  for (const SwitchRow& row : {SwitchRow{"up", "1", "100"}, SwitchRow{"up", "2", "150"}, SwitchRow{"down", "0", "5"}}) {
    setRow(0, row);
    read();
    shown.push_back(port(1, "ETH_IN") + "/" + port(1, "ETH_OUT"));
  }
  EXPECT_THAT(shown, testing::ElementsAre("100/1", "150/2", "155/2"));
}

TEST_F(FourPortFile, ANegativeOrMissingCountShowsThePreviousTotal) {
  setRow(0, {"up", "7", "100"});
  read();
  setRow(0, {"down", "-1", "-1"});
  read();
  EXPECT_EQ(port(1, "ETH_IN"), "100");
  EXPECT_EQ(port(1, "ETH_OUT"), "7");
  EXPECT_EQ(stPortStatCt[0].stStatCt[eETHPACK_RX].iPortState, eTRANSI_TO_UP);
  unit().clearTable("SwitchStat");
  read();
  EXPECT_EQ(port(1, "ETH_IN"), "100");
  EXPECT_EQ(port(1, "ETH_PORT_ACTIVE"), "NO");
  EXPECT_EQ(stPortStatCt[0].stStatCt[eETHPACK_RX].iPortState, eTRANSI_TO_UP);
}

TEST_F(FourPortFile, CountsBeforeTheActivityTakeTheLinkForDown) {
  setRow(0, {"up", "1", "2"});
  XmlTree element(create_sub_xml_element("PORT_1", 1, 0, nullptr, nullptr, nullptr));
  AddElement(element.get(), create_sub_xml_element("ETH_IN", 1, 0, nullptr, nullptr, nullptr));
  AddElement(element.get(), create_sub_xml_element("ETH_PORT_ACTIVE", 1, 0, nullptr, nullptr, nullptr));
  AddElement(element.get(), create_sub_xml_element("ETH_OUT", 1, 0, nullptr, nullptr, nullptr));
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  const TableSnapshot table(session.get(), "SwitchStat");
  XMLS_Fill_SwEthX_Field(element.get(), 0, table.get());
  EXPECT_EQ(stPortStatCt[0].stStatCt[eETHPACK_RX].iPortState, eDOWN);
  EXPECT_EQ(stPortStatCt[0].stStatCt[eETHPACK_TX].iPortState, eTRANSI_TO_UP);
}

TEST_F(FourPortFile, PortThatTheFileLacksKeepsItsRow) {
  setRow(0, {"up", "1", "2"});
  setRow(1, {"up", "3", "4"});
  pstFTMStats4pElmt = CreateFtmStats4portXml();
  RemoveElements(GetElement(pstFTMStats4pElmt, "ETHERNET"), "PORT_1");
  EXPECT_EQ(read(), 0);
  EXPECT_EQ(port(1, "ETH_IN"), "no such element");
  EXPECT_EQ(port(2, "ETH_IN"), "4");
}

TEST_F(FourPortFile, OtherChildrenOfAPortKeepTheirTexts) {
  XmlTree element(create_sub_xml_element("PORT_1", 1, 0, nullptr, nullptr, nullptr));
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  const TableSnapshot table(session.get(), "SwitchStat");
  XMLS_Fill_SwEthX_Field(element.get(), 0, table.get());
  EXPECT_EQ(GetElements(element.get()), nullptr);
  AddElement(element.get(), create_sub_xml_element("ETH_ERRORS", 1, 0, nullptr, nullptr, "before"));
  XMLS_Fill_SwEthX_Field(element.get(), 0, table.get());
  EXPECT_STREQ(GetElementBody(element.get(), "ETH_ERRORS"), "before");
}

TEST_F(FourPortFile, AnUnreadableModelIsReportedAndThePortsStartAtTheFirstRow) {
  setModel("6204");
  setRow(0, {"up", "0", "33"});
  unit().setFault(tableFault("ProductionData"), true);
  testing::internal::CaptureStderr();
  EXPECT_EQ(read(), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "error: failed to read table: ProductionData\n");
  EXPECT_EQ(recordedMessage(), szCrtXmlFail);
  EXPECT_EQ(port(1, "ETH_IN"), "33");
}

TEST_F(FourPortFile, AnUnreadableSwitchFailsTheFile) {
  unit().setFault(tableFault("SwitchStat"), true);
  testing::internal::CaptureStderr();
  EXPECT_EQ(read(), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "error: failed to read table: SwitchStat\n");
  EXPECT_EQ(recordedMessage(), szCrtXmlFail);
  EXPECT_EQ(pOFileSTAT4P, nullptr);
}

TEST_F(FourPortFile, NoSessionFailsTheFile) {
  unit().setFault(sessionFault, true);
  testing::internal::CaptureStderr();
  EXPECT_EQ(read(), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "error: failed to start session\n");
  EXPECT_EQ(recordedMessage(), szCrtXmlFail);
}

TEST_F(FourPortFile, TotalsOfTenDigitsShowTheLargestOfNine) {
  setRow(0, {"up", "4294967296", "1000000000"});
  EXPECT_EQ(read(), 0);
  EXPECT_EQ(port(1, "ETH_IN"), "999999999");
  EXPECT_EQ(port(1, "ETH_OUT"), "999999999");
}

// Progress file.

TEST_F(StatisticsFiles, ProgressFollowsTheDownload) {
  using Flag = void (*)();
  const std::pair<Flag, Flag> downloads[] = {
      {FlagDwloadINI, DoneDwloadINI}, {FlagDwloadUPG, DoneDwloadUPG}, {FlagDwloadHEX, DoneDwloadHEX}};
  for (const auto& [flag, done] : downloads) {
    flag();
    EXPECT_THAT(TFTP_processGetProgress(), testing::HasSubstr("<DOWNLOAD_STATUS>\r\n    NOT_DONE\r\n"));
    done();
    EXPECT_THAT(TFTP_processGetProgress(), testing::HasSubstr("<DOWNLOAD_STATUS>\r\n    DONE\r\n"));
  }
}

TEST_F(StatisticsFiles, ProgressKeepsItsTextForTheServer) {
  const char* text = TFTP_processGetProgress();
  EXPECT_EQ(text, pOFilePROG);
  EXPECT_EQ(ulOutSizePROG, std::string_view(text).size() + 1);
}

TEST_F(StatisticsFiles, ProgressWithoutItsElementGivesNothing) {
  pstFTMProgElmt = create_sub_xml_element("top", 1, 0, nullptr, nullptr, nullptr);
  EXPECT_EQ(TFTP_processGetProgress(), nullptr);
  EXPECT_EQ(pOFilePROG, nullptr);
  EXPECT_EQ(recordedMessage(), szFileInVid);
}

} // namespace
