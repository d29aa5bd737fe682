#pragma once
// Virtual files by name, the one error record that reaches the test station as a TFTP ERROR packet,
// and the flags of a file being taken from the station. TFTP server task only.

#include <cstdint>

/// What the station is told. A null message means no error.
struct ST_TFTP_ERROR {
  std::uint16_t usErrorCode;
  const char* psErrMsg;
};

// Messages of the system. The spellings are part of the protocol.
inline constexpr const char* szWrFail = "Write data failed";
inline constexpr const char* szTstUnsp = "Test not supported";
inline constexpr const char* szInLed = "FTM LED Test in Progress";
inline constexpr const char* szInRsSw = "FTM Reset Switch Test in Progress";
inline constexpr const char* szInThrPut = "FTM Through Put Test in Progress";
inline constexpr const char* szWrTCFail = "Write test config failed";
inline constexpr const char* szFileInVid = "Xml File InValid";
inline constexpr const char* szFileNSprt = "File Not Supported";
inline constexpr const char* szCrtXobjFail = "Fail to Create Xml Data Obj";
inline constexpr const char* szCrtXmlFail = "Fail to Create Xml File";
inline constexpr const char* szNoCmdFnd = "No Command Found";
inline constexpr const char* szInVoip = "FTM VOIP Test in Progress";

inline constexpr const char* szFTM_ModemInfo = "FTM_ModemInfo.xml";
inline constexpr const char* szFTM_TestModeOp = "FTM_TestModeOp.xml";
inline constexpr const char* szFTM_TestModeCfg = "FTM_TestModeCfg.xml";
inline constexpr const char* szFTM_Statistics = "FTM_Statistics.xml";
inline constexpr const char* szFTM_Statistics2 = "FTM_Statistics2.xml";
inline constexpr const char* szFTM_Progress = "FTM_Progress.xml";
inline constexpr const char* szFTM_Stats4port = "FTM_Stats_4port.xml";
inline constexpr const char* szINI = ".ini";
inline constexpr const char* szUPG = ".upg";
inline constexpr const char* szHEX = ".hex";

// Texts of the last read of each file; each lives until the next read or write of the same name.
extern char* pOFileMIF;
extern unsigned long ulOutSizeMIF;
extern char* pOFileTMO;
extern unsigned long ulOutSizeTMO;
extern char* pOFileTMC;
extern unsigned long ulOutSizeTMC;
extern char* pOFileSTAT;
extern unsigned long ulOutSizeSTAT;
extern char* pOFileSTAT2;
extern unsigned long ulOutSizeSTAT2;
extern char* pOFileSTAT4P;
extern unsigned long ulOutSizeSTAT4P;
extern char* pOFilePROG;
extern unsigned long ulOutSizePROG;

/// Text of a virtual file, kept by this module; null with `*pstTftpErr` at the error record.
const char* getFtmXml(const char* pzFileName, ST_TFTP_ERROR** pstTftpErr);
/// Applies a received text, which is parsed in place. Returns null, or the error record.
ST_TFTP_ERROR* putFtmXml(char* pzPutFile, const char* pzFileName);

void FTM_ClrErrorTFTP();
/// Sets the record. A null message selects one by the active tests in `eFtmState` (masks of
/// U_FTM_TST_FLAGS), or none.
void FTM_FlgErrorTFTP(std::uint16_t usErrCode, const char* psErrMsg, std::uint16_t eFtmState);
/// The record, whatever it holds.
ST_TFTP_ERROR* FTM_ErrorTFTP();
/// The record, or null when it holds no message.
ST_TFTP_ERROR* FTM_HasErrorTFTP();

void FlagFileFromFtm();
void ClearFileFromFtmFlag();
std::uint16_t IsFileFromFtm();
void FlagDwloadINI();
void FlagDwloadUPG();
void FlagDwloadHEX();
void DoneDwloadINI();
void DoneDwloadUPG();
void DoneDwloadHEX();
/// 1 while a download is being processed.
std::uint16_t DwLoadStatus();
