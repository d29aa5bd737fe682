#include "simulator/panel/output_tail.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "simulator/service_output.h"

namespace gateway {

namespace {

constexpr off_t tailSize = off_t{64} << 10; // of the file as it is found: more than the kept lines need

} // namespace

OutputTail::OutputTail(const std::filesystem::path& folder) : m_file(folder / outputFile) {}

OutputTail::~OutputTail() {
  if (m_descriptor >= 0)
    close(m_descriptor);
}

std::vector<std::string> OutputTail::poll() {
  std::vector<std::string> lines;
  if (m_descriptor < 0)
    open();
  // Of a file that has been replaced the end is read before the new one is begun.
  const bool wasReplaced = isReplaced();
  if (!readOn(lines) && wasReplaced)
    open();
  for (const std::string& line : lines)
    m_newest.push_back(line);
  while (m_newest.size() > keptLines)
    m_newest.pop_front();
  return lines;
}

bool OutputTail::isReplaced() const {
  struct stat opened {};
  struct stat present {};
  return m_descriptor >= 0 && fstat(m_descriptor, &opened) == 0 && stat(m_file.c_str(), &present) == 0 &&
         (opened.st_ino != present.st_ino || opened.st_dev != present.st_dev);
}

void OutputTail::open() {
  const bool isFirst = m_descriptor < 0;
  if (!isFirst)
    close(m_descriptor);
  m_descriptor = ::open(m_file.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status {};
  if (isFirst && fstat(m_descriptor, &status) == 0 && status.st_size > tailSize)
    lseek(m_descriptor, status.st_size - tailSize, SEEK_SET);
}

/// Returns whether there was anything.
bool OutputTail::readOn(std::vector<std::string>& lines) {
  std::array<char, tailSize> bytes;
  const ssize_t size = m_descriptor < 0 ? 0 : read(m_descriptor, bytes.data(), bytes.size());
  if (size <= 0)
    return false;
  split({bytes.data(), static_cast<std::size_t>(size)}, lines);
  return true;
}

void OutputTail::split(std::string_view bytes, std::vector<std::string>& lines) {
  for (const char byte : bytes) {
    if (byte == '\n') {
      endLine(lines);
      continue;
    }
    m_begun += byte;
    if (m_begun.size() == longestLine)
      endLine(lines);
  }
}

void OutputTail::endLine(std::vector<std::string>& lines) {
  lines.push_back(std::exchange(m_begun, {}));
}

} // namespace gateway
