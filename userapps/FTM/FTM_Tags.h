#pragma once
// One handler per virtual file, and the tag parsers. TFTP server task only. Handlers that return int
// return 0 for success; otherwise the error record says what is wrong.

#include "platform/cfg_api.h"
#include "userapps/FTM/xml_parser.h"

/// Serialises a tree into a new buffer for the caller; `*ppOutFile` must be null. `*pOutSize` counts
/// the terminating NUL. Returns 0, or -1.
int TFTP_createXmlFile(char** ppOutFile, unsigned long* pOutSize, const ST_XML_ELEMENT* pXmlResp);

// Modem information file.

int TFTP_processGetModemInfo(char** ppOutFile, unsigned long* pOutFileSize);
int TFTP_processPutModemInfo(char* pszXmlData);
/// Fills the children of "MODEM_INFO" from the store. Returns 0, or -1 when a table could not be read.
int XMLS_GetModemInfoCM(ST_XML_ELEMENT* pXmlInfo);
/// Converts a MAC address text of 17 characters, any separators, to 6 bytes. Returns 0, or -1.
int mac_addrSep(char* macAddr, const char* ansiiHex);

extern char caE_164Strng[80]; ///< the last E.164 number written

// Test-mode operation file.

extern int bResetSwTest;                  ///< 1 while the reset-switch test runs
extern ST_XML_ELEMENT* pstTestModeOpElmt; ///< tree of the last read of the file

/// Builds the file into pOFileTMO and ulOutSizeTMO; the parameters are not used.
int TFTP_processGetTestModeOp(char** ppOutFile, unsigned long* pOutSize);
/// Carries out the one command of a received text. Returns 0, 1 for an ENTER_TEST that failed, or -1.
int TFTP_processPutTestModeOp(char* pszXmlData);
/// The commands of the file; each takes the document's root. -1 hands the document on to the next one.
int ProcessENTER_TEST(ST_XML_ELEMENT* pstXmlElmt);
int ProcessEXIT_TEST(ST_XML_ELEMENT* pstXmlElmt);
int ProcessSysCmd(ST_XML_ELEMENT* pstXmlElmt);
/// Ends all tests and frees the texts of all test-mode files, for an orderly exit.
void FTM_ExitCleanUp();
int getFtmResetSwTest();

// Actions of the tests and commands. Most are hooks without a task on this gateway.

void FtmActionLedTst();
void FtmActionExitLedTst();
void FtmActionRsSwTst();
void FtmActionExitRsSwTst();
int FtmActionThrPutTst(ST_XML_ELEMENT* pXml);
void FtmActionExitThrPutTst();
void FtmActionMultiHybridTst();
void FtmActionExitMultiHybridTst();
void FtmActionAutoPairTst();
void FtmActionExitAutoPairTst();
void FtmActionTPutREADY();
void FtmActionTPutNOT_READY();
void FtmActionReSync();
void FtmActionReboot();
void FtmActionRbSaveBoot();
void FtmActionVpiVciSys(int bHaveVpiVci, unsigned short usVPInum, unsigned short usVCInum);

// Test configuration file.

extern ST_XML_ELEMENT* pstTestModeCfgElmt; ///< tree of the file, null until it is first used

/// Builds the tree from its template. The caller owns it.
ST_XML_ELEMENT* CreateTestModeCfgXml();
/// Element at a path of up to three tags below `pXmlTop`; a null tag ends the path early. Null, with
/// "Xml File InValid" in the error record, when there is none.
ST_XML_ELEMENT* GetElmtPtr(ST_XML_ELEMENT* pXmlTop, const char* pcL1, const char* pcL2, const char* pcL3);

/// The file's tree, built on first use.
inline ST_XML_ELEMENT* TestModeCfgTree() {
  if (pstTestModeCfgElmt == nullptr)
    pstTestModeCfgElmt = CreateTestModeCfgXml();
  return pstTestModeCfgElmt;
}

/// Refreshes the tree from the unit and serialises it. Returns pOFileTMC, or null.
char* TFTP_processGetTestModeCfg();
/// Runs the parser of each section of a received text, up to the first that fails. Returns the last parser's result, or
/// -1.
int TFTP_processPutTestModeCfg(char* pszXmlData);

// Refreshes of the tree for a read. Results are 0, or -1 when the tree lacks the element.

int FtmUpdateThrPut();
/// The file has no such element: -1, with "Xml File InValid" left in the error record.
int FtmUpdateMultiHybrid();
int FtmUpdateAutoPair();

// Tests that are set by two attributes, given by the addresses of their names and values; any of these may be null, or
// point to null, for an attribute that was not written.

/// Keeps the attributes in "SINGLE_LED" and drives the point. Returns 0, or -1 when the tree lacks the element.
int FtmSingleLedTest(char** ppAtbName0, char** ppAtbName1, char** ppAtbVal0, char** ppAtbVal1);
/// Keeps the attributes in "THROUGHPUT" and moves the circuit, with the result of that in `*piretval`. Returns 0 (also
/// when a part is missing and nothing is done), or -1.
int FtmThroughPutTest(char** ppAtbName0, char** ppAtbName1, char** ppAtbVal0, char** ppAtbVal1, int* piretval);

// Parsers of the sections of a written document. Each carries out what its element asks and returns 0, or -1 with the
// error record set. `*piretval` is shared by all sections of one document and starts at 0.

int FTM_ParseTagLED(ST_XML_ELEMENT* pXmlLED, int* piretval);
/// `pvSession` is not used.
int FTM_ParseTagSingleLed(void* pvSession, ST_XML_ELEMENT* pXmlLeds, int* piretval);
int FTM_ParseTagTHRPUT(ST_XML_ELEMENT* pXmlTHRPUT, int* piretval);
int FTM_ParseTagAutoPair(ST_XML_ELEMENT* pXmlRSTSW, int* piretval);
int FTM_ParseTagEtherPort(ST_XML_ELEMENT* pXmlETHER_PORT, int* piretval);

// The same for sections that no document of this unit may hold.

int FTM_ParseTagMultiHybrid(ST_XML_ELEMENT* pXmlRSTSW, int* piretval);
int FTM_ParseTagPsdSetting(ST_XML_ELEMENT* pXmlPSD_SETTING, int* piretval);
int FTM_ParseTagRSTSW(ST_XML_ELEMENT* pXmlRSTSW);

// Write permissions: 1 when the station may write the element, else 0.

int Is_SESSION_LED_WrEnb();
int Is_READY_STATUS_WrEnb();
int Is_RESET_SW_STATUS_WrEnb();
int Is_WPS_SW_STATUS_WrEnb();
int Is_ETHER_PORT_SPD_WrEnb();
int Is_READY_GREEN_LED_WrEnb();
int Is_READY_RED_LED_WrEnb();
int Is_ETHER_LED_WrEnb();
int Is_USB_LED_WrEnb();
int Is_WPS_LED_WrEnb();
int Is_ALL_LEDS_WrEnb();
int Is_MULTI_MODE_WrEnb();
int Is_AUTO_MODE_WrEnb();
int Is_PSD_MODE_WrEnb();
int Is_POWER_LED_WrEnb();
int Is_WAN_LED_WrEnb();
int Is_INTERNET_LED_WrEnb();
int Is_LAN_LED_WrEnb();
int Is_WIRELESS_LED_WrEnb();

// LEDs and buttons as the test configuration file shows them. Results are 0, or -1 when the tree lacks the element.

/// Reads every LED and both buttons from the driver into the tree. An unreadable one shows as on or closed.
void FtmUpdLedsAndButtons();
int FtmUpdRsSw();
int FtmUpdWpsSw();
/// Shows an LED as "ON" or, for state 0, as "OFF". Touches no hardware.
int FtmAction_LED(int iState, const char* pcaz);
int FtmActionSESSION_LED(int iState);
int FtmActionREADY_GREEN_LED(int iState);
int FtmActionREADY_RED_LED(int iState);
int FtmActionETHER_LED(int iState);
int FtmActionUSB_LED(int iState);
int FtmActionWPS_LED(int iState);
int FtmActionLED_ALL(int iState);
/// Shows a text for all LEDs.
int FtmActionLED_Blink(const char* pcText);

// Statistics, four-port and progress files.

extern ST_XML_ELEMENT* pstFTMStatElmt;    ///< trees of the files, null until they are first read;
extern ST_XML_ELEMENT* pstFTMStats4pElmt; ///< a text whose source fails stays as it was
extern ST_XML_ELEMENT* pstFTMProgElmt;

int TFTP_processGetStatistics(char** ppOutFile, unsigned long* pOutSize);
/// Always -1, and leaves the error record as it is.
int TFTP_processGetStatistics2(char** ppOutFile, unsigned long* pOutSize);
int TFTP_processGetStats4port(char** ppOutFile, unsigned long* pOutSize);
/// Serialises the file into pOFilePROG and returns it, or null.
char* TFTP_processGetProgress();

/// The statistics file before it has values.
extern const char statisticsTemplate[1915];

/// Build the trees from their templates. The caller owns them.
ST_XML_ELEMENT* CreateFtmStatisticsXml();
ST_XML_ELEMENT* CreateFtmStats4portXml();
ST_XML_ELEMENT* CreateFtmProgressXml();

/// Refreshes the statistics tree; always 0, whatever could be read.
int FtmUpdStatistics();
/// Refreshes the four-port tree. Returns 0, or -1 when the switch's table can't be read.
int FtmUpdStats4portNew();

// Section fillers: each sets the texts of those direct children of its element that it knows, from a read-only session
// of its own. Return 0, or -1 (for the stations' table the store's own result) with the error record set.

int XMLS_initEtherStatCatCM(ST_XML_ELEMENT* pXmlEther);
/// `iRange` is not used.
int XMLS_initAtmStatCatCM(int iRange, ST_XML_ELEMENT* pXmlAtm);
int XMLS_initDslStatCM(ST_XML_ELEMENT* pXmlDsl);
int XMLS_GetFlashErrCM(ST_XML_ELEMENT* pXmlFlash);
int XMLS_Get_Wl0_StatCM(ST_XML_ELEMENT* pXmlWireless);
/// Sets the attributes "VPI" and "VCI" of an element from the ATM circuit. `iRange` is not used.
int XMLS_SetAttrValueCM(ST_XML_ELEMENT* pXml, int iRange);
/// Fills the element of one port from a row of "SwitchStat".
void XMLS_Fill_SwEthX_Field(ST_XML_ELEMENT* pXmlTmp, int iRow, const ST_CFG_TABLE* pstTbl);
