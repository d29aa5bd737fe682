#pragma once
// The switch and the network devices, as their user handles them. Ports count from 1: port N is row N - 1 of
// "SwitchStat".

namespace gateway {

class Database;
class Unit;

/// Plugs or unplugs a port; the counts of an unplugged one return to zero. Throws std::runtime_error when there is no
/// such port.
void setPortLink(Unit& unit, int port, bool isUp);
/// Sets the speed, in Mbit/s, that a port has while its link is up. Throws std::runtime_error for a speed other than
/// 10, 100 or 1000, or when there is no such port.
void setPortSpeed(Unit& unit, int port, int megabits);
/// Lets packets pass over every link that is up, or stops them.
void setTraffic(Unit& unit, bool isOn);
/// Brings the counters of all links to the present time.
void moveTraffic(Database& database);

} // namespace gateway
