#pragma once
// The switch and the network devices, as their user handles them. Ports count from 1: port N is row N - 1 of
// "SwitchStat".

#include <string>
#include <vector>

namespace gateway {

class Database;
class Unit;

struct SwitchPort {
  int number;
  bool isUp;
  std::string megabits; ///< "0" while the link is down
  std::string received; ///< packets since the link came up
  std::string sent;
};

/// The ports with their counts at this moment.
std::vector<SwitchPort> switchPorts(Unit& unit);

/// Plugs or unplugs a port; the counts of an unplugged one return to zero. Throws std::runtime_error when there is no
/// such port.
void setPortLink(Unit& unit, int port, bool isUp);
/// Sets the speed, in Mbit/s, that a port has while its link is up. Throws std::runtime_error for a speed other than
/// 10, 100 or 1000, or when there is no such port.
void setPortSpeed(Unit& unit, int port, int megabits);
/// Lets packets pass over every link that is up, or stops them.
void setTraffic(Unit& unit, bool isOn);
bool isTrafficOn(Unit& unit);
/// Brings the counters of all links to the present time.
void moveTraffic(Database& database);

} // namespace gateway
