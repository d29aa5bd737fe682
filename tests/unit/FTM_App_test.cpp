#include "userapps/FTM/FTM_App.h"

#include <gmock/gmock.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "tests/unit/bench_unit.h"
#include "tests/unit/virtual_files.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_Tags.h"

using testing::IsEmpty;
using testing::StartsWith;

namespace {

const std::string notSupported = "ERROR 0 File Not Supported";

class VirtualFiles : public BenchUnit {
protected:
  VirtualFiles() {
    unFtmState.usWd = 0;
    FTM_ClrErrorTFTP();
  }
  ~VirtualFiles() override {
    FTM_ExitCleanUp();
    for (ST_XML_ELEMENT** tree :
         {&pstTestModeOpElmt, &pstTestModeCfgElmt, &pstFTMStatElmt, &pstFTMStats4pElmt, &pstFTMProgElmt}) {
      destroy_xml_object(*tree);
      *tree = nullptr;
    }
  }
};

struct RetainedFile {
  const char* name;
  char** text;
  unsigned long* size; // null: not reported
};

const RetainedFile retainedFiles[] = {
    {"FTM_ModemInfo.xml", &pOFileMIF, &ulOutSizeMIF},
    {"FTM_TestModeOp.xml", &pOFileTMO, &ulOutSizeTMO},
    {"FTM_TestModeCfg.xml", &pOFileTMC, nullptr},
    {"FTM_Statistics.xml", &pOFileSTAT, &ulOutSizeSTAT},
    {"FTM_Stats_4port.xml", &pOFileSTAT4P, &ulOutSizeSTAT4P},
};
const char* const readOnlyFiles[] = {"FTM_Statistics.xml", "FTM_Statistics2.xml", "FTM_Progress.xml",
                                     "FTM_Stats_4port.xml"};
const char* const writableFiles[] = {"FTM_ModemInfo.xml", "FTM_TestModeOp.xml", "FTM_TestModeCfg.xml"};
const char* const unknownNames[] = {"",
                                    "FTM_ModemInfo",
                                    "FTM_ModemInfo.xm",
                                    "FTM_ModemInfo.xml ",
                                    "FTM_ModemInfo.xmlx",
                                    " FTM_ModemInfo.xml",
                                    "ftm_modeminfo.xml",
                                    "FTM_MODEMINFO.XML",
                                    "/FTM_ModemInfo.xml",
                                    "../../etc/passwd",
                                    "config.txt",
                                    "%s%n",
                                    "\xff\xfe"};

char* heapText(const char* text) {
  return strdup_xml(text);
}

} // namespace

// Reading.

TEST_F(VirtualFiles, EveryFileButTheSecondStatisticsCanBeRead) {
  for (const char* name : {"FTM_ModemInfo.xml", "FTM_TestModeOp.xml", "FTM_TestModeCfg.xml", "FTM_Statistics.xml",
                           "FTM_Progress.xml", "FTM_Stats_4port.xml"})
    EXPECT_THAT(readFile(name), StartsWith("  <?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n")) << name;
}

TEST_F(VirtualFiles, EachNameReadsAFileOfItsOwn) {
  const std::pair<const char*, const char*> documents[] = {
      {"FTM_ModemInfo.xml", "<MODEM_INFO>"},     {"FTM_TestModeOp.xml", "<SUPPORTED_TESTS>"},
      {"FTM_TestModeCfg.xml", "<TEST_CONFIG>"},  {"FTM_Statistics.xml", "<FTM_STATS>"},
      {"FTM_Progress.xml", "<DOWNLOAD_STATUS>"}, {"FTM_Stats_4port.xml", "<ETHERNET>"},
  };
  for (const auto& [name, element] : documents)
    EXPECT_THAT(readFile(name), testing::HasSubstr(std::string("\r\n  ") + element + "\r\n")) << name;
}

TEST_F(VirtualFiles, UnknownNamesAreRefusedForReading) {
  for (const char* name : unknownNames) {
    FTM_ClrErrorTFTP();
    EXPECT_EQ(readFile(name), notSupported) << name;
  }
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(VirtualFiles, ReadThatWorksClearsTheCallersErrorButNotTheRecord) {
  FTM_FlgErrorTFTP(0, szWrFail, 0);
  ST_TFTP_ERROR* error = FTM_ErrorTFTP();
  EXPECT_NE(getFtmXml("FTM_Progress.xml", &error), nullptr);
  EXPECT_EQ(error, nullptr);
  EXPECT_EQ(recordedMessage(), "Write data failed");
}

TEST_F(VirtualFiles, FailedReadAnswersTheRecordAsTheReaderLeftIt) {
  ST_TFTP_ERROR* error = nullptr;
  EXPECT_EQ(getFtmXml("FTM_Statistics2.xml", &error), nullptr);
  EXPECT_EQ(error, FTM_ErrorTFTP());
  EXPECT_EQ(answerFor(error), "ERROR 0 ");
}

TEST_F(VirtualFiles, ReadTextIsKeptByTheDispatcherAndItsSizeCountsTheNul) {
  for (const RetainedFile& file : retainedFiles) {
    ST_TFTP_ERROR* error = nullptr;
    const char* text = getFtmXml(file.name, &error);
    ASSERT_NE(text, nullptr) << file.name;
    EXPECT_EQ(text, *file.text) << file.name;
    if (file.size != nullptr) {
      EXPECT_EQ(*file.size, std::strlen(text) + 1) << file.name;
    }
  }
}

// A text that was not freed is reported as a leak; one that was not forgotten makes the second read fail.
TEST_F(VirtualFiles, SecondReadFreesTheFirstTextBeforeProducingItsOwn) {
  for (const RetainedFile& file : retainedFiles) {
    *file.text = heapText("the text of an earlier read");
    const std::string first = readFile(file.name);
    EXPECT_THAT(first, StartsWith("  <?xml")) << file.name;
    EXPECT_THAT(readFile(file.name), StartsWith("  <?xml")) << file.name;
  }
}

TEST_F(VirtualFiles, FailedReadLeavesNoTextBehind) {
  pOFileSTAT2 = heapText("the text of an earlier read");
  EXPECT_EQ(readFile("FTM_Statistics2.xml"), "ERROR 0 ");
  EXPECT_EQ(pOFileSTAT2, nullptr);
}

TEST_F(VirtualFiles, ReadingOneFileKeepsTheTextsOfTheOthers) {
  const std::string info = readFile("FTM_ModemInfo.xml");
  const char* kept = pOFileMIF;
  readFile("FTM_TestModeOp.xml");
  readFile("FTM_Progress.xml");
  readFile("no such file");
  EXPECT_EQ(pOFileMIF, kept);
  EXPECT_EQ(pOFileMIF, info);
}

// Writing.

TEST_F(VirtualFiles, UnknownNamesAreRefusedForWriting) {
  for (const char* name : unknownNames) {
    FTM_ClrErrorTFTP();
    EXPECT_EQ(writeFile(name, "<MODEM_INFO><MODEL_NUM>X</MODEL_NUM></MODEM_INFO>"), notSupported) << name;
  }
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(VirtualFiles, StatisticsProgressAndFourPortFilesAreReadOnly) {
  for (const char* name : readOnlyFiles) {
    FTM_ClrErrorTFTP();
    EXPECT_EQ(writeFile(name, "<FTM_STATS/>"), notSupported) << name;
  }
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(VirtualFiles, StatisticsRefuseAWriteAndCanStillBeRead) {
  const std::string before = readFile("FTM_Statistics.xml");
  const char* kept = pOFileSTAT;
  EXPECT_EQ(writeFile("FTM_Statistics.xml", "<FTM_STATS/>"), notSupported);
  EXPECT_EQ(pOFileSTAT, kept);
  EXPECT_EQ(readFile("FTM_Statistics.xml"), before);
}

TEST_F(VirtualFiles, WriteFreesTheTextOfThatNameEvenWhenItFails) {
  const auto retained = [] { return std::array{pOFileMIF != nullptr, pOFileTMO != nullptr, pOFileTMC != nullptr}; };
  for (const char* name : writableFiles)
    readFile(name);
  EXPECT_EQ(retained(), (std::array{true, true, true}));
  writeFile("FTM_ModemInfo.xml", "garbage");
  EXPECT_EQ(retained(), (std::array{false, true, true}));
  writeFile("FTM_TestModeOp.xml", "garbage");
  EXPECT_EQ(retained(), (std::array{false, false, true}));
  writeFile("FTM_TestModeCfg.xml", "garbage");
  EXPECT_EQ(retained(), (std::array{false, false, false}));
}

TEST_F(VirtualFiles, EachWritableNameReachesItsHandler) {
  EXPECT_EQ(writeFile("FTM_ModemInfo.xml", "<MODEM_INFO><SERIAL_NUM>S-1</SERIAL_NUM></MODEM_INFO>"), "ACK");
  EXPECT_EQ(unit().cell("ProductionData", 0, "SerialNum"), "S-1");
  EXPECT_EQ(writeFile("FTM_TestModeOp.xml", "<ENTER_TEST><AUTO_PAIR/></ENTER_TEST>"), "ACK");
  EXPECT_EQ(unFtmState.usWd, autoPairTestMask);
  EXPECT_EQ(writeFile("FTM_TestModeCfg.xml", "<TEST_CONFIG><NOTHING/></TEST_CONFIG>"), "ERROR 0 Test not supported");
}

TEST_F(VirtualFiles, SuccessfulWriteIsAcknowledgedWhateverTheRecordHolds) {
  FTM_FlgErrorTFTP(3, szWrFail, 0);
  EXPECT_EQ(writeFile("FTM_ModemInfo.xml", "<MODEM_INFO/>"), "ACK");
  EXPECT_EQ(recordedMessage(), "code 3: Write data failed");
}

// Hostile documents. Whatever comes, the file that a station reads next is the one that it read before.

namespace {

std::string nested(const std::string& tag, int depth) {
  std::string text;
  for (int level = 0; level < depth; ++level)
    text += "<" + tag + ">";
  return text;
}

std::vector<std::string> hostileDocuments() {
  std::vector<std::string> documents = {
      "",
      "<",
      ">",
      "</",
      "<>",
      "</>",
      "<//>",
      "<!",
      "<!>",
      "<!<<<>>",
      "<?",
      "<?xml",
      "<?xml?>",
      "<?xml =?>",
      "garbage",
      "&lt;MODEM_INFO&gt;",
      "\xff\xfe\x01\x02",
      "%s%n%x",
      std::string(7600, '<'),
      std::string(7600, '>'),
      std::string(7600, '&'),
      std::string(7600, ' '),
      std::string(7600, '~'),
      nested("a", 2500),
      nested("", 3700),
      nested("MODEM_INFO", 600),
      nested("TEST_CONFIG", 600),
      nested("ENTER_TEST", 600),
      "<!DOCTYPE x [<!ENTITY a \"&b;&b;\"><!ENTITY b \"&c;&c;\">]><x>&a;</x>",
      "<" + std::string(7000, 'n') + ">",
      "<a " + std::string(7000, 'n') + "=\"v\"/>",
      "<a n=\"" + std::string(7000, 'v') + "\"/>",
      "<a n=\"" + std::string(7000, 'v'),
  };
  for (const char* root : {"MODEM_INFO", "TEST_CONFIG", "ENTER_TEST", "LED", "xml", "top"}) {
    const std::string start = std::string("<") + root + ">";
    documents.push_back(start);
    documents.push_back(start + "<");
    documents.push_back(start + nested("b", 200));
    documents.push_back(start + "<a>" + std::string(7000, 'x') + "</a>");
    documents.push_back(start + "<a>&amp;amp;amp;lt;</a></" + root);
  }
  return documents;
}

} // namespace

TEST_F(VirtualFiles, HostileDocumentsLeaveEveryFileAsItWas) {
  testing::internal::CaptureStdout(); // the console tells of what the refreshes do not find
  testing::internal::CaptureStderr();
  std::vector<std::string> before;
  for (const char* name : writableFiles)
    before.push_back(readFile(name));
  for (const std::string& document : hostileDocuments())
    for (std::size_t file = 0; file < std::size(writableFiles); ++file) {
      writeFile(writableFiles[file], document);
      ASSERT_EQ(readFile(writableFiles[file]), before[file])
          << writableFiles[file] << " after " << document.substr(0, 60);
    }
  testing::internal::GetCapturedStdout();
  testing::internal::GetCapturedStderr();
  EXPECT_THAT(journal("write"), IsEmpty());
}

TEST_F(VirtualFiles, HostileIniFilesAreRefusedOrChangeNothing) {
  const std::string before = readFile("FTM_ModemInfo.xml");
  testing::internal::CaptureStdout();
  for (const std::string& text : hostileDocuments())
    writeFile("config.ini", text);
  for (const char* text : {"[", "[]", "[ProductionData", "=", "=\n=", "[control]\nreboot = 99999999999\n",
                           "[ProductionData]\n= x\n", "[ProductionData]\nSerialNum\n", "[%s%n]\n%s = %n\n"})
    writeFile("config.ini", text);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(readFile("FTM_ModemInfo.xml"), before);
  EXPECT_THAT(journal("signal"), IsEmpty());
}

// Extensions.

TEST_F(VirtualFiles, WritingAnIniFileAppliesIt) {
  EXPECT_EQ(writeFile("config.ini", "[ProductionData]\nSerialNum = 4711\n[control]\nreset = 0\n"), "ACK");
  EXPECT_EQ(unit().cell("ProductionData", 0, "SerialNum"), "4711");
}

TEST_F(VirtualFiles, IniFileNeedsNoNameBeforeItsExtension) {
  EXPECT_EQ(writeFile(".ini", "[ProductionData]\nSerialNum = 4712\n[control]\nreset = 0\n"), "ACK");
  EXPECT_EQ(unit().cell("ProductionData", 0, "SerialNum"), "4712");
}

TEST_F(VirtualFiles, OnlyTheTextFromTheFirstDotIsAnExtension) {
  for (const char* name : {"a.b.ini", "config.ini.ini", "config..ini", "config.INI", "config.inix", "config.in", "ini",
                           "a.b.upg", "a.b.hex", "image.UPG", "image.hexx"}) {
    FTM_ClrErrorTFTP();
    EXPECT_EQ(writeFile(name, "[ProductionData]\nSerialNum = 4713\n"), notSupported) << name;
  }
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(VirtualFiles, FirmwareImagesAreAcceptedAndNothingIsDone) {
  FTM_FlgErrorTFTP(0, szInVoip, 0);
  EXPECT_EQ(writeFile("image.upg", "[ProductionData]\nSerialNum = 4714\n"), "ACK");
  EXPECT_EQ(writeFile("image.hex", ":00000001FF\n"), "ACK");
  EXPECT_THAT(journal(), IsEmpty());
  EXPECT_EQ(recordedMessage(), "FTM VOIP Test in Progress");
}

TEST_F(VirtualFiles, ExtensionsCanNotBeRead) {
  for (const char* name : {"config.ini", "image.upg", "image.hex"})
    EXPECT_EQ(readFile(name), notSupported) << name;
}

TEST_F(VirtualFiles, FlagsAreSetWhileAnIniFileIsAppliedOnly) {
  std::string seen = "no reboot";
  unit().onReboot = [&] { seen = std::to_string(IsFileFromFtm()) + std::to_string(DwLoadStatus()); };
  EXPECT_EQ(writeFile("config.ini", "[control]\nreboot = 1\nreset = 0\n"), "ACK");
  EXPECT_EQ(seen, "11");
  EXPECT_EQ(IsFileFromFtm(), 0);
  EXPECT_EQ(DwLoadStatus(), 0);
}

TEST_F(VirtualFiles, RefusedIniFileClearsTheFlagsToo) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(writeFile("config.ini", "[NoSuchTable]\nx = 1\n"), "ERROR 0 Write data failed");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Process INI Fail!");
  EXPECT_EQ(IsFileFromFtm(), 0);
  EXPECT_EQ(DwLoadStatus(), 0);
}

// The error record.

TEST(ErrorRecord, IsEmptyOnceCleared) {
  FTM_FlgErrorTFTP(3, szWrFail, 0);
  FTM_ClrErrorTFTP();
  EXPECT_EQ(FTM_ErrorTFTP()->usErrorCode, 0);
  EXPECT_EQ(FTM_ErrorTFTP()->psErrMsg, nullptr);
  EXPECT_EQ(FTM_HasErrorTFTP(), nullptr);
}

TEST(ErrorRecord, KeepsCodeAndMessage) {
  FTM_FlgErrorTFTP(3, szFileInVid, ledTestMask);
  ASSERT_NE(FTM_HasErrorTFTP(), nullptr);
  EXPECT_EQ(FTM_HasErrorTFTP(), FTM_ErrorTFTP());
  EXPECT_EQ(FTM_ErrorTFTP()->usErrorCode, 3);
  EXPECT_STREQ(FTM_ErrorTFTP()->psErrMsg, "Xml File InValid");
}

TEST(ErrorRecord, WithoutAMessageNamesTheFirstActiveTest) {
  const std::pair<unsigned int, const char*> choices[] = {
      {0x8000, "FTM LED Test in Progress"},
      {0x4000, "FTM Reset Switch Test in Progress"},
      {0x2000, "FTM Through Put Test in Progress"},
      {0x0200, "FTM VOIP Test in Progress"},
      {0xFFFF, "FTM LED Test in Progress"},
      {0x7FFF, "FTM Reset Switch Test in Progress"},
      {0x3FFF, "FTM Through Put Test in Progress"},
      {0x1FFF, "FTM VOIP Test in Progress"},
      {0x1DFF, nullptr}, // no other test has a message
      {0x0000, nullptr},
  };
  for (const auto& [activeTests, message] : choices) {
    FTM_FlgErrorTFTP(0, nullptr, static_cast<std::uint16_t>(activeTests));
    EXPECT_STREQ(FTM_ErrorTFTP()->psErrMsg, message) << std::hex << activeTests;
  }
}

TEST(ErrorRecord, WithoutAMessageAndATestHoldsNoErrorButTheCode) {
  FTM_FlgErrorTFTP(4, nullptr, 0);
  EXPECT_EQ(FTM_HasErrorTFTP(), nullptr);
  EXPECT_EQ(FTM_ErrorTFTP()->usErrorCode, 4);
}

TEST(ErrorRecord, MessagesAreThoseThatTheStationKnows) {
  const std::pair<const char*, const char*> messages[] = {
      {szWrFail, "Write data failed"},
      {szTstUnsp, "Test not supported"},
      {szInLed, "FTM LED Test in Progress"},
      {szInRsSw, "FTM Reset Switch Test in Progress"},
      {szInThrPut, "FTM Through Put Test in Progress"},
      {szWrTCFail, "Write test config failed"},
      {szFileInVid, "Xml File InValid"},
      {szFileNSprt, "File Not Supported"},
      {szCrtXobjFail, "Fail to Create Xml Data Obj"},
      {szCrtXmlFail, "Fail to Create Xml File"},
      {szNoCmdFnd, "No Command Found"},
      {szInVoip, "FTM VOIP Test in Progress"},
  };
  for (const auto& [constant, text] : messages)
    EXPECT_STREQ(constant, text);
}

// Flags.

TEST(DownloadFlags, FileFromTheStationIsFlaggedUntilCleared) {
  FlagFileFromFtm();
  EXPECT_EQ(IsFileFromFtm(), 1);
  ClearFileFromFtmFlag();
  EXPECT_EQ(IsFileFromFtm(), 0);
}

TEST(DownloadFlags, EveryKindOfDownloadShowsUntilItIsDone) {
  const std::pair<void (*)(), void (*)()> downloads[] = {
      {FlagDwloadINI, DoneDwloadINI}, {FlagDwloadUPG, DoneDwloadUPG}, {FlagDwloadHEX, DoneDwloadHEX}};
  for (const auto& [flag, done] : downloads) {
    flag();
    EXPECT_EQ(DwLoadStatus(), 1);
    done();
    EXPECT_EQ(DwLoadStatus(), 0);
  }
}
