#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <limits>

#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_Text.h"

ST_PORT_STAT_CT stPortStatCt[switchPorts];

namespace {

constexpr int linkUp = 1;

// Null when there is no such counter.
ST_STAT_CT* counterOf(unsigned int port, unsigned int index) {
  if (port >= switchPorts || index >= eE4PST_IX_MAX)
    return nullptr;
  return &stPortStatCt[port].stStatCt[index];
}

// Counts and sums are never negative; a sum that an int can't hold stays at the highest one.
int sumOf(int bank, int count) {
  constexpr std::int64_t highest = std::numeric_limits<int>::max();
  return static_cast<int>(std::min(std::int64_t{bank} + count, highest));
}

void takeLinkUp(ST_STAT_CT& counter) {
  const bool wasDown = counter.iPortState == eDOWN || counter.iPortState == eTRANSI_TO_DOWN;
  counter.iPortState = wasDown ? eTRANSI_TO_UP : eUP;
}

void takeLinkDown(ST_STAT_CT& counter) {
  const bool wasUp = counter.iPortState == eUP || counter.iPortState == eTRANSI_TO_UP;
  if (wasUp)
    counter.iCntAcc = sumOf(counter.iCntAcc, counter.iCntCur);
  counter.iPortState = wasUp ? eTRANSI_TO_DOWN : eDOWN;
}

} // namespace

void FtmClear4PortStat() {
  std::fill(std::begin(stPortStatCt), std::end(stPortStatCt), ST_PORT_STAT_CT{});
}

int ftmSave4PortStatCt(const char* pstr, int iState, unsigned int iPort, unsigned int index) {
  ST_STAT_CT* counter = counterOf(iPort, index);
  if (counter == nullptr || pstr == nullptr)
    return 0;
  const int count = decimalValue(pstr);
  if (count < 0)
    return 0;
  if (iState == linkUp)
    takeLinkUp(*counter);
  else
    takeLinkDown(*counter);
  counter->iCntCur = count;
  return 1;
}

void ftmGet4PortStatCt(char* pstr, unsigned int iPort, unsigned int index) {
  pstr[0] = '\0';
  const ST_STAT_CT* counter = counterOf(iPort, index);
  if (counter == nullptr)
    return;
  // A total that the text can't hold shows as the largest one: cut digits would pass for a smaller total.
  const int total = std::clamp(sumOf(counter->iCntAcc, counter->iCntCur), 0, maxPortCount);
  std::snprintf(pstr, portCountTextSize, "%d", total);
}
