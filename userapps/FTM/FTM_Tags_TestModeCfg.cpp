// The test configuration file: its tree, a read and a write.
#include <cstdlib>
#include <cstring>

#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Tags.h"
#include "userapps/FTM/VoipTask.h"
#include "userapps/FTM/WrLsTask.h"

ST_XML_ELEMENT* pstTestModeCfgElmt;

namespace {

// The parser needs no quotes around the declaration's values; what a station reads has them. RW is shown only: the
// permission functions decide.
constexpr char testModeCfgTemplate[] = "<?xml version=1.0 encoding=UTF-8?><TEST_CONFIG>"
                                       "  <LED>"
                                       "     <SESSION_LED RW=\"F\"> UNDEFINE  </SESSION_LED>"
                                       "     <READY_GREEN_LED RW=\"T\"> ON  </READY_GREEN_LED>"
                                       "     <READY_RED_LED RW=\"T\"> ON  </READY_RED_LED>"
                                       "     <ETHER_LED RW=\"T\"> ON  </ETHER_LED>"
                                       "     <USB_LED RW=\"T\"> ON  </USB_LED>"
                                       "     <WPS_LED RW=\"T\"> ON  </WPS_LED>"
                                       "     <ALL_LEDS RW=\"T\"> OFF  </ALL_LEDS>"
                                       "     <SINGLE_LED NUM=\"0\" MODE=\"OFF\"></SINGLE_LED>"
                                       "  </LED>"
                                       "  <THROUGHPUT VPI=\"0\" VCI=\"35\">"
                                       "     <READY_STATUS RW=\"F\"> READY  </READY_STATUS>"
                                       "  </THROUGHPUT>"
                                       "  <ETHER_PORT>"
                                       "     <ETHER_PORT_SPD RW=\"F\"> UNKNOWN  </ETHER_PORT_SPD>"
                                       "  </ETHER_PORT>"
                                       "  <AUTO_PAIR>"
                                       "     <AUTO_MODE RW=\"T\"> UNKNOWN  </AUTO_MODE>"
                                       "  </AUTO_PAIR>"
                                       "  <BCOM_WIRELESS>"
                                       "     <SSID> NA </SSID>"
                                       "     <CHANNEL> NA </CHANNEL>"
                                       "     <MAC_ADDR> NA </MAC_ADDR>"
                                       "     <DOMAIN> NA </DOMAIN>"
                                       "  </BCOM_WIRELESS>"
                                       "  <RESET_SWITCH>"
                                       "     <RESET_SW_STATUS RW=\"F\"> OPEN  </RESET_SW_STATUS>"
                                       "  </RESET_SWITCH>"
                                       "  <WPS_SWITCH>"
                                       "     <WPS_SW_STATUS RW=\"F\"> OPEN  </WPS_SW_STATUS>"
                                       "  </WPS_SWITCH>"
                                       "  <USB>"
                                       "     <HOST> NA </HOST>"
                                       "     <CHANNEL> NA </CHANNEL>"
                                       "     <ID> NA </ID>"
                                       "     <LUN> NA </LUN>"
                                       "     <VENDOR> NA </VENDOR>"
                                       "     <MODEL> NA </MODEL>"
                                       "     <REV> NA </REV>"
                                       "     <TYPE> NA </TYPE>"
                                       "     <ANSI_SCSI_REV> NA </ANSI_SCSI_REV>"
                                       "  </USB>"
                                       "</TEST_CONFIG>";
static_assert(sizeof testModeCfgTemplate == 1220);

constexpr int storeRange = 1;

struct SectionParser {
  const char* tag;
  int (*parse)(ST_XML_ELEMENT* section, int* piretval);
};

// The sections that a document may hold. The file shows others, which are read-only.
constexpr SectionParser sectionParsers[] = {
    {"LED", FTM_ParseTagLED},
    {"THROUGHPUT", FTM_ParseTagTHRPUT},
    {"AUTO_PAIR", FTM_ParseTagAutoPair},
    {"BCOM_WIRELESS", [](ST_XML_ELEMENT* section, int*) { return FTM_ParseTagBCOM_WIRELESS(section); }},
    {"ETHER_PORT", FTM_ParseTagEtherPort},
    {"VOIP", FTM_ParseTagVOIP},
};

int fail(const char* message) {
  FTM_FlgErrorTFTP(0, message, 0);
  return -1;
}

int parseSection(ST_XML_ELEMENT* section, int* piretval) {
  for (const SectionParser& parser : sectionParsers)
    if (std::strcmp(GetTag(section), parser.tag) == 0)
      return parser.parse(section, piretval);
  return fail(szTstUnsp);
}

const char* pairText(int pair, int mode) {
  if (mode != 0)
    return "AUTO";
  if (pair == 0)
    return "INNER";
  return pair == 1 ? "OUTER" : "UNKNOWN";
}

} // namespace

ST_XML_ELEMENT* CreateTestModeCfgXml() {
  char text[sizeof testModeCfgTemplate]; // the parser cuts its text in place
  std::memcpy(text, testModeCfgTemplate, sizeof text);
  return create_xml_object(text);
}

ST_XML_ELEMENT* GetElmtPtr(ST_XML_ELEMENT* pXmlTop, const char* pcL1, const char* pcL2, const char* pcL3) {
  ST_XML_ELEMENT* element = pXmlTop == nullptr || pcL1 == nullptr ? nullptr : GetElement(pXmlTop, pcL1);
  if (element != nullptr && pcL2 != nullptr) {
    element = GetElement(element, pcL2);
    if (element != nullptr && pcL3 != nullptr)
      element = GetElement(element, pcL3);
  }
  if (element == nullptr)
    FTM_FlgErrorTFTP(0, szFileInVid, 0);
  return element;
}

char* TFTP_processGetTestModeCfg() {
  std::free(pOFileTMC);
  pOFileTMC = nullptr;
  const ST_XML_ELEMENT* tree = TestModeCfgTree();
  // A section that can't be refreshed is shown as it was, and the file is still served.
  FtmUpdLedsAndButtons();
  FtmUpdateThrPut();
  FtmUpdPSD_SETTING();
  FtmUpdateMultiHybrid();
  FtmUpdateAutoPair();
  FtmUpdateWireless();
  FtmUpdateUSB();
  return TFTP_createXmlFile(&pOFileTMC, &ulOutSizeTMC, tree) == 0 ? pOFileTMC : nullptr;
}

int TFTP_processPutTestModeCfg(char* pszXmlData) {
  const XmlTree document(create_xml_object(pszXmlData));
  const ST_XML_ELEMENT* config = GetElement(document.get(), "TEST_CONFIG");
  if (config == nullptr)
    return fail(szFileInVid);
  TestModeCfgTree();
  int result = 0;
  int retval = 0;
  for (ST_XML_ELEMENT** section = GetElements(config); section != nullptr && *section != nullptr; ++section) {
    result = parseSection(*section, &retval);
    if (result == -1)
      return -1;
  }
  return result;
}

int FtmUpdateThrPut() {
  ST_XML_ELEMENT* throughput = GetElmtPtr(TestModeCfgTree(), "TEST_CONFIG", "THROUGHPUT", nullptr);
  if (throughput == nullptr)
    return -1;
  XMLS_SetAttrValueCM(throughput, storeRange);
  ST_XML_ELEMENT* status = GetElement(throughput, "READY_STATUS");
  if (status == nullptr)
    return fail(szFileInVid);
  const bool ready = unFtmState.stbF.bThrPutTst != 0 && WANM_FTMReadyForData() != 0;
  SetTextBody(status, ready ? "READY" : "NOT_READY");
  return 0;
}

int FtmUpdateMultiHybrid() {
  ST_XML_ELEMENT* mode = GetElmtPtr(TestModeCfgTree(), "TEST_CONFIG", "MULTI_HYBRID", "MULTI_MODE");
  if (mode == nullptr)
    return -1;
  SetTextBody(mode, "UNKNOWN");
  return 0;
}

int FtmUpdateAutoPair() {
  ST_XML_ELEMENT* mode = GetElmtPtr(TestModeCfgTree(), "TEST_CONFIG", "AUTO_PAIR", "AUTO_MODE");
  if (mode == nullptr)
    return -1;
  int pair = 0;
  int automatic = 0;
  TRANCVR_FtmApStats(&pair, &automatic);
  SetTextBody(mode, pairText(pair, automatic));
  return 0;
}
