#include "simulator/line_network.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <set>
#include <stdexcept>
#include <utility>

namespace gateway {

namespace {

constexpr const char* ownNamespace = "/proc/thread-self/ns/net";
constexpr int hostNumber = 1;
constexpr int firstUnitNumber = 11;
constexpr int networks = 256; // 10.69.0.0/24 to 10.69.255.0/24
constexpr int commandNotRun = 127;

std::runtime_error systemError(const std::string& what) {
  const std::string reason = errno == EPERM ? "that needs root" : std::strerror(errno);
  return std::runtime_error(what + ": " + reason);
}

/// Opens the namespace that the thread is in.
int openOwnNamespace() {
  return open(ownNamespace, O_RDONLY | O_CLOEXEC);
}

int makeNamespace() {
  const int before = openOwnNamespace();
  if (before < 0 || unshare(CLONE_NEWNET) != 0) {
    const std::runtime_error error = systemError("no network namespace can be made");
    close(before);
    throw error;
  }
  const int made = openOwnNamespace();
  const bool isBack = setns(before, CLONE_NEWNET) == 0;
  close(before);
  if (made < 0 || !isBack)
    throw systemError("no network namespace can be made");
  return made;
}

/// Runs ip(8) on commands, a line each, in a namespace or, for none, where the process is. Returns whether all went
/// well.
bool runIp(const NetworkNamespace* where, const std::string& commands, bool isQuiet = false) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0)
    throw systemError("no pipe can be made");
  const pid_t child = fork();
  if (child == 0) {
    dup2(ends[0], STDIN_FILENO);
    if (isQuiet)
      dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
    if (where == nullptr || where->enter())
      execlp("ip", "ip", "-batch", "-", nullptr);
    _exit(commandNotRun);
  }
  // The reading end is open here, too: a machine without ip(8) is no broken pipe.
  const bool isWritten = write(ends[1], commands.data(), commands.size()) == static_cast<ssize_t>(commands.size());
  close(ends[0]);
  close(ends[1]);
  int status = 0;
  waitpid(child, &status, 0);
  return isWritten && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void requireIp(const NetworkNamespace* where, const std::string& commands) {
  if (!runIp(where, commands))
    throw std::runtime_error("the network of the line can't be made: ip has failed");
}

/// A name that two folders don't share, short enough for an interface.
std::string interfaceOf(const std::filesystem::path& folder) {
  std::uint32_t hash = 2166136261;
  for (const char character : std::filesystem::weakly_canonical(folder).string())
    hash = (hash ^ static_cast<unsigned char>(character)) * 16777619;
  char name[IFNAMSIZ];
  std::snprintf(name, sizeof name, "line%08x", static_cast<unsigned>(hash));
  return name;
}

std::string prefixOf(int network) {
  return "10.69." + std::to_string(network) + ".";
}

/// A prefix of addresses that no interface of the machine has.
std::string freePrefix() {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0)
    throw systemError("the addresses of this machine can't be read");
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, freeifaddrs);
  std::set<std::string> used;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET)
      continue;
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr, text, sizeof text);
    const std::string address(text);
    used.insert(address.substr(0, address.rfind('.') + 1));
  }
  for (int network = 0; network < networks; ++network)
    if (!used.contains(prefixOf(network)))
      return prefixOf(network);
  throw std::runtime_error("no addresses are left for another line");
}

} // namespace

NetworkNamespace::NetworkNamespace() : m_descriptor(makeNamespace()) {}

NetworkNamespace::~NetworkNamespace() {
  if (m_descriptor >= 0)
    close(m_descriptor);
}

NetworkNamespace::NetworkNamespace(NetworkNamespace&& other) noexcept
    : m_descriptor(std::exchange(other.m_descriptor, -1)) {}

bool NetworkNamespace::enter() const {
  return setns(m_descriptor, CLONE_NEWNET) == 0;
}

std::string NetworkNamespace::path() const {
  return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(m_descriptor);
}

LineNetwork::LineNetwork(const std::filesystem::path& folder, int units) : m_interface(interfaceOf(folder)) {
  removeInterface(); // of a line in this folder that was killed
  m_prefix = freePrefix();
  m_units.resize(static_cast<std::size_t>(units));
  try {
    connectHost();
    for (int number = 0; number < units; ++number)
      connectUnit(number);
  } catch (...) {
    removeInterface();
    throw;
  }
}

LineNetwork::~LineNetwork() {
  try {
    removeInterface();
  } catch (const std::exception&) { // it goes with the last process in the namespaces
  }
}

std::string LineNetwork::address(int unit) const {
  return m_prefix + std::to_string(firstUnitNumber + unit);
}

void LineNetwork::connectHost() const {
  requireIp(&m_hub, "link add bridge type bridge\nlink set bridge up\n");
  requireIp(nullptr, "link add " + m_interface + " type veth peer name host netns " + m_hub.path() + "\naddress add " +
                         m_prefix + std::to_string(hostNumber) + "/24 dev " + m_interface + "\nlink set " +
                         m_interface + " up\n");
  requireIp(&m_hub, "link set host master bridge up\n");
}

void LineNetwork::connectUnit(int number) const {
  const std::string port = "port" + std::to_string(number);
  requireIp(&m_hub, "link add " + port + " type veth peer name eth0 netns " + unit(number).path() + "\nlink set " +
                        port + " master bridge up\n");
  const NetworkNamespace& own = unit(number);
  requireIp(&own, "link set lo up\naddress add " + address(number) + "/24 dev eth0\nlink set eth0 up\n");
}

void LineNetwork::removeInterface() const {
  // The kernel may be about to remove it, too: that of a line whose last process has ended.
  const auto isThere = [this] { return if_nametoindex(m_interface.c_str()) != 0; };
  if (isThere() && !runIp(nullptr, "link delete " + m_interface + "\n", true) && isThere())
    throw std::runtime_error("the interface " + m_interface + " can't be removed");
}

} // namespace gateway
