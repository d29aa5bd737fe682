#pragma once
// The network of a production line: a namespace for each unit, all of them on one bridge, which the machine reaches by
// an interface of its own. Everything but that interface is gone as soon as no process uses it.

#include <filesystem>
#include <string>
#include <vector>

namespace gateway {

/// A network namespace, for as long as this or a process in it lives.
class NetworkNamespace {
public:
  /// Makes a new one. Throws std::runtime_error.
  NetworkNamespace();
  ~NetworkNamespace();
  NetworkNamespace(NetworkNamespace&& other) noexcept;
  NetworkNamespace(const NetworkNamespace&) = delete;
  NetworkNamespace& operator=(const NetworkNamespace&) = delete;
  NetworkNamespace& operator=(NetworkNamespace&&) = delete;

  /// Takes the calling thread into it. Returns whether that went well.
  bool enter() const;
  /// How ip(8) finds it.
  std::string path() const;

private:
  int m_descriptor;
};

class LineNetwork {
public:
  /// Makes the network of the line in a folder, with addresses that the machine has no interface for. Throws
  /// std::runtime_error, with nothing left behind.
  LineNetwork(const std::filesystem::path& folder, int units);
  ~LineNetwork();
  LineNetwork(const LineNetwork&) = delete;
  LineNetwork& operator=(const LineNetwork&) = delete;

  /// Address of a unit, counted from 0.
  std::string address(int unit) const;
  const NetworkNamespace& unit(int number) const { return m_units[static_cast<std::size_t>(number)]; }

private:
  void connectHost() const;
  void connectUnit(int number) const;
  void removeInterface() const;

  std::string m_interface; ///< of the machine
  std::string m_prefix;    ///< of the addresses, "10.69.0."
  NetworkNamespace m_hub;
  std::vector<NetworkNamespace> m_units;
};

constexpr int mostLineUnits = 200;

} // namespace gateway
