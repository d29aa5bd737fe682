// Virtual files by name, the error record and the download flags.
#include "userapps/FTM/FTM_App.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_Tags.h"
#include "userapps/FTM/manu_core.h"

char* pOFileMIF;
unsigned long ulOutSizeMIF;
char* pOFileTMO;
unsigned long ulOutSizeTMO;
char* pOFileTMC;
unsigned long ulOutSizeTMC;
char* pOFileSTAT;
unsigned long ulOutSizeSTAT;
char* pOFileSTAT2;
unsigned long ulOutSizeSTAT2;
char* pOFileSTAT4P;
unsigned long ulOutSizeSTAT4P;
char* pOFilePROG;
unsigned long ulOutSizePROG;

namespace {

ST_TFTP_ERROR stTFTP_Error;
std::uint16_t usFileFromFtm;
std::uint16_t usFileDownload;

// A reader that fills a retained text, as one that returns it.
template <int (*read)(char**, unsigned long*), char*& text, unsigned long& size>
char* readInto() {
  return read(&text, &size) == 0 ? text : nullptr;
}

struct VirtualFile {
  std::string_view name;
  char** retained; // text of the last read, freed before the next one; null: the reader keeps its text itself
  char* (*read)();
  int (*write)(char*); // null: read-only
};

constexpr VirtualFile virtualFiles[] = {
    {szFTM_ModemInfo, &pOFileMIF, readInto<TFTP_processGetModemInfo, pOFileMIF, ulOutSizeMIF>,
     TFTP_processPutModemInfo},
    {szFTM_TestModeOp, &pOFileTMO, readInto<TFTP_processGetTestModeOp, pOFileTMO, ulOutSizeTMO>,
     TFTP_processPutTestModeOp},
    {szFTM_TestModeCfg, &pOFileTMC, TFTP_processGetTestModeCfg, TFTP_processPutTestModeCfg},
    {szFTM_Statistics, &pOFileSTAT, readInto<TFTP_processGetStatistics, pOFileSTAT, ulOutSizeSTAT>, nullptr},
    {szFTM_Statistics2, &pOFileSTAT2, readInto<TFTP_processGetStatistics2, pOFileSTAT2, ulOutSizeSTAT2>, nullptr},
    {szFTM_Progress, nullptr, TFTP_processGetProgress, nullptr},
    {szFTM_Stats4port, &pOFileSTAT4P, readInto<TFTP_processGetStats4port, pOFileSTAT4P, ulOutSizeSTAT4P>, nullptr},
};

const VirtualFile* findFile(std::string_view name) {
  for (const VirtualFile& file : virtualFiles)
    if (file.name == name)
      return &file;
  return nullptr;
}

void freeRetained(const VirtualFile& file) {
  if (file.retained == nullptr)
    return;
  std::free(*file.retained);
  *file.retained = nullptr;
}

ST_TFTP_ERROR* refuseFile() {
  FTM_FlgErrorTFTP(0, szFileNSprt, 0);
  return FTM_ErrorTFTP();
}

ST_TFTP_ERROR* applyIni(char* text, const char* fileName) {
  FlagFileFromFtm();
  FlagDwloadINI();
  ST_TFTP_ERROR* error = FtmProcessINI(text, fileName);
  DoneDwloadINI();
  ClearFileFromFtmFlag();
  return error;
}

struct ActiveTestMessage {
  std::uint16_t mask;
  const char* message;
};

// In the order in which the message of several active tests is chosen.
constexpr ActiveTestMessage activeTestMessages[] = {
    {ledTestMask, szInLed},
    {resetSwitchTestMask, szInRsSw},
    {throughputTestMask, szInThrPut},
    {voiceTestMask, szInVoip},
};

const char* activeTestMessage(std::uint16_t activeTests) {
  for (const ActiveTestMessage& test : activeTestMessages)
    if ((activeTests & test.mask) != 0)
      return test.message;
  return nullptr;
}

} // namespace

const char* getFtmXml(const char* pzFileName, ST_TFTP_ERROR** pstTftpErr) {
  *pstTftpErr = nullptr;
  const VirtualFile* file = findFile(pzFileName);
  if (file == nullptr) {
    *pstTftpErr = refuseFile();
    return nullptr;
  }
  freeRetained(*file);
  const char* text = file->read();
  if (text == nullptr)
    *pstTftpErr = FTM_ErrorTFTP();
  return text;
}

ST_TFTP_ERROR* putFtmXml(char* pzPutFile, const char* pzFileName) {
  const std::string_view name = pzFileName;
  // From the first dot on, so that "a.b.ini" is no INI file.
  const std::string_view extension = name.substr(std::min(name.find('.'), name.size()));
  if (extension == szINI)
    return applyIni(pzPutFile, pzFileName);
  if (extension == szUPG || extension == szHEX)
    return nullptr; // the server has passed the image on already
  const VirtualFile* file = findFile(name);
  if (file == nullptr || file->write == nullptr)
    return refuseFile();
  freeRetained(*file);
  return file->write(pzPutFile) == 0 ? nullptr : FTM_ErrorTFTP();
}

void FTM_ClrErrorTFTP() {
  stTFTP_Error = {};
}

void FTM_FlgErrorTFTP(std::uint16_t usErrCode, const char* psErrMsg, std::uint16_t eFtmState) {
  stTFTP_Error.usErrorCode = usErrCode;
  stTFTP_Error.psErrMsg = psErrMsg != nullptr ? psErrMsg : activeTestMessage(eFtmState);
}

ST_TFTP_ERROR* FTM_ErrorTFTP() {
  return &stTFTP_Error;
}

ST_TFTP_ERROR* FTM_HasErrorTFTP() {
  return stTFTP_Error.psErrMsg != nullptr ? &stTFTP_Error : nullptr;
}

void FlagFileFromFtm() {
  usFileFromFtm = 1;
}

void ClearFileFromFtmFlag() {
  usFileFromFtm = 0;
}

std::uint16_t IsFileFromFtm() {
  return usFileFromFtm;
}

void FlagDwloadINI() {
  usFileDownload = 1;
}

void FlagDwloadUPG() {
  usFileDownload = 1;
}

void FlagDwloadHEX() {
  usFileDownload = 1;
}

void DoneDwloadINI() {
  usFileDownload = 0;
}

void DoneDwloadUPG() {
  usFileDownload = 0;
}

void DoneDwloadHEX() {
  usFileDownload = 0;
}

std::uint16_t DwLoadStatus() {
  return usFileDownload;
}
