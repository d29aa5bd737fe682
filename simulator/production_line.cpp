#include "simulator/production_line.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <thread>

#include "simulator/database.h"
#include "simulator/line_network.h"
#include "simulator/panel/life.h"
#include "simulator/service_output.h"
#include "simulator/supervisor.h"
#include "simulator/supervisor_lock.h"
#include "simulator/unit.h"

namespace gateway {

namespace {

using namespace std::chrono_literals;

constexpr const char* lineLock = "line.lock";
constexpr const char* addressFile = "addresses"; ///< a line of a unit's name and address for each
constexpr int firstSerial = 1000;                // and the unit's number
constexpr auto pollTime = 50ms;
constexpr auto leftOverTime = 20s; // that the units of a line that was killed may take to end

/// Keeps a second line off the folder.
class LineLock {
public:
  explicit LineLock(const std::filesystem::path& folder)
      : m_descriptor(open((folder / lineLock).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
    if (m_descriptor < 0)
      throw std::runtime_error("the folder " + folder.string() + " can't be written");
    if (flock(m_descriptor, LOCK_EX | LOCK_NB) == 0)
      return;
    release();
    throw std::runtime_error("the line in " + folder.string() + " runs already");
  }
  ~LineLock() { release(); }
  LineLock(const LineLock&) = delete;
  LineLock& operator=(const LineLock&) = delete;

  /// For a child, which must not keep the lock when the line has ended.
  void release() {
    if (m_descriptor >= 0)
      close(m_descriptor);
    m_descriptor = -1;
  }

private:
  int m_descriptor;
};

std::string unitName(int number) {
  return "unit" + std::to_string(number);
}

std::string serialOf(Unit& unit) {
  return unit.cell("ProductionData", 0, "SerialNum").value_or("");
}

/// A MAC address that only the unit of this number has.
std::string macAddress(int number, int interface) {
  char text[32];
  std::snprintf(text, sizeof text, "02:1a:2c:%02x:%02x:%02x", static_cast<unsigned>(number >> 8 & 0xFF),
                static_cast<unsigned>(number & 0xFF), static_cast<unsigned>(interface));
  return text;
}

/// Gives a new unit what tells it from the others; a return to the factory configuration leaves it as it is.
void identify(Unit& unit, int number) {
  Transaction transaction(unit.database());
  unit.setCell("ProductionData", 0, "SerialNum", std::to_string(firstSerial + number));
  unit.setCell("ProductionData", 0, "MacAddr", macAddress(number, 1));
  execute(unit.database(), "UPDATE radio SET mac = ?", macAddress(number, 2));
  transaction.commit();
}

/// A unit is made under another name, so that none is left half made.
void makeUnit(const std::filesystem::path& folder, int number) {
  if (Unit::exists(folder))
    return;
  const std::filesystem::path making = folder.string() + ".new";
  std::filesystem::remove_all(making);
  identify(*Unit::open(making), number);
  std::filesystem::rename(making, folder);
}

std::string phaseOf(Unit& unit) {
  Life life;
  life.follow(unit);
  return phaseOf(life, isSupervised(unit.folder()));
}

/// One unit of the running line.
struct Member {
  int number;
  std::string name;
  std::filesystem::path folder;
  pid_t supervisor = -1;
  bool isReady = false;
};

class Line {
public:
  explicit Line(const LineOptions& options) : m_options(options), m_lock(options.folder) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
      sigaddset(&m_signals, signal);
    sigprocmask(SIG_BLOCK, &m_signals, &m_before);
    for (int index = 0; index < options.units; ++index) {
      const std::string name = unitName(options.from + index);
      m_members.push_back({.number = options.from + index, .name = name, .folder = options.folder / name});
    }
  }
  ~Line() {
    endAll();
    std::error_code ignored;
    std::filesystem::remove(m_options.folder / addressFile, ignored);
    sigprocmask(SIG_SETMASK, &m_before, nullptr);
  }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  int run() {
    for (const Member& member : m_members) {
      awaitEndOfLeftOver(member);
      makeUnit(member.folder, member.number);
    }
    m_network = std::make_unique<LineNetwork>(m_options.folder, m_options.units);
    writeAddresses();
    for (Member& member : m_members)
      start(member);
    while (!hasSignal())
      for (Member& member : m_members)
        if (hasFailed(member))
          return EXIT_FAILURE;
        else
          sayWhenReady(member);
    return EXIT_SUCCESS;
  }

private:
  /// Waits for the end of a unit whose line was killed a moment ago.
  static void awaitEndOfLeftOver(const Member& member) {
    const auto limit = std::chrono::steady_clock::now() + leftOverTime;
    while (std::filesystem::exists(member.folder) && isSupervised(member.folder)) {
      if (std::chrono::steady_clock::now() >= limit)
        throw std::runtime_error("the unit in " + member.folder.string() + " runs already");
      std::this_thread::sleep_for(pollTime); // its lock tells nobody that it is free
    }
  }

  std::string address(const Member& member) const { return m_network->address(member.number - m_options.from); }

  void writeAddresses() const {
    std::ofstream file(m_options.folder / addressFile);
    for (const Member& member : m_members)
      file << member.name << ' ' << address(member) << '\n';
  }

  void start(Member& member) {
    const pid_t line = getpid();
    std::fflush(stdout);
    member.supervisor = fork();
    if (member.supervisor < 0)
      throw std::runtime_error(member.name + " can't be started");
    if (member.supervisor == 0)
      _exit(superviseMember(member, line));
  }

  /// The supervisor's process. What it prints stands in the unit's folder.
  int superviseMember(const Member& member, pid_t line) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (getppid() != line || nowhere < 0 || !m_network->unit(member.number - m_options.from).enter())
      return EXIT_FAILURE;
    m_lock.release();
    setpgid(0, 0); // the line ends its units itself
    dup2(nowhere, STDOUT_FILENO);
    sigprocmask(SIG_SETMASK, &m_before, nullptr);
    try {
      return supervise({.unit = member.folder, .service = m_options.service});
    } catch (const std::exception& error) {
      std::fprintf(stderr, "gateway: %s: %s\n", member.name.c_str(), error.what());
      return EXIT_FAILURE;
    }
  }

  bool hasSignal() const {
    constexpr timespec limit{.tv_sec = 0, .tv_nsec = std::chrono::nanoseconds(pollTime).count()};
    return sigtimedwait(&m_signals, nullptr, &limit) > 0;
  }

  static bool hasFailed(Member& member) {
    if (waitpid(member.supervisor, nullptr, WNOHANG) == 0)
      return false;
    member.supervisor = -1;
    std::fprintf(stderr, "gateway: %s has ended; %s says why\n", member.name.c_str(),
                 (member.folder / outputFile).c_str());
    return true;
  }

  void sayWhenReady(Member& member) const {
    if (member.isReady || !isSupervised(member.folder))
      return;
    const auto unit = Unit::open(member.folder);
    if (phaseOf(*unit) != "up")
      return;
    member.isReady = true;
    std::printf("%s  %s  serial %s  ready\n", member.name.c_str(), address(member).c_str(), serialOf(*unit).c_str());
    if (std::ranges::all_of(m_members, &Member::isReady))
      std::printf("ready\n");
    std::fflush(stdout);
  }

  void endAll() {
    for (const Member& member : m_members)
      if (member.supervisor > 0)
        kill(member.supervisor, SIGTERM);
    for (Member& member : m_members)
      if (member.supervisor > 0)
        waitpid(member.supervisor, nullptr, 0);
  }

  const LineOptions m_options;
  LineLock m_lock;
  sigset_t m_signals{};
  sigset_t m_before{};
  std::vector<Member> m_members;
  std::unique_ptr<LineNetwork> m_network;
};

std::map<std::string, std::string> readAddresses(const std::filesystem::path& folder) {
  std::map<std::string, std::string> addresses;
  std::ifstream file(folder / addressFile);
  for (std::string name, address; file >> name >> address;)
    addresses[name] = address;
  return addresses;
}

bool isUnitName(const std::string& name) {
  const std::string_view digits = std::string_view(name).substr(std::min<std::size_t>(name.size(), 4));
  return name.starts_with("unit") && !digits.empty() && digits.size() < 9 &&
         std::ranges::all_of(digits, [](char digit) { return digit >= '0' && digit <= '9'; });
}

} // namespace

int runLine(const LineOptions& options) {
  std::filesystem::create_directories(options.folder);
  return Line(options).run();
}

std::vector<LineUnit> lineUnits(const std::filesystem::path& folder) {
  std::map<int, std::filesystem::path> folders;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ignored))
    if (const std::string name = entry.path().filename().string(); isUnitName(name) && Unit::exists(entry.path()))
      folders.emplace(std::stoi(name.substr(4)), entry.path());
  const std::map<std::string, std::string> addresses = readAddresses(folder);
  std::vector<LineUnit> units;
  for (const auto& [number, path] : folders) {
    const auto unit = Unit::open(path);
    const std::string name = unitName(number);
    const std::string phase = phaseOf(*unit);
    const auto address = addresses.find(name);
    const bool hasAddress = phase != "off" && address != addresses.end();
    units.push_back({.name = name,
                     .address = hasAddress ? address->second : "",
                     .folder = path,
                     .phase = phase,
                     .serial = serialOf(*unit)});
  }
  return units;
}

} // namespace gateway
