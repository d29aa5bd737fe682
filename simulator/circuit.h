#pragma once
// The ATM circuit of the data interface, as the gateway's init scripts make and delete it.

#include <string_view>

namespace gateway {

class Unit;

/// Makes "1.VPI.VCI" the circuit of the data interface, in the store's tables of circuits. Returns whether the text
/// names a circuit (VPI 0 to 255, VCI 0 to 65535, in decimal); nothing is changed when it doesn't. Journals either.
bool newCircuit(Unit& unit, std::string_view circuit, std::string_view macAddress);
/// Deletes a circuit. Returns false, with nothing changed, when there is no such circuit.
bool deleteCircuit(Unit& unit, std::string_view circuit);

} // namespace gateway
