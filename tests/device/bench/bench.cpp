#include "tests/device/bench/bench.h"

#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "platform/board.h"
#include "platform/flashmgmt.h"

namespace gateway {

void Bench::clear() {
  const std::lock_guard lock(m_mutex);
  m_rows.clear();
}

void Bench::record(std::string_view kind, std::string_view text) {
  const std::lock_guard lock(m_mutex);
  m_rows.emplace_back(kind, text);
}

std::vector<std::string> Bench::journal(std::string_view kind) {
  const std::lock_guard lock(m_mutex);
  std::vector<std::string> texts;
  for (const auto& [rowKind, text] : m_rows)
    if (kind.empty())
      texts.push_back(std::string(rowKind).append(" ").append(text));
    else if (rowKind == kind)
      texts.push_back(text);
  return texts;
}

std::filesystem::path Bench::gatewayPath(std::string_view path) {
  static const std::filesystem::path root =
      std::filesystem::temp_directory_path() / ("bench-" + std::to_string(getpid()));
  return root / path.substr(1);
}

Bench& theUnit() {
  static auto* const bench = new Bench; // never destroyed: threads use it until the process ends
  return *bench;
}

} // namespace gateway

using gateway::theUnit;

namespace {

constexpr std::array priorityNames{"emerg", "alert", "crit", "err", "warning", "notice", "info", "debug"};

int refuse(int error) {
  errno = error;
  return -1;
}

} // namespace

int board_open(const char*, int) {
  return theUnit().open();
}

int board_close(int) {
  theUnit().close();
  return 0;
}

int board_ioctl(int, unsigned long request, void*) {
  if (request == FLSHMGMT_REBOOT)
    theUnit().record("reboot", "normal");
  return 0;
}

int board_socket(int, int, int) {
  return theUnit().open();
}

std::FILE* board_fopen(const char*, const char*) {
  errno = ENOENT;
  return nullptr;
}

int board_unlink(const char* path) {
  theUnit().record("remove", path);
  return unlink(gateway::Bench::gatewayPath(path).c_str());
}

int board_system(const char*) {
  return refuse(EAGAIN);
}

pid_t board_spawn(const char*, char* const*, char* const*) {
  return refuse(EAGAIN);
}

pid_t board_waitpid(pid_t, int*, int) {
  return refuse(ECHILD);
}

int board_kill(pid_t, int) {
  return refuse(ESRCH);
}

void board_vsyslog(int priority, const char* format, va_list arguments) {
  std::array<char, 1024> line{};
  std::vsnprintf(line.data(), line.size(), format, arguments);
  const auto level = static_cast<std::size_t>(LOG_PRI(priority));
  theUnit().record("log", std::string(priorityNames[level]) + " " + line.data());
}

void board_syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  board_vsyslog(priority, format, arguments);
  va_end(arguments);
}
