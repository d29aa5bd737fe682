#include "userapps/FTM/VoipTask.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/gpioctrl.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Handles.h"
#include "userapps/FTM/FTM_Tags.h"

ST_VOIP_TEST_RSLT stVoipTstRslt;
int iVoipDecoder = eVOIP_IDLE;
int iFtmVoipCmd = eVOIP_IDLE;
pthread_mutex_t stVoipFtm_Mutex = PTHREAD_MUTEX_INITIALIZER;
int iOnceVoip;
int giReadClear;

namespace {

constexpr useconds_t taskPause = 2'000'000;
constexpr int updateText = 1;

int refuseText() {
  FTM_FlgErrorTFTP(0, szTstUnsp, 0);
  return -1;
}

// A text that the station writes and the number it stands for.
struct Word {
  std::string_view text;
  unsigned short code;
};
constexpr Word ringVoltages[] = {{"25v", 0}, {"50v", 5}, {"75v", 7}};
constexpr Word onOff[] = {{"ON", 1}, {"OFF", 0}};
constexpr Word relayStates[] = {{"Enable", 1}, {"Disable", 0}};
constexpr Word decoder1Commands[] = {{"ON", eVOIP1_ON}, {"OFF", eVOIP1_OFF}};
constexpr Word decoder2Commands[] = {{"ON", eVOIP2_ON}, {"OFF", eVOIP2_OFF}};

template <std::size_t size>
const Word* findWord(const Word (&words)[size], std::string_view text) {
  for (const Word& word : words)
    if (word.text == text)
      return &word;
  return nullptr;
}

struct Tone {
  std::string_view number;
  const char* name;
};
constexpr Tone tones[] = {{"1", "busy"}, {"2", "confirm"}, {"3", "dial"}, {"4", "msgw"}};
constexpr std::string_view noTone = "None";

// What became of a child. A refused text ends the document; a failed request only counts when it is the last.
struct Outcome {
  bool isRefused;
  int result;
};

constexpr Outcome refused = {true, -1};

Outcome writeRingVoltage(unsigned short line, const char* text) {
  const Word* voltage = findWord(ringVoltages, text);
  if (voltage == nullptr)
    return refused;
  FtmPutVOIP_RngVolt(line, voltage->code);
  return {false, FtmUpdateVOIP_RngVolt(updateText, line, text)};
}

Outcome writeHook(unsigned short line, const char* text) {
  const Word* state = findWord(onOff, text);
  return state == nullptr ? refused : Outcome{false, FtmPutVOIP_Hook(line, state->code)};
}

Outcome writeRelay(unsigned short line, const char* text) {
  const Word* state = findWord(relayStates, text);
  return state == nullptr ? refused : Outcome{false, FtmPutVOIP_CutThoRly(line, state->code)};
}

Outcome writeDecoder(unsigned short line, const char* text) {
  const Word* command = findWord(line == 1 ? decoder1Commands : decoder2Commands, text);
  return command == nullptr ? refused : Outcome{false, FtmPutVOIP_Decoder(line, command->code)};
}

const char* toneName(const char* text) {
  for (const Tone& tone : tones)
    if (tone.number == text)
      return tone.name;
  return text; // a text that is no number is a tone's own name
}

Outcome writeTone(unsigned short line, const char* text) {
  if (text == noTone)
    FtmEnd_Tone(line);
  else
    FtmPutVOIP_Tone(line, toneName(text));
  return {false, FtmUpDateVoipTone(updateText, line, text)};
}

struct LineFunction {
  std::string_view tag;
  unsigned short line;
  Outcome (*write)(unsigned short line, const char* text);
};
constexpr LineFunction lineFunctions[] = {
    {"RING_VOLTAGE_1", 1, writeRingVoltage},
    {"RING_VOLTAGE_2", 2, writeRingVoltage},
    {"HOOK_1", 1, writeHook},
    {"HOOK_2", 2, writeHook},
    {"CUT_RELAY_1", 1, writeRelay},
    {"CUT_RELAY_2", 2, writeRelay},
    {"DECODER_1", 1, writeDecoder},
    {"DECODER_2", 2, writeDecoder},
    {"TONE_1", 1, writeTone},
    {"TONE_2", 2, writeTone},
};

const LineFunction* findFunction(std::string_view tag) {
  for (const LineFunction& function : lineFunctions)
    if (function.tag == tag)
      return &function;
  return nullptr;
}

// Carries out the children in order. The last one's result wins: earlier failures are forgotten.
Outcome writeChildren(ST_XML_ELEMENT** child) {
  Outcome outcome{false, 0};
  for (; child != nullptr && *child != nullptr && !outcome.isRefused; ++child) {
    const LineFunction* function = findFunction(GetTag(*child));
    if (function == nullptr)
      std::fputs("No Element Found", stdout);
    else
      outcome = function->write(function->line, GetTextBody(*child));
  }
  return outcome;
}

int applyReadClear(const char* name, const char* value) {
  if (std::strcmp(name, "ReadClear") != 0) {
    FTM_FlgErrorTFTP(0, szNoCmdFnd, 0);
    return -1;
  }
  giReadClear = std::strcmp(value, "1") == 0 ? 1 : 0;
  return 0;
}

bool isDecoderOn() {
  return iVoipDecoder == eVOIP1_ON || iVoipDecoder == eVOIP2_ON;
}

int startDecoder(unsigned short command) {
  if (isDecoderOn())
    return -1;
  const MutexLock lock(stVoipFtm_Mutex);
  iVoipDecoder = command;
  iFtmVoipCmd = command;
  return 0;
}

// Ends the process that collects digits. Placeholder results name none, and the request is refused.
int stopDecoder(unsigned short command) {
  Ftm_CMGetVoipTstRslt(&stVoipTstRslt);
  if (stVoipTstRslt.iPid_t == 0)
    return -1;
  iVoipDecoder = command;
  board_kill(stVoipTstRslt.iPid_t, SIGTERM);
  return 0;
}

eUserIOPoint relayPoint(unsigned short port) {
  if (port == 1)
    return eVoiceRly1;
  return port == 2 ? eVoiceRly2 : eInvalidLed;
}

// A command for the task and the port that it reports on.
struct Report {
  int command;
  const char* port;
};
constexpr Report reports[] = {{eVOIP1_ON, "1"}, {eVOIP2_ON, "2"}};

void takeCommand() {
  const MutexLock lock(stVoipFtm_Mutex);
  for (const Report& report : reports) {
    if (iFtmVoipCmd != report.command)
      continue;
    ftm_reporttone(report.port);
    iFtmVoipCmd = eVOIP_IDLE;
    return;
  }
}

// Texts of the line driver fill their fields to the last byte at most.
template <std::size_t size>
std::string fieldText(const char (&field)[size]) {
  return {field, strnlen(field, size)};
}

int showText(const char* name, const std::string& text) {
  ST_XML_ELEMENT* element = GetElmtPtr(TestModeCfgTree(), "TEST_CONFIG", "VOIP", name);
  if (element == nullptr)
    return -1;
  SetTextBody(element, text.c_str());
  return 0;
}

const char* relayText(unsigned short port) {
  const int state = getLedState(static_cast<unsigned int>(relayPoint(port)));
  if (state == 0)
    return "Disable";
  return state == 1 ? "Enable" : "UNKNOWN";
}

const char* decoderText(unsigned short port) {
  unsigned short state = 0;
  FtmGetVOIP_Decoder(port, &state);
  return state != 0 ? "ON" : "OFF";
}

} // namespace

int FTM_ParseTagVOIP(ST_XML_ELEMENT* pXmlVOIP, int*) {
  unFtmState.stbF.bVoiceTst = 1;
  const Outcome outcome = writeChildren(GetElements(pXmlVOIP));
  if (outcome.isRefused)
    return refuseText();
  char** name = GetAttrName(pXmlVOIP, 0);
  if (outcome.result != 0 || name == nullptr || *name == nullptr)
    return outcome.result;
  return applyReadClear(*name, *GetAttrVal(pXmlVOIP, 0));
}

int FtmPutVOIP_RngVolt(unsigned short usVoipPortNum, unsigned short usRngVolt) {
  const std::string arguments = std::to_string(usVoipPortNum) + " " + std::to_string(usRngVolt);
  return ftm_slicmode(arguments.c_str());
}

int FtmPutVOIP_Hook(unsigned short, unsigned short) {
  return 0;
}

int FtmPutVOIP_CutThoRly(unsigned short usVoipPortNum, unsigned short usCmdState) {
  const eUserIOPoint relay = relayPoint(usVoipPortNum);
  return relay == eInvalidLed ? -1 : ledTest(static_cast<unsigned int>(relay), usCmdState);
}

int FtmPutVOIP_Decoder(unsigned short, unsigned short usCmdState) {
  switch (usCmdState) {
  case eVOIP1_ON:
  case eVOIP2_ON:
    return startDecoder(usCmdState);
  case eVOIP1_OFF:
  case eVOIP2_OFF:
    return stopDecoder(usCmdState);
  default:
    return -1;
  }
}

int FtmPutVOIP_Tone(unsigned short usVoipPortNum, const char* pcTone) {
  const std::string arguments = std::to_string(usVoipPortNum) + " " + pcTone;
  return ftm_playtone(arguments.c_str());
}

int FtmEnd_Tone(unsigned short usVoipPortNum) {
  return ftm_endtone(std::to_string(usVoipPortNum).c_str());
}

int FtmUpdateVOIP_RngVolt(int, unsigned short, const char*) {
  return -1;
}

int FtmUpDateVoipTone(int, unsigned short, const char*) {
  return -1;
}

int FtmUpDateVoipHook() {
  if (showText("HOOK_1", FtmGetVOIP_Hook(1)) == -1)
    return -1;
  return showText("HOOK_2", FtmGetVOIP_Hook(2));
}

int FtmUpDateVoipCTRelay() {
  if (showText("CUT_RELAY_1", relayText(1)) == -1)
    return -1;
  return showText("CUT_RELAY_2", relayText(2));
}

int FtmUpDateVoipDecoder() {
  if (showText("DECODER_1", decoderText(1)) == -1)
    return -1;
  return showText("DECODER_2", decoderText(2));
}

int FtmUpDateVoipDigit() {
  const bool current = giReadClear == 1;
  const ST_VOIP_TEST_RSLT& results = stVoipTstRslt;
  if (showText("DIGIT_RX_1", fieldText(current ? results.cV1CurDigits : results.cV1Digits)) == -1)
    return -1;
  return showText("DIGIT_RX_2", fieldText(current ? results.cV2CurDigits : results.cV2Digits));
}

std::string FtmGetVOIP_Hook(unsigned short usVoipPortNum) {
  if (usVoipPortNum == 1)
    return fieldText(stVoipTstRslt.cV1HookSt);
  return usVoipPortNum == 2 ? fieldText(stVoipTstRslt.cV2HookSt) : "UNKNOWN";
}

// Both lines show the same state, on purpose: only one decoder can be on.
int FtmGetVOIP_Decoder(unsigned short, unsigned short* pusCmdState) {
  *pusCmdState = isDecoderOn() ? 1 : 0;
  return 0;
}

int FtmGetVOIP_RngVolt(unsigned short usVoipPortNum, unsigned short* pusRngVolt) {
  *pusRngVolt = usVoipPortNum != 0 ? 75 : 25;
  return 0;
}

void VoipTaskRound() {
  iOnceVoip = 1; // the mutex needs no initialisation here: parsers lock it before this task ever runs
  takeCommand();
  board_usleep(taskPause);
}

void* VoipTask(void*) {
  for (;;)
    VoipTaskRound();
}
