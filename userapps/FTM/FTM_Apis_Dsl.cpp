#include <cstdint>
#include <cstdio>
#include <cstring>

#include "platform/adsldrv.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Store.h"

char aucB[20];
char aucB1[10] = "Test";
int iVcChanNum = 1;

namespace {

constexpr int adslUnit = 0;

struct LineRequest {
  unsigned long code;
  const char* failed;
  const char* refused;
};
constexpr LineRequest stopLine = {ADSLIOCTL_CONNECTION_STOP, "ADSLIOCTL_CONNECTION_STOP ioctl failed",
                                  "ADSLIOCTL_CONNECTION_STOP ioctl return failure"};
constexpr LineRequest startLine = {ADSLIOCTL_CONNECTION_START, "ADSLIOCTL_CONNECTION_START ioctl failed",
                                   "ADSLIOCTL_CONNECTION_START ioctl return failure"};

// Returns whether the request went through, whatever the driver then put into the status.
bool requestLine(const Descriptor& line, const LineRequest& request, std::int32_t& status) {
  const bool issued = board_ioctl(line.get(), request.code, &status) >= 0;
  if (!issued)
    FTM_ReportDevice(request.failed);
  if (status != 0)
    FTM_ReportDevice(request.refused);
  return issued;
}

constexpr const char* deleteCircuitScript = "/etc/init.d/DelOrgVpiVci.sh";
constexpr const char* newCircuitScript = "/etc/init.d/NewVpiVci.sh";
constexpr const char* circuitPort = "1.";
constexpr const char* dataInterface = "nas0";

constexpr std::size_t commandSize = 512;
constexpr std::size_t macTextSize = 18;
constexpr const char* defaultMac = "02:1a:2b:00:00:01";

enum EVccStatColumn { eVccInterface = 0, eVccVpi = 1, eVccVci = 2 };
constexpr int productionMacColumn = 2;

// Whether snprintf() wrote the whole text.
bool fits(int length, std::size_t size) {
  return length >= 0 && static_cast<std::size_t>(length) < size;
}

// Replaces `mac` by the unit's own. Returns 0, or -1 when the store can't be read.
int readProductionMac(char (&mac)[macTextSize]) {
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  if (!isUsable(session))
    return -1;
  const TableSnapshot production(session.get(), "ProductionData");
  if (!isUsable(production, "ProductionData"))
    return -1;
  if (const char* cell = production.cell(0, productionMacColumn); cell != nullptr)
    std::snprintf(mac, sizeof mac, "%s", cell);
  return 0;
}

// Returns the text of the row's circuit in `circuit`, or null when the row lacks a part or is too long.
char* circuitText(const TableSnapshot& circuits, int row, char* circuit) {
  const char* vpi = circuits.cell(row, eVccVpi);
  const char* vci = circuits.cell(row, eVccVci);
  if (vpi == nullptr || vci == nullptr)
    return nullptr;
  const int length = std::snprintf(circuit, circuitTextSize, "%s%s.%s", circuitPort, vpi, vci);
  return fits(length, circuitTextSize) ? circuit : nullptr;
}

bool isDataCircuit(const TableSnapshot& circuits, int row) {
  const char* interface = circuits.cell(row, eVccInterface);
  return interface != nullptr && std::strcmp(interface, dataInterface) == 0;
}

void deleteCurrentCircuit() {
  char circuit[circuitTextSize];
  if (FTM_GetCurrentVpiVci(circuit) == nullptr)
    return;
  char command[commandSize];
  std::snprintf(command, sizeof command, "%s %s", deleteCircuitScript, circuit);
  board_system(command);
}

} // namespace

int FTM_DSL_Resync() {
  char device[32];
  std::snprintf(device, sizeof device, "%s%d", adslDevicePrefix, adslUnit);
  const Descriptor line = openDevice(device);
  if (!line.isOpen()) {
    FTM_ReportDevice("Cannot open adsl driver");
    return -1;
  }
  std::int32_t status = 0;
  const bool stopped = requestLine(line, stopLine, status);
  // The status is not cleared in between: a refused stop that the start leaves standing fails the start.
  const bool started = requestLine(line, startLine, status) && status == 0;
  return stopped && started ? 0 : -1;
}

int ftm_ChangeVpiVci(const char* pszVpi, const char* pszVci) {
  char mac[macTextSize];
  std::snprintf(mac, sizeof mac, "%s", defaultMac);
  const int result = readProductionMac(mac);

  // The texts are the station's own and reach the shell as they stand, shell characters included.
  char command[commandSize];
  const int length =
      std::snprintf(command, sizeof command, "%s %s%s.%s %s", newCircuitScript, circuitPort, pszVpi, pszVci, mac);
  // A command cut short would move the circuit to somewhere nobody asked for: leave the present one alone.
  if (!fits(length, sizeof command)) {
    FTM_FlgErrorTFTP(0, szWrFail, 0);
    return -1;
  }
  deleteCurrentCircuit();
  board_system(command);
  return result;
}

char* FTM_GetCurrentVpiVci(char* pcVpiVci) {
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  if (!isUsable(session))
    return nullptr;
  const TableSnapshot circuits(session.get(), "VccStat");
  if (!isUsable(circuits, "VccStat"))
    return nullptr;
  for (int row = 0; row < circuits.rows(); ++row)
    if (isDataCircuit(circuits, row))
      return circuitText(circuits, row, pcVpiVci);
  return nullptr;
}

int TRANCVR_FtmApStats(int* pPair, int* pMode) {
  *pMode = unFtmState.usWd == 0 ? 1 : 0;
  *pPair = getLedState(eDSLPair);
  return 0;
}

char* XCVR_ATTEN_Downstream() {
  std::snprintf(aucB, sizeof aucB, "%d.%d", 11, 23);
  return aucB;
}

char* XCVR_ATTEN_Upstream() {
  std::snprintf(aucB, sizeof aucB, "%d.%d", 10, 13);
  return aucB;
}

int TRANCVR_FtmApEnable(int) {
  return 0;
}

int TRANCVR_FtmApSetInner() {
  return 0;
}

int TRANCVR_FtmApSetOuter() {
  return 0;
}

void TRANCVRForceDSLRetrain() {}

dslStateEnum TRANCVR_FtmDslState() {
  return DSL_STATE_DOWN;
}

int sysToMonitor(int) {
  return 0;
}

int WANM_FTMReadyForData() {
  return 1;
}

int WANM_FTMSetVCIVPI() {
  return 0;
}

char* McfgAtmVC() {
  iVcChanNum = 1;
  std::snprintf(aucB1, sizeof aucB1, "%d", iVcChanNum);
  return aucB1;
}

char* McfgAtmVPI(int) {
  return aucB1;
}

char* McfgAtmVCI(int) {
  return aucB1;
}
