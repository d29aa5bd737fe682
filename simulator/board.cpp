// The simulated gateway's side of board.h: devices, files and the log.
#include "platform/board.h"

#include <fcntl.h>
#include <net/if.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <mutex>
#include <string>
#include <vector>

#include "simulator/board_calls.h"
#include "simulator/drivers/driver.h"
#include "simulator/faults.h"
#include "simulator/unit.h"

using namespace gateway;

namespace {

// Far from the numbers of the process's own descriptors, so that one is never taken for the other.
constexpr int firstDescriptor = 1 << 20;

/// What a descriptor stands for.
struct Opened {
  bool inUse = false;
  const Driver* driver = nullptr; ///< null for a control socket
};

std::mutex descriptorMutex;

std::vector<Opened>& descriptors() {
  static auto* const opened = new std::vector<Opened>; // never destroyed: threads use it until the process ends
  return *opened;
}

int newDescriptor(const Driver* driver) {
  const std::lock_guard lock(descriptorMutex);
  std::size_t index = 0;
  while (index < descriptors().size() && descriptors()[index].inUse)
    ++index;
  if (index == descriptors().size())
    descriptors().emplace_back();
  descriptors()[index] = {true, driver};
  return firstDescriptor + static_cast<int>(index);
}

Opened findDescriptor(int descriptor) {
  const std::lock_guard lock(descriptorMutex);
  if (descriptor < firstDescriptor)
    return {};
  const auto index = static_cast<std::size_t>(descriptor - firstDescriptor);
  return index < descriptors().size() ? descriptors()[index] : Opened();
}

/// Requests of whatever takes `request` on a descriptor; null when nothing does.
const Requests* takerOf(const Opened& opened, unsigned long request) {
  if (opened.driver != nullptr)
    return &opened.driver->requests;
  const SocketDriver* const driver = findSocketDriver(request);
  return driver != nullptr ? &driver->requests : nullptr;
}

std::string requestRow(std::string_view path, unsigned long request, const std::string& record, int result) {
  std::string row(path);
  row.append(" ").append(requestText(request));
  if (!record.empty())
    row.append(" ").append(record);
  if (result < 0)
    row.append(" failed: ").append(strerrorname_np(-result));
  return row;
}

int answer(const Opened& opened, unsigned long request, void* argument) {
  Unit& unit = theUnit();
  const std::string_view path = opened.driver != nullptr ? opened.driver->path : socketPath;
  const Requests* const taker = takerOf(opened, request);
  int result = -ENOTTY;
  if (unit.faults().has({"request", path, requestText(request)}))
    result = -EIO;
  else if (taker != nullptr)
    result = taker->answer(unit, request, argument);
  unit.record("request", requestRow(path, request, taker != nullptr ? taker->record(request, argument) : "", result));
  if (result >= 0 && taker->afterwards != nullptr)
    taker->afterwards(unit, request);
  return result;
}

std::string formatted(const char* format, va_list arguments) {
  std::array<char, 512> line{};
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(line.data(), line.size(), format, arguments);
  std::string text(line.data(), std::min(line.size() - 1, static_cast<std::size_t>(std::max(length, 0))));
  if (length >= static_cast<int>(line.size())) {
    text.resize(static_cast<std::size_t>(length));
    std::vsnprintf(text.data(), text.size() + 1, format, again);
  }
  va_end(again);
  return text;
}

constexpr std::array priorityNames{"emerg", "alert", "crit", "err", "warning", "notice", "info", "debug"};

std::FILE* streamOf(const std::string& text) {
  std::FILE* const stream = fmemopen(nullptr, text.size() + 1, "w+");
  if (stream == nullptr)
    return nullptr;
  std::fwrite(text.data(), 1, text.size(), stream);
  std::rewind(stream);
  return stream;
}

} // namespace

int gateway::openDescriptors() {
  const std::lock_guard lock(descriptorMutex);
  return static_cast<int>(std::ranges::count(descriptors(), true, &Opened::inUse));
}

int board_open(const char* path, int flags) {
  return posixCall([&]() -> int {
    const Driver* const driver = findDriver(path);
    if (driver == nullptr)
      return -ENOENT;
    if ((flags & O_ACCMODE) != O_RDWR) // which the drivers insist on
      return -EACCES;
    if (theUnit().faults().has({"open", path}))
      return -ENODEV;
    return newDescriptor(driver);
  });
}

int board_close(int descriptor) {
  return posixCall([&] {
    if (!findDescriptor(descriptor).inUse)
      return -EBADF;
    const std::lock_guard lock(descriptorMutex);
    descriptors()[static_cast<std::size_t>(descriptor - firstDescriptor)] = {};
    return 0;
  });
}

int board_ioctl(int descriptor, unsigned long request, void* argument) {
  return posixCall([&] {
    const Opened opened = findDescriptor(descriptor);
    return opened.inUse ? answer(opened, request, argument) : -EBADF;
  });
}

int board_socket(int domain, int type, int) {
  return posixCall([&]() -> int {
    if (domain != AF_INET)
      return -EAFNOSUPPORT;
    if (type != SOCK_DGRAM)
      return -EPROTONOSUPPORT;
    if (theUnit().faults().has("socket"))
      return -EMFILE;
    return newDescriptor(nullptr);
  });
}

std::FILE* board_fopen(const char* path, const char* mode) {
  std::FILE* stream = nullptr;
  posixCall([&] {
    const TextFile* const file = findTextFile(path);
    if (file == nullptr || theUnit().faults().has({"file", path}))
      return -ENOENT;
    if (std::string_view(mode) != "r")
      return -EACCES;
    stream = streamOf(file->text(theUnit()));
    return stream != nullptr ? 0 : -ENOMEM;
  });
  return stream;
}

int board_unlink(const char* path) {
  return posixCall([&] {
    theUnit().record("remove", path);
    return unlink(theUnit().gatewayPath(path).c_str()) == 0 ? 0 : -errno;
  });
}

void board_vsyslog(int priority, const char* format, va_list arguments) {
  posixCall([&] {
    const auto level = static_cast<std::size_t>(LOG_PRI(priority));
    theUnit().record("log", std::string(priorityNames[level]) + " " + formatted(format, arguments));
    return 0;
  });
}

void board_syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  board_vsyslog(priority, format, arguments);
  va_end(arguments);
}
