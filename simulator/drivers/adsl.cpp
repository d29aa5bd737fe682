// The ADSL driver: stops and starts the connection of the line.
#include <cerrno>
#include <cstdint>
#include <string>

#include "platform/adsldrv.h"
#include "simulator/drivers/driver.h"
#include "simulator/drivers/line.h"
#include "simulator/faults.h"
#include "simulator/unit.h"

namespace gateway {

namespace {

constexpr std::int32_t refusedStatus = 1;

void stop(Unit& unit) {
  setLineState(unit.database(), LineState::down);
}

/// A line that trains or is up goes on with that.
void start(Unit& unit) {
  if (lineState(unit.database()) == LineState::down)
    setLineState(unit.database(), LineState::training);
}

bool isKnown(unsigned long request) {
  return request == ADSLIOCTL_CONNECTION_STOP || request == ADSLIOCTL_CONNECTION_START;
}

int answer(Unit& unit, unsigned long request, void* argument) {
  if (!isKnown(request))
    return -ENOTTY;
  if (argument == nullptr)
    return -EFAULT;
  if (unit.faults().has({"refuse", adslDevice, requestText(request)})) {
    *static_cast<std::int32_t*>(argument) = refusedStatus;
    return 0;
  }
  request == ADSLIOCTL_CONNECTION_STOP ? stop(unit) : start(unit);
  return 0; // a status that is already there is the caller's and stays
}

std::string record(unsigned long request, const void* argument) {
  if (argument == nullptr || !isKnown(request))
    return {};
  return "status=" + std::to_string(*static_cast<const std::int32_t*>(argument));
}

} // namespace

const Requests adslRequests{answer, record};

} // namespace gateway
