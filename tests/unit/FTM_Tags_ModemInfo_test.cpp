#include <gmock/gmock.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <random>

#include "simulator/database.h"
#include "tests/unit/bench_unit.h"
#include "tests/unit/store_calls.h"
#include "tests/unit/virtual_files.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_Tags.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

const std::string fileName = "FTM_ModemInfo.xml";

// How the serializer behaves.
enum class Dump { works, fails, fallsShort };
Dump dump = Dump::works;

std::size_t mostMemory = SIZE_MAX; ///< bytes that can be allocated at once

std::optional<std::string> parsedInstead; ///< the document that the parser takes any for

class ModemInfo : public BenchUnit {
protected:
  ModemInfo() {
    FTM_ClrErrorTFTP();
    std::memset(caE_164Strng, 0, sizeof caE_164Strng);
    storeCalls.clear();
  }
  ~ModemInfo() override { FTM_ExitCleanUp(); }

  /// Reads the file; what is printed on standard error goes to `errors`.
  std::string get() {
    testing::internal::CaptureStderr();
    std::string text = readFile("FTM_ModemInfo.xml");
    errors = testing::internal::GetCapturedStderr();
    return text;
  }

  /// Text of an element of the file.
  std::string shown(const char* tag) {
    std::string text = get();
    const XmlTree document(create_xml_object(text.data()));
    const char* body = GetElementBody(document.get(), (std::string("MODEM_INFO/") + tag).c_str());
    return body == nullptr ? "no element" : body;
  }

  /// Writes a document of these elements; standard output goes to `output`.
  int put(const std::string& elements) { return putText("<MODEM_INFO>" + elements + "</MODEM_INFO>"); }
  int putText(std::string text) {
    testing::internal::CaptureStdout();
    const int status = TFTP_processPutModemInfo(text.data());
    output = testing::internal::GetCapturedStdout();
    return status;
  }

  /// Fills an element of these children from the store; returns their texts in order.
  std::vector<std::string> filled(const std::vector<std::string>& tags) {
    std::string text = "<MODEM_INFO>";
    for (const std::string& tag : tags)
      text.append("<").append(tag).append(">old</").append(tag).append(">");
    text += "</MODEM_INFO>";
    const XmlTree document(create_xml_object(text.data()));
    ST_XML_ELEMENT* info = GetElement(document.get(), "MODEM_INFO");
    testing::internal::CaptureStderr();
    result = XMLS_GetModemInfoCM(info);
    errors = testing::internal::GetCapturedStderr();
    std::vector<std::string> texts;
    for (ST_XML_ELEMENT** child = GetElements(info); *child != nullptr; ++child)
      texts.emplace_back(GetTextBody(*child));
    return texts;
  }

  static std::string production(const char* column) {
    return unit().cell("ProductionData", 0, column).value_or("no cell");
  }

  static void setAt(const char* table, std::size_t position, const char* text) {
    unit().setCell(table, 0, unit().columns(table).at(position), text);
  }

  static void setBootWord(std::int64_t word) {
    gateway::execute(unit().database(), "UPDATE flash SET boot_mode = ?, ftm_mode = ?", word, word);
  }

  std::string errors;
  std::string output;
  int result = 0;
};

std::string element(const std::string& tag, const std::string& text) {
  return "    <" + tag + ">\r\n" + (text.empty() ? "" : "      " + text + "\r\n") + "    </" + tag + ">\r\n";
}

const char* const savedConfigurations[] = {"/NVRM/current.cfg", "/NVRM/current.bak"};

} // namespace

int real_DumpToXML(const ST_XML_ELEMENT* element, char* buffer, unsigned long size, unsigned long* written,
                   int readable, int print, int level) asm("__real__Z9DumpToXMLPK14ST_XML_ELEMENTPcmPmiii");
int wrap_DumpToXML(const ST_XML_ELEMENT* element, char* buffer, unsigned long size, unsigned long* written,
                   int readable, int print, int level) asm("__wrap__Z9DumpToXMLPK14ST_XML_ELEMENTPcmPmiii");

int wrap_DumpToXML(const ST_XML_ELEMENT* element, char* buffer, unsigned long size, unsigned long* written,
                   int readable, int print, int level) {
  const unsigned long room = dump == Dump::fallsShort ? size - 1 : size;
  const int result = real_DumpToXML(element, buffer, room, written, readable, print, level);
  return dump == Dump::fails ? -1 : result;
}

ST_XML_ELEMENT* real_create_xml_object(char* text) asm("__real__Z17create_xml_objectPc");
ST_XML_ELEMENT* wrap_create_xml_object(char* text) asm("__wrap__Z17create_xml_objectPc");

ST_XML_ELEMENT* wrap_create_xml_object(char* text) {
  if (!parsedInstead)
    return real_create_xml_object(text);
  std::string other = *parsedInstead;
  return real_create_xml_object(other.data());
}

extern "C" void* __real_malloc(std::size_t size);
extern "C" void* __wrap_malloc(std::size_t size);
extern "C" void* __wrap_malloc(std::size_t size) {
  return size > mostMemory ? nullptr : __real_malloc(size);
}

// Reading.

TEST_F(ModemInfo, ReadWithoutTheStoreAnswersTheDefaultsByteForByte) {
  unit().setFault("session", true);
  EXPECT_EQ(get(), "  <?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
                   "  <MODEM_INFO>\r\n"
                   "    <MODEL_NUM>\r\n"
                   "      M77-210010-04\r\n"
                   "    </MODEL_NUM>\r\n"
                   "    <SERIAL_NUM>\r\n"
                   "      1234\r\n"
                   "    </SERIAL_NUM>\r\n"
                   "    <MAC_ADDR>\r\n"
                   "      02:1a:2b:00:00:01\r\n"
                   "    </MAC_ADDR>\r\n"
                   "    <PROD_DATE>\r\n"
                   "      01252002\r\n"
                   "    </PROD_DATE>\r\n"
                   "    <PROD_REV>\r\n"
                   "      A\r\n"
                   "    </PROD_REV>\r\n"
                   "    <SOFTWARE_VER>\r\n"
                   "      VER:01.05.06\r\n"
                   "    </SOFTWARE_VER>\r\n"
                   "    <SOFTWARE_DESC>\r\n"
                   "      Quorvane Dual Connect\r\n"
                   "    </SOFTWARE_DESC>\r\n"
                   "    <INI_FILENAME>\r\n"
                   "      Unknown Ini\r\n"
                   "    </INI_FILENAME>\r\n"
                   "    <INI_VERSION>\r\n"
                   "      Unknown Ini Version\r\n"
                   "    </INI_VERSION>\r\n"
                   "    <XCVR_VER>\r\n"
                   "      None\r\n"
                   "    </XCVR_VER>\r\n"
                   "    <XCVR_DESC>\r\n"
                   "      None\r\n"
                   "    </XCVR_DESC>\r\n"
                   "    <SOFTWARE_LOAD>\r\n"
                   "      Unknown\r\n"
                   "    </SOFTWARE_LOAD>\r\n"
                   "    <RELEASE_BUILD_VER>\r\n"
                   "      Unknown\r\n"
                   "    </RELEASE_BUILD_VER>\r\n"
                   "    <FTM_SOFTWARE_VER>\r\n"
                   "      N/A\r\n"
                   "    </FTM_SOFTWARE_VER>\r\n"
                   "    <E_164>\r\n"
                   "      0000\r\n"
                   "    </E_164>\r\n"
                   "    <BOOT_DELAY>\r\n"
                   "      5\r\n"
                   "    </BOOT_DELAY>\r\n"
                   "    <SEC>\r\n"
                   "      N/A\r\n"
                   "    </SEC>\r\n"
                   "  </MODEM_INFO>\r\n");
}

TEST_F(ModemInfo, ReadWithoutTheStoreRecordsItsFailure) {
  unit().setFault("session", true);
  EXPECT_THAT(get(), StartsWith("  <?xml"));
  EXPECT_EQ(errors, "error: failed to start session\n");
  EXPECT_EQ(recordedMessage(), "Fail to Create Xml File");
}

TEST_F(ModemInfo, ReadShowsEveryCellOfTheStoreAtItsPosition) {
  const char* const cells[] = {"model", "serial", "mac", "date", "rev", "e164"};
  for (std::size_t position = 0; position < std::size(cells); ++position)
    setAt("ProductionData", position, cells[position]);
  setAt("AppSwInfo", 2, "software version");
  setAt("AppSwInfo", 4, "release build");
  setAt("ProductType", 0, "description");
  setAt("ProductInfo", 0, "ini name");
  setAt("ProductInfo", 1, "ini version");
  setAt("ProductInfo", 2, "load");
  setAt("Xcvr", 34, "transceiver description");
  setAt("Xcvr", 35, "transceiver version");
  setBootWord(0xFF09);
  gateway::execute(unit().database(), "UPDATE flash SET ftm_version = ?", "FTM 1.2");
  EXPECT_EQ(get(), "  <?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n  <MODEM_INFO>\r\n" +
                       element("MODEL_NUM", "model") + element("SERIAL_NUM", "serial") + element("MAC_ADDR", "mac") +
                       element("PROD_DATE", "date") + element("PROD_REV", "rev") +
                       element("SOFTWARE_VER", "software version") + element("SOFTWARE_DESC", "description") +
                       element("INI_FILENAME", "ini name") + element("INI_VERSION", "ini version") +
                       element("XCVR_VER", "transceiver version") + element("XCVR_DESC", "transceiver description") +
                       element("SOFTWARE_LOAD", "load") + element("RELEASE_BUILD_VER", "release build") +
                       element("FTM_SOFTWARE_VER", "FTM 1.2") + element("E_164", "e164") + element("BOOT_DELAY", "9") +
                       element("SEC", "N/A") + "  </MODEM_INFO>\r\n");
  EXPECT_EQ(errors, "");
  EXPECT_EQ(recordedMessage(), "");
}

TEST_F(ModemInfo, EmptyCellIsShownAsStartAndEndTagOnly) {
  setAt("ProductionData", 0, "");
  EXPECT_THAT(get(), testing::HasSubstr("    <MODEL_NUM>\r\n    </MODEL_NUM>\r\n"));
}

TEST_F(ModemInfo, CellThatTheTableLacksKeepsItsDefault) {
  unit().clearTable("ProductionData");
  EXPECT_EQ(shown("SERIAL_NUM"), "1234");
  EXPECT_EQ(errors, "");
  setBootWord(0xFF08);
  EXPECT_EQ(shown("BOOT_DELAY"), "8");
}

TEST_F(ModemInfo, ColumnThatTheTableLacksKeepsItsDefault) {
  for (const char* column : {"Description", "Version"})
    gateway::execute(unit().database(), std::string("ALTER TABLE \"Xcvr\" DROP COLUMN \"") + column + "\"");
  EXPECT_EQ(shown("XCVR_VER"), "None");
  EXPECT_EQ(shown("XCVR_DESC"), "None");
  EXPECT_EQ(errors, "");
}

TEST_F(ModemInfo, CellsAreShownAsTheyStand) {
  setAt("ProductionData", 1, "<&\"%s%n");
  EXPECT_THAT(get(), testing::HasSubstr("      <&\"%s%n\r\n"));
  const std::string large(20'000, 'x');
  setAt("ProductionData", 1, large.c_str());
  EXPECT_THAT(get(), testing::HasSubstr("      " + large + "\r\n"));
}

TEST_F(ModemInfo, UnreadableProductionDataKeepsItsDefaultsAndTheBootDelays) {
  setBootWord(0xFF09);
  unit().setFault("table ProductionData", true);
  setAt("ProductionData", 1, "S-1");
  EXPECT_EQ(shown("SERIAL_NUM"), "1234");
  EXPECT_EQ(errors, "error: failed to read table: ProductionData\n");
  EXPECT_EQ(shown("BOOT_DELAY"), "5");
  EXPECT_EQ(shown("SOFTWARE_VER"), "01.05.06");
  EXPECT_EQ(recordedMessage(), "Fail to Create Xml File");
}

TEST_F(ModemInfo, EitherUnreadableSoftwareTableKeepsAllDefaultsOfBoth) {
  for (const char* table : {"AppSwInfo", "ProductType"}) {
    const std::string fault = std::string("table ") + table;
    unit().setFault(fault, true);
    EXPECT_THAT(filled({"SOFTWARE_VER", "SOFTWARE_DESC", "RELEASE_BUILD_VER", "FTM_SOFTWARE_VER", "INI_FILENAME"}),
                ElementsAre("old", "old", "old", "old", "factory.ini"));
    EXPECT_EQ(result, -1) << table;
    EXPECT_EQ(errors, std::string("error: failed to read table: ") + table + "\n");
    unit().setFault(fault, false);
  }
}

TEST_F(ModemInfo, UnreadableProductInfoKeepsItsDefaults) {
  unit().setFault("table ProductInfo", true);
  EXPECT_EQ(shown("INI_FILENAME"), "Unknown Ini");
  EXPECT_EQ(errors, "error: failed to read table: ProductInfo\n");
  EXPECT_EQ(shown("SOFTWARE_LOAD"), "Unknown");
  EXPECT_THAT(shown("XCVR_VER"), Not("None"));
}

TEST_F(ModemInfo, UnreadableTransceiverTableKeepsItsDefaults) {
  unit().setFault("table Xcvr", true);
  EXPECT_EQ(shown("XCVR_VER"), "None");
  EXPECT_EQ(errors, "error: failed to read table: Xcvr\n");
  EXPECT_EQ(shown("XCVR_DESC"), "None");
}

TEST_F(ModemInfo, EachUnreadableTableIsReportedAndFailsTheFilling) {
  std::string expected;
  for (const char* table : {"ProductionData", "AppSwInfo", "ProductType", "ProductInfo", "Xcvr"}) {
    const std::string fault = std::string("table ") + table;
    const std::string line = std::string("error: failed to read table: ") + table + "\n";
    unit().setFault(fault, true);
    filled({"MODEL_NUM"});
    EXPECT_EQ(result, -1) << table;
    EXPECT_EQ(errors, line);
    unit().setFault(fault, false);
    expected += line;
  }
  filled({"MODEL_NUM"});
  EXPECT_EQ(result, 0);
  for (const char* table : {"ProductionData", "AppSwInfo", "ProductType", "ProductInfo", "Xcvr"})
    unit().setFault(std::string("table ") + table, true);
  EXPECT_EQ(filled({"MODEL_NUM", "XCVR_VER"}), (std::vector<std::string>{"old", "old"}));
  EXPECT_EQ(result, -1);
  EXPECT_EQ(errors, expected); // of all, in the order in which they are read
}

TEST_F(ModemInfo, FillingWithoutASessionFails) {
  unit().setFault("session", true);
  EXPECT_THAT(filled({"MODEL_NUM", "XCVR_VER"}), ElementsAre("old", "old"));
  EXPECT_EQ(result, -1);
  EXPECT_EQ(errors, "error: failed to start session\n");
  EXPECT_THAT(storeCalls, ElementsAre("session 0"));
}

TEST_F(ModemInfo, UnreadableBootModeIsShownAllTheSame) {
  unit().setFault("request /dev/flshmgmt 38", true);
  EXPECT_EQ(shown("BOOT_DELAY"), "0");
  EXPECT_EQ(recordedMessage(), "");
}

TEST_F(ModemInfo, FillingPassesOverTagsThatItDoesNotKnow) {
  setAt("ProductionData", 0, "model");
  EXPECT_EQ(filled({"NOTHING", "SEC", "MODEL_NUM", "model_num", "MODEL_NUMBER"}),
            (std::vector<std::string>{"old", "old", "model", "old", "old"}));
  EXPECT_EQ(result, 0);
}

TEST_F(ModemInfo, FillingAnElementWithoutChildrenChangesNothing) {
  char text[] = "<MODEM_INFO/>";
  const XmlTree document(create_xml_object(text));
  EXPECT_EQ(XMLS_GetModemInfoCM(GetElement(document.get(), "MODEM_INFO")), 0);
  EXPECT_EQ(GetElements(GetElement(document.get(), "MODEM_INFO")), nullptr);
}

TEST_F(ModemInfo, EachPassEndsAfterItsNumberOfKnownChildrenRepeatedOnesIncluded) {
  struct Case {
    const char* tag;
    std::size_t filled;
  };
  const Case passes[] = {{"SERIAL_NUM", 7},       {"BOOT_DELAY", 7},  {"SOFTWARE_DESC", 4},
                         {"FTM_SOFTWARE_VER", 4}, {"INI_VERSION", 4}, {"XCVR_DESC", 3}};
  for (const Case& pass : passes) {
    const std::vector<std::string> texts = filled(std::vector<std::string>(9, pass.tag));
    for (std::size_t i = 0; i < texts.size(); ++i)
      EXPECT_EQ(texts[i] != "old", i < pass.filled) << pass.tag << " " << i;
  }
}

TEST_F(ModemInfo, ChildrenOfOtherPassesDoNotCountTowardsTheEndOfAPass) {
  setAt("ProductionData", 1, "S-1");
  std::vector<std::string> tags(9, "XCVR_VER");
  tags.emplace_back("SERIAL_NUM");
  EXPECT_EQ(filled(tags).back(), "S-1");
}

TEST_F(ModemInfo, ReadFailsWhenATextIsStillThere) {
  char* text = strdup_xml("an earlier text");
  unsigned long size = 0;
  EXPECT_EQ(TFTP_processGetModemInfo(&text, &size), -1);
  EXPECT_STREQ(text, "an earlier text");
  EXPECT_EQ(recordedMessage(), "Fail to Create Xml File");
  std::free(text);
}

TEST_F(ModemInfo, ReadWhoseDefaultsCannotBeParsedIsRefused) {
  parsedInstead = "";
  const std::string answer = get();
  parsedInstead.reset();
  EXPECT_EQ(answer, "ERROR 0 Fail to Create Xml Data Obj");
  EXPECT_EQ(pOFileMIF, nullptr);
}

TEST_F(ModemInfo, ReadWhoseDefaultsAreOfAnotherElementServesThemAndLeavesTheStoreAlone) {
  parsedInstead = "<OTHER><SERIAL_NUM>old</SERIAL_NUM></OTHER>";
  const std::string answer = get();
  parsedInstead.reset();
  EXPECT_EQ(answer, "  <OTHER>\r\n" + element("SERIAL_NUM", "old") + "  </OTHER>\r\n");
  EXPECT_THAT(storeCalls, IsEmpty());
}

// Making a file of a tree.

TEST_F(ModemInfo, FileOfATreeCountsItsNul) {
  char document[] = "<A>x</A>";
  const XmlTree tree(create_xml_object(document));
  char* text = nullptr;
  unsigned long size = 0;
  EXPECT_EQ(TFTP_createXmlFile(&text, &size, tree.get()), 0);
  EXPECT_STREQ(text, "  <A>\r\n    x\r\n  </A>\r\n");
  EXPECT_EQ(size, std::strlen(text) + 1);
  std::free(text);
}

TEST_F(ModemInfo, TreeWithoutATextMakesNoFile) {
  char document[] = "";
  const XmlTree tree(create_xml_object(document));
  char* text = nullptr;
  unsigned long size = 77;
  EXPECT_EQ(TFTP_createXmlFile(&text, &size, tree.get()), -1);
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(size, 77U);
  EXPECT_EQ(recordedMessage(), "Fail to Create Xml File");
}

TEST_F(ModemInfo, TreeThatIsNotWrittenAsMeasuredMakesNoFile) {
  for (const Dump fault : {Dump::fails, Dump::fallsShort}) {
    dump = fault;
    EXPECT_EQ(get(), "ERROR 0 Fail to Create Xml File");
    EXPECT_EQ(pOFileMIF, nullptr);
  }
  dump = Dump::works;
}

TEST_F(ModemInfo, TextThatMemoryLacksRoomForMakesNoFile) {
  unit().setFault("session", true); // the store needs memory, too
  mostMemory = 500;                 // enough for every part of the tree
  EXPECT_EQ(get(), "ERROR 0 Fail to Create Xml File");
  mostMemory = SIZE_MAX;
  EXPECT_EQ(pOFileMIF, nullptr);
}

// Writing.

TEST_F(ModemInfo, WrittenElementsReachTheirColumns) {
  EXPECT_EQ(put("<MODEL_NUM>m</MODEL_NUM><SERIAL_NUM>s</SERIAL_NUM><MAC_ADDR>02:1a:2b:00:00:09</MAC_ADDR>"
                "<PROD_DATE>d</PROD_DATE><PROD_REV>r</PROD_REV><E_164>5551234</E_164><BOOT_DELAY>3</BOOT_DELAY>"),
            0);
  EXPECT_EQ(production("ModelNum"), "m");
  EXPECT_EQ(production("SerialNum"), "s");
  EXPECT_EQ(production("MacAddr"), "02:1a:2b:00:00:09");
  EXPECT_EQ(production("Date"), "d");
  EXPECT_EQ(production("Revision"), "r");
  EXPECT_EQ(production("E164"), "5551234");
  EXPECT_STREQ(caE_164Strng, "5551234");
  EXPECT_EQ(shown("BOOT_DELAY"), "3");
  EXPECT_EQ(recordedMessage(), "");
  EXPECT_EQ(output, "");
}

TEST_F(ModemInfo, WrittenFileReadsBackTheSame) {
  const std::string before = get();
  EXPECT_EQ(putText(before), 0);
  EXPECT_EQ(get(), before);
}

TEST_F(ModemInfo, ElementsThatTheStationOnlyReadsAreIgnored) {
  const std::string before = get();
  EXPECT_EQ(put("<SOFTWARE_VER>9</SOFTWARE_VER><SOFTWARE_DESC>9</SOFTWARE_DESC><INI_FILENAME>9</INI_FILENAME>"
                "<INI_VERSION>9</INI_VERSION><XCVR_VER>9</XCVR_VER><XCVR_DESC>9</XCVR_DESC>"
                "<SOFTWARE_LOAD>9</SOFTWARE_LOAD><RELEASE_BUILD_VER>9</RELEASE_BUILD_VER>"
                "<FTM_SOFTWARE_VER>9</FTM_SOFTWARE_VER><SEC>9</SEC><NOTHING>9</NOTHING>"),
            0);
  EXPECT_EQ(get(), before);
}

TEST_F(ModemInfo, TextsAreWrittenTrimmedAndDecodedAndNotChecked) {
  EXPECT_EQ(put("<MODEL_NUM>  a &lt;&amp;&gt; b  </MODEL_NUM><MAC_ADDR>not an address</MAC_ADDR>"
                "<SERIAL_NUM>'; DROP TABLE x; --</SERIAL_NUM>"),
            0);
  EXPECT_EQ(production("ModelNum"), "a <&> b");
  EXPECT_EQ(production("MacAddr"), "not an address");
  EXPECT_EQ(production("SerialNum"), "'; DROP TABLE x; --");
}

TEST_F(ModemInfo, ElementWithoutATextEmptiesItsColumn) {
  EXPECT_EQ(put("<MODEL_NUM></MODEL_NUM><SERIAL_NUM/>"), 0);
  EXPECT_EQ(production("ModelNum"), "");
  EXPECT_EQ(production("SerialNum"), "");
}

TEST_F(ModemInfo, OfRepeatedElementsTheLastIsKept) {
  EXPECT_EQ(put("<SERIAL_NUM>1</SERIAL_NUM><SERIAL_NUM>2</SERIAL_NUM>"), 0);
  EXPECT_EQ(production("SerialNum"), "2");
}

TEST_F(ModemInfo, E164NumberIsKeptCutButStoredWhole) {
  const std::string number(200, '7');
  EXPECT_EQ(put("<E_164>" + number + "</E_164>"), 0);
  EXPECT_EQ(production("E164"), number);
  EXPECT_EQ(caE_164Strng, std::string(79, '7'));
}

TEST_F(ModemInfo, WriteOfAnotherElementOnlyCommitsNothingAndSucceeds) {
  const std::string before = get();
  EXPECT_EQ(put("<SEC>secret</SEC>"), 0);
  EXPECT_THAT(journal("write"), IsEmpty());
  EXPECT_THAT(journal("remove"), ElementsAre(savedConfigurations[0], savedConfigurations[1]));
  EXPECT_THAT(storeCalls, ElementsAre("session 0", "end", "session 5 FTM write", "start", "commit", "end"));
  EXPECT_EQ(get(), before);
}

TEST_F(ModemInfo, WriteWithNothingToWriteSucceedsAndRemovesTheSavedConfigurations) {
  for (const char* text : {"<OTHER/>", "<MODEM_INFO></MODEM_INFO>", "<MODEM_INFO/>", "<MODEM_INFO>text</MODEM_INFO>",
                           "<?xml version=1.0?>", "<modem_info><SERIAL_NUM>9</SERIAL_NUM></modem_info>",
                           "<A><MODEM_INFO><SERIAL_NUM>9</SERIAL_NUM></MODEM_INFO></A>"}) {
    const std::size_t before = journal("remove").size();
    unit().setFault("session", true); // none is needed
    EXPECT_EQ(putText(text), 0) << text;
    EXPECT_EQ(journal("remove").size(), before + 2) << text;
  }
  EXPECT_EQ(recordedMessage(), "");
  EXPECT_THAT(journal("write"), IsEmpty());
}

TEST_F(ModemInfo, TextWithoutAnyElementIsRefusedAndNothingIsDone) {
  for (const char* text : {"", "   \r\n", "garbage", "<", "<MODEM_INFO", "<!-- <MODEM_INFO/> ", "&lt;MODEM_INFO&gt;"}) {
    FTM_ClrErrorTFTP();
    EXPECT_EQ(putText(text), -1) << text;
    EXPECT_EQ(recordedMessage(), "Fail to Create Xml Data Obj") << text;
  }
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(ModemInfo, SuccessfulWriteRemovesBothSavedConfigurations) {
  EXPECT_EQ(put("<SERIAL_NUM>9</SERIAL_NUM>"), 0);
  EXPECT_THAT(journal("remove"), ElementsAre(savedConfigurations[0], savedConfigurations[1]));
}

TEST_F(ModemInfo, FailedWriteRemovesBothSavedConfigurationsToo) {
  unit().setFault("commit", true);
  EXPECT_NE(put("<SERIAL_NUM>9</SERIAL_NUM>"), 0);
  EXPECT_THAT(journal("remove"), ElementsAre(savedConfigurations[0], savedConfigurations[1]));
}

TEST_F(ModemInfo, FailedElementEndsTheWriteAndTheOnesBeforeAreRolledBack) {
  unit().setFault("field SerialNum", true);
  EXPECT_EQ(put("<MODEL_NUM>m</MODEL_NUM><E_164>5551234</E_164><SERIAL_NUM>s</SERIAL_NUM><PROD_REV>r</PROD_REV>"
                "<BOOT_DELAY>3</BOOT_DELAY>"),
            -1);
  EXPECT_EQ(output, "FTM write failed on table=ProductionData row=0 col=1(SerialNum) value='s'\n");
  EXPECT_EQ(recordedMessage(), "Write data failed");
  EXPECT_EQ(production("ModelNum"), "M77-210010-04");
  EXPECT_EQ(production("Revision"), "A");
  EXPECT_EQ(production("E164"), "0000");
  EXPECT_STREQ(caE_164Strng, "5551234"); // what was sent, stored or not
  EXPECT_THAT(storeCalls, ElementsAre("session 5 FTM write", "start", "abort", "end"));
  EXPECT_EQ(shown("BOOT_DELAY"), "5");
}

TEST_F(ModemInfo, FailedBootDelayRollsTheWriteBack) {
  unit().setFault("request /dev/flshmgmt 39", true);
  EXPECT_EQ(put("<MODEL_NUM>m</MODEL_NUM><BOOT_DELAY>3</BOOT_DELAY>"), -1);
  EXPECT_EQ(recordedMessage(), "Write data failed");
  EXPECT_EQ(production("ModelNum"), "M77-210010-04");
}

TEST_F(ModemInfo, FailedCommitIsTheResultAndChangesNothing) {
  unit().setFault("commit", true);
  EXPECT_GT(put("<MODEL_NUM>m</MODEL_NUM>"), 0);
  EXPECT_EQ(recordedMessage(), "Write data failed");
  EXPECT_EQ(output, "");
  EXPECT_EQ(production("ModelNum"), "M77-210010-04");
}

TEST_F(ModemInfo, FailedTransactionWritesNothing) {
  unit().setFault("transaction", true);
  EXPECT_GT(put("<BOOT_DELAY>3</BOOT_DELAY><MODEL_NUM>m</MODEL_NUM>"), 0);
  EXPECT_THAT(storeCalls, ElementsAre("session 5 FTM write", "start", "end"));
  EXPECT_EQ(recordedMessage(), "Write data failed");
  EXPECT_EQ(production("ModelNum"), "M77-210010-04");
  EXPECT_EQ(shown("BOOT_DELAY"), "5");
}

TEST_F(ModemInfo, WriteWithoutASessionEndsAtOnceAndRemovesNothing) {
  unit().setFault("session", true);
  EXPECT_EQ(put("<BOOT_DELAY>3</BOOT_DELAY><MODEL_NUM>m</MODEL_NUM>"), -1);
  EXPECT_EQ(recordedMessage(), "");
  EXPECT_THAT(storeCalls, ElementsAre("session 5 FTM write"));
  EXPECT_THAT(journal(), IsEmpty());
}

// Hostile documents.

TEST_F(ModemInfo, FileSurvivesEveryTruncationAndMutationOfAWrite) {
  const std::string before = get();
  testing::internal::CaptureStdout();
  for (std::size_t length = 0; length < before.size(); ++length)
    writeFile(fileName.c_str(), before.substr(0, length));
  std::mt19937 random(20020125);
  constexpr char hostile[] = "<>/!?&;=\"' \r\n\t~%\xff\x01M";
  for (int round = 0; round < 500; ++round) {
    std::string document = before;
    for (int change = 0; change < 8; ++change)
      document[random() % document.size()] = hostile[random() % (sizeof hostile - 1)];
    writeFile(fileName.c_str(), document);
  }
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(writeFile(fileName.c_str(), before), "ACK");
  EXPECT_EQ(get(), before);
}

// MAC addresses.

TEST(MacAddress, IsConvertedWhateverSeparatesItsGroups) {
  for (const char* text : {"02:1a:2b:00:fF:01", "02-1a-2b-00-fF-01", "02x1A 2B900<ff:01"}) {
    char bytes[7] = {'#', '#', '#', '#', '#', '#', '#'};
    EXPECT_EQ(mac_addrSep(bytes, text), 0) << text;
    EXPECT_EQ(std::string(bytes, 7), std::string("\x02\x1a\x2b\x00\xff\x01#", 7)) << text;
  }
}

TEST(MacAddress, OfAnotherFormIsRefusedAndNothingIsWritten) {
  for (const char* text :
       {"", "2:1a:2b:00:00:01", "0g:1a:2b:00:00:01", "02:1a:2b:00:00:0g", "02:1a:2b:00:00:011", "021a2b000001",
        "+2:1a:2b:00:00:01", " 2:1a:2b:00:00:01", "0x:1a:2b:00:00:01", "02:1a:2b:00:00:\xff\xff"}) {
    char bytes[] = "######";
    EXPECT_EQ(mac_addrSep(bytes, text), -1) << text;
    EXPECT_STREQ(bytes, "######") << text;
  }
}
