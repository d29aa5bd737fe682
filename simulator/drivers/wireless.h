#pragma once
// The radio, as its control program and its user handle it.

#include <string>
#include <string_view>

namespace gateway {

class Unit;

constexpr int lowestRadioChannel = 1;
constexpr int highestRadioChannel = 14;
constexpr std::size_t longestSsid = 32;

struct RadioState {
  bool isUp;
  std::string ssid;
  int channel;
  std::string country;
  std::string mac;
  std::string stations;
};

RadioState radioState(Unit& unit);

/// Switches the radio on or off. Switched off, it loses its stations.
void setRadioPower(Unit& unit, bool isUp);
/// Tunes the radio. Returns false, with nothing changed, for a channel that it doesn't have, or while it is on.
bool setRadioChannel(Unit& unit, int channel);
/// Names the network. Returns false, with nothing changed, when the name is longer than longestSsid, or while the radio
/// is off.
bool setRadioSsid(Unit& unit, std::string_view ssid);
/// A station joins the network, or leaves it. Returns false when the radio is off, or there is no station.
bool joinStation(Unit& unit);
bool leaveStation(Unit& unit);

} // namespace gateway
