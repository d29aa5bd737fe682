#pragma once
// Device operations: configuration store, flash management, LEDs, DSL line. Operations that return int return 0, or
// -1 on failure. TFTP server task only, unless said otherwise.

#include <cstddef>
#include <cstdint>

#include "platform/cfg_api.h"
#include "platform/gpioctrl.h"
#include "userapps/FTM/ConfigRecord.h"

// Active tests.

/// One bit for each test; the same masks in `usWd` on hosts of either byte order.
struct ST_FTM_TST_FLAGS {
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  std::uint16_t bLedTst : 1, bRstSwTst : 1, bThrPutTst : 1, bMulHybTst : 1, bAutoPrTst : 1, bWirelessTst : 1,
      bVoiceTst : 1, bSpare : 1, bSpare1 : 8;
#else
  std::uint16_t bSpare1 : 8, bSpare : 1, bVoiceTst : 1, bWirelessTst : 1, bAutoPrTst : 1, bMulHybTst : 1,
      bThrPutTst : 1, bRstSwTst : 1, bLedTst : 1;
#endif
};

union U_FTM_TST_FLAGS {
  std::uint16_t usWd;
  ST_FTM_TST_FLAGS stbF;
};

/// The same bits as masks of `usWd`.
constexpr std::uint16_t ledTestMask = 0x8000;
constexpr std::uint16_t resetSwitchTestMask = 0x4000;
constexpr std::uint16_t throughputTestMask = 0x2000;
constexpr std::uint16_t multiHybridTestMask = 0x1000;
constexpr std::uint16_t autoPairTestMask = 0x0800;
constexpr std::uint16_t wirelessTestMask = 0x0400;
constexpr std::uint16_t voiceTestMask = 0x0200;

/// A test that "FTM_TestModeOp.xml" lists while it is active.
struct ListedTest {
  std::uint16_t mask;
  const char* name;
};

/// In the order in which they are listed. The list spells throughput with an underscore, which the station expects.
constexpr ListedTest listedTests[] = {
    {ledTestMask, "LED"},
    {resetSwitchTestMask, "RESET_SWITCH"},
    {throughputTestMask, "THROUGH_PUT"},
    {autoPairTestMask, "AUTO_PAIR"},
    {wirelessTestMask, "BCOM_WIRELESS"},
    {voiceTestMask, "VOIP"},
};

extern U_FTM_TST_FLAGS unFtmState;

// Configuration store.

constexpr int interfaceNameSize = 52;

/// Writes one cell in a session and transaction of its own.
int FTM_CMwrite_var(const char* pszTblName, const char* pszColName, int iRow, const char* pszValue);
/// Writes one cell in the caller's session and transaction.
int ftm_CMwrite_var(void* pvCfgSession, const char* pszTblName, const char* pszColName, int iRow, const char* pszValue);
/// Interface name of a nickname ("Wireless", "Omnilane"); `pcInfNameRslt` holds interfaceNameSize bytes.
int GetInterfaceName(void* pvSession, const char* pcNickName, char* pcInfNameRslt);

/// Address of the modem configuration record, with "ModelNum" stored as its assigned model.
MODEM_CONFIG_TABLE* MCFG_getMCfgPtr();
/// Copies the whole record. Returns 0.
int MCFG_cpyMCfg(MODEM_CONFIG_TABLE* dest);
char* FileNameINI();
char* VersionINI();
const char* XCVR_DspSwVersion();
const char* XCVR_Description();

// Flash management.

constexpr std::size_t bootModeTextSize = 4; ///< bytes of a boot delay's text with its NUL

/// Reboots the unit, into safe boot when `iReBootCmd` is not 0. Returns 0. Any thread.
int FTM_Reboot(int iReBootCmd);
/// Software version of the test mode: a text of at most 31 characters that stays valid.
const char* FTM_GetSoftwareVersion();
/// Writes the boot delay as decimal text into `pcBtMode` (bootModeTextSize bytes), also when the request fails; "0"
/// when the device can't be opened.
int FTM_GetBootMode(char* pcBtMode);
/// Sets the boot delay from decimal text. Returns 0 (also when the device can't be opened), or -1.
int FTM_PutBootMode(const char* pcBtMode);

// LEDs, relays and buttons.

constexpr unsigned int allLedsPoint = 100;    ///< for ledTest(): all LEDs at once
constexpr unsigned int leaveTestSetting = 99; ///< for ledTest(): the driver leaves factory test mode

/// An LED of the test configuration file and the GPIO point behind it.
struct ST_FTM_LED {
  const char* pszName;
  eUserIOPoint ePoint;
};

/// Every LED whose state the file shows, in the order in which a read refreshes them.
inline constexpr ST_FTM_LED stFtmLeds[] = {
    {"SESSION_LED", ePowerGrnLed}, {"READY_GREEN_LED", eDSLGrnLed},
    {"READY_RED_LED", eDSLRedLed}, {"USB_LED", eUSBGrnLed},
    {"WPS_LED", eECLed},           {"ETHER_LED", eEth0GrnLed},
};

/// Reports a failed device request: to the system log at error priority, and as a line on standard output.
void FTM_ReportDevice(const char* pszMessage);

/// Writes a GPIO point after putting the driver into factory test mode, or takes it out of that mode.
int ledTest(unsigned int iLed, unsigned int iSetting);
/// Value of a GPIO point, or -1.
int getLedState(unsigned int led);
/// Raw value of a push button, or -1.
int getResetButtonBsp();
int getWpsButtonBsp();
/// Writes row 0 of a column of "LedTable" in the caller's session and transaction.
int ledTestCM(void* pvSession, const char* pszColName, const char* pszValue);
/// This gateway has no MoCA LED: -1.
int FtmMocaAction_LED(const char* pcState, const char* pcaz);
int MocaLedSetCtl(unsigned int iMocaLedSet, unsigned int uiState1, unsigned int uiState2);

// DSL line and ATM circuit.

enum dslStateEnum { DSL_STATE_DOWN = 0, DSL_STATE_UP = 1, DSL_RELOAD_REQ = 2, DSL_TRAIN = 3 };

/// Bytes of a circuit text ("1.VPI.VCI") with its NUL.
constexpr std::size_t circuitTextSize = 64;

extern char aucB[20];  ///< last answer of the attenuation queries
extern char aucB1[10]; ///< last answer of the virtual-channel queries
extern int iVcChanNum;

/// Stops and restarts the DSL connection.
int FTM_DSL_Resync();
/// Moves the data circuit. Both texts go to the init scripts as they stand; when they are too long
/// for a command, nothing is run and the result is -1 with the error record set.
int ftm_ChangeVpiVci(const char* pszVpi, const char* pszVci);
/// Text of the data circuit, written into `pcVpiVci` (circuitTextSize bytes); null when there is none,
/// when the store can't be read, or when the text does not fit.
char* FTM_GetCurrentVpiVci(char* pcVpiVci);
/// DSL pair selected (GPIO point eDSLPair, -1 when unreadable), and mode: 1 while no test is active, else 0.
/// Returns 0.
int TRANCVR_FtmApStats(int* pPair, int* pMode);

// Fixed placeholders of this gateway's transceiver. Texts live in shared buffers that the next call overwrites.

char* XCVR_ATTEN_Downstream();
char* XCVR_ATTEN_Upstream();
int TRANCVR_FtmApEnable(int value);
int TRANCVR_FtmApSetInner();
int TRANCVR_FtmApSetOuter();
void TRANCVRForceDSLRetrain();
dslStateEnum TRANCVR_FtmDslState();
int sysToMonitor(int startType);
/// 1: the WAN side is always ready for data.
int WANM_FTMReadyForData();
int WANM_FTMSetVCIVPI();
/// Number of the one virtual channel.
char* McfgAtmVC();
/// "Test" until McfgAtmVC() has run, then its answer.
char* McfgAtmVPI(int iVcChannel);
char* McfgAtmVCI(int iVcChannel);

// USB storage.

/// Shows the first device of the kernel's SCSI listing in the test configuration tree. Returns 0, or -1 when there is
/// no such listing.
int FtmUpdateUSB();

// Four-port counters: running totals that survive the switch clearing a port's counts when its link drops.

/// Where a counter stands; a change of the link takes two readings to complete.
enum E4PSTATE { eDOWN = 0, eUP = 1, eTRANSI_TO_UP = 2, eTRANSI_TO_DOWN = 3 };
enum E4PST_IX { eETHPACK_RX = 0, eETHPACK_TX = 1, eE4PST_IX_MAX = 2 };

struct ST_STAT_CT {
  int iPortState; ///< an E4PSTATE
  int iCntCur;    ///< last count read from the switch
  int iCntAcc;    ///< counts of earlier link-up periods
};

struct ST_PORT_STAT_CT {
  ST_STAT_CT stStatCt[eE4PST_IX_MAX];
};

constexpr unsigned int switchPorts = 5;       ///< rows of "SwitchStat" that are counted
constexpr std::size_t portCountTextSize = 10; ///< bytes of a total's text with its NUL
constexpr int maxPortCount = 999'999'999;     ///< the largest total that the text holds; shown for anything above

extern ST_PORT_STAT_CT stPortStatCt[switchPorts]; ///< indexed by the data row of "SwitchStat"

/// Forgets all counts. Start-up, before any thread runs.
void FtmClear4PortStat();
/// Takes a count (decimal text) read while the link is up (`iState` 1) or down, and moves the counter's state.
/// Returns 1, or 0 with nothing changed when there is no count, it is negative, or there is no such counter.
int ftmSave4PortStatCt(const char* pstr, int iState, unsigned int iPort, unsigned int index);
/// Writes a counter's total into `pstr` (portCountTextSize bytes); nothing but a NUL when there is no such counter.
void ftmGet4PortStatCt(char* pstr, unsigned int iPort, unsigned int index);

// Ethernet ports.

constexpr std::size_t speedTextSize = 12;   ///< bytes of cSpeed
constexpr std::size_t switchSpeedSize = 5;  ///< bytes that a speed text of the switch may take
constexpr std::size_t kilobitTextSize = 16; ///< bytes of a converted rate with its NUL

extern char cSpeed[speedTextSize]; ///< last answer of XML_FTM_PortSpeed()

/// Speed in bit/s of a port (0 is eth0). Returns the driver's result, negative on failure. Ends the process when no
/// socket can be opened.
int EthernetSpeedGet(unsigned short usEthNum, unsigned long* pulEthXSpeed);
/// Speed text of port 0 ("10", "100", or the bit rate) in cSpeed, or null when none is known.
const char* XML_FTM_PortSpeed();
/// Speed text of the last switch port, of the first four, that is up. `pcSpeed` gets switchSpeedSize bytes, without a
/// NUL when the text fills them. Returns 0, or -1 with `pcSpeed` untouched.
int FtmGetSwitchSpeed(char* pcSpeed);
/// The same of one row of "SwitchStat".
int GetSwitchSpeedStng(char* pcSpeed, int iRow, const ST_CFG_TABLE* pstTbl);
/// Link state of an interface; 0 when it is down, not running or unreadable.
int FtmUpdateEthX(const char* pEthNm);
/// Link state of an interface, asked on an open control socket; 0 when the request fails.
int FtmBroadcomEstate(int sockfd, const char* iface);
/// Writes a rate in bit/s (decimal text) as kbit/s, right-aligned with three decimals, into `pcSpeedKBS`
/// (kilobitTextSize bytes). Returns 0.
int ftmConvertToKBS(const char* pcSpeedBS, char* pcSpeedKBS);
/// Shows the speed of port 0 in the test configuration tree. Returns 0, or -1 when the element is missing or no speed
/// is known. No read of the file calls it.
int FtmUpdETHER_PORT_SPD();

// Fixed placeholders: this gateway's switch can't be set, and it has no PSD mode.

const char* XML_FTM_PortActive(unsigned char ucPortNum); ///< "NO"
const char* XML_FTM_PsdMode();                           ///< null
int FtmUpdPSD_SETTING();                                 ///< -1
int FtmActionPsdModeAuto();                              ///< -1
int FtmActionPsdModeOn();                                ///< -1
int FtmActionPsdModeOff();                               ///< -1
/// 0 for speed 0 (automatic), 10 or 100, which changes nothing; else -1.
int FtmActionETHER_PORT_SPD(unsigned char ucSpeed);
int eswitch_PortActive(unsigned char ucPortNum);                      ///< 0
int eswitch_SpeedGet(unsigned char ucPortNum);                        ///< 0
int eswitch_SpeedSet(unsigned char ucPortNum, unsigned char ucSpeed); ///< 0
