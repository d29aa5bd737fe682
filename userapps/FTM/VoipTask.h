#pragma once
// Tests of the two analogue telephone lines. TFTP server task only, unless said otherwise.

#include <pthread.h>

#include <string>

struct ST_XML_ELEMENT;

enum E_VOIP_CMD { eVOIP_IDLE = 0, eVOIP1_ON = 1, eVOIP1_OFF = 2, eVOIP2_ON = 3, eVOIP2_OFF = 4, eVOIP_MAX = 5 };

/// What the line driver reports.
struct ST_VOIP_TEST_RSLT {
  char cV1HookSt[20];
  char cV1Digits[20];
  char cV1CurDigits[20];
  char cV2HookSt[20];
  char cV2Digits[20];
  char cV2CurDigits[20];
  int iPid_t; ///< process that collects digits, 0 when there is none
};

extern ST_VOIP_TEST_RSLT stVoipTstRslt;
extern int iVoipDecoder;                ///< last accepted decoder command, an E_VOIP_CMD
extern int iFtmVoipCmd;                 ///< command for the task, an E_VOIP_CMD; guarded by stVoipFtm_Mutex
extern pthread_mutex_t stVoipFtm_Mutex; ///< usable before the task has run
extern int iOnceVoip;                   ///< 1 once the task has run
extern int giReadClear;                 ///< 1: the read-back shows the current digits

/// Carries out a written "VOIP" element. Returns 0, or -1, which sets the error record only for a refused text or
/// attribute. `piretval` is not used.
int FTM_ParseTagVOIP(ST_XML_ELEMENT* pXmlVOIP, int* piretval);

// One line function each; ports are 1 and 2. Results are 0 or -1.

int FtmPutVOIP_RngVolt(unsigned short usVoipPortNum, unsigned short usRngVolt);
/// Has no effect: 0.
int FtmPutVOIP_Hook(unsigned short usVoipPortNum, unsigned short usCmdState);
/// Closes (1) or opens (0) the line's cut-through relay.
int FtmPutVOIP_CutThoRly(unsigned short usVoipPortNum, unsigned short usCmdState);
/// Switches a decoder; `usCmdState` is an E_VOIP_CMD. Only one decoder may be on.
int FtmPutVOIP_Decoder(unsigned short usVoipPortNum, unsigned short usCmdState);
int FtmPutVOIP_Tone(unsigned short usVoipPortNum, const char* pcTone);
int FtmEnd_Tone(unsigned short usVoipPortNum);

/// No file shows these two: -1.
int FtmUpdateVOIP_RngVolt(int iUpdateFlag, unsigned short usVoipPortNum, const char* pszRngVolt);
int FtmUpDateVoipTone(int iUpdateFlag, unsigned short usVoipPortNum, const char* pszTone);

// Read-back into a "VOIP" element of the test configuration tree. No file producer calls it. Results are 0, or -1 when
// an element is missing.

int FtmUpDateVoipHook();
int FtmUpDateVoipCTRelay();
int FtmUpDateVoipDecoder();
int FtmUpDateVoipDigit();

/// Hook state of a line, "UNKNOWN" for a port that is no line.
std::string FtmGetVOIP_Hook(unsigned short usVoipPortNum);
/// State of the decoders, 1 while one of them is on, else 0. Returns 0.
int FtmGetVOIP_Decoder(unsigned short usVoipPortNum, unsigned short* pusCmdState);
/// Ring voltage in volts. Returns 0.
int FtmGetVOIP_RngVolt(unsigned short usVoipPortNum, unsigned short* pusRngVolt);

/// Thread body: hands decoder commands to the line driver, one round every two seconds. Never returns.
void* VoipTask(void* NoPassedParms);
/// One round of it, with the pause.
void VoipTaskRound();

// Entry points of the line driver; each takes its arguments as one text. A gateway with a line driver supplies its own
// in place of the placeholders, which return -1.

int ftm_slicmode(const char* pcArguments);   ///< "port code": ring voltage
int ftm_playtone(const char* pcArguments);   ///< "port tone"
int ftm_endtone(const char* pcArguments);    ///< "port"
int ftm_reporttone(const char* pcArguments); ///< "port"; VoipTask's thread
/// Fills the record. Returns 0, or -1 with the record untouched.
int Ftm_CMGetVoipTstRslt(ST_VOIP_TEST_RSLT* pstRslt);
