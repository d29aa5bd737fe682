#include "simulator/scenario/recorder.h"

#include <algorithm>
#include <cstdio>

#include "simulator/clock.h"
#include "simulator/database.h"
#include "simulator/unit.h"
#include "simulator/whole_file.h"
#include "simulator/words.h"

namespace gateway {

namespace {

constexpr std::size_t longestText = 2000; // of a file that stands in the scenario itself
constexpr std::size_t headerSize = 4;
constexpr std::size_t blockSize = 512;
constexpr char dataOpcode = 3;
constexpr std::string_view unitsMessage = "unit: ";
constexpr std::string_view bootLimit = "60s";

bool isBlock(const std::string& bytes) {
  return bytes.size() >= headerSize && bytes[0] == 0 && bytes[1] == dataOpcode;
}

std::int64_t lastRowOf(Unit& unit) {
  Query query(unit.database(), "SELECT ifnull(max(id), 0) FROM journal");
  query.next();
  return query.number(0);
}

std::string timeText(std::int64_t us) {
  char text[32];
  std::snprintf(text, sizeof text, "at %.3fs ", static_cast<double>(us) / 1'000'000);
  return text;
}

} // namespace

Recorder::Recorder(Unit& unit)
    : m_unit(unit), m_lastRow(lastRowOf(unit)), m_wire(unit.folder(), WireReader::fromNow), m_startUs(clock::wallUs()) {
}

void Recorder::poll() {
  takeRows();
  takeDatagrams();
}

void Recorder::takeRows() {
  for (const JournalRow& row : m_unit.journal(m_lastRow)) {
    m_lastRow = row.id;
    if (row.kind == "action")
      m_events.push_back({row.timeMs * 1000, row.text});
    else if (row.kind == "ready")
      m_events.push_back({row.timeMs * 1000, std::string("wait ready within ").append(bootLimit)});
  }
}

void Recorder::takeDatagrams() {
  for (const Datagram& datagram : m_wire.poll()) {
    noteGap(datagram);
    m_transfers.add(datagram);
    takePayload(datagram);
  }
}

/// What the ring no longer holds can't be recorded. A fresh unit counts from 1 again, which is no gap.
void Recorder::noteGap(const Datagram& datagram) {
  if (m_lastDatagram != 0 && datagram.number > m_lastDatagram + 1)
    m_events.push_back({datagram.timeUs, "# " + std::to_string(datagram.number - m_lastDatagram - 1) +
                                             " datagrams before this came too fast to be recorded"});
  m_lastDatagram = datagram.number;
}

/// A block belongs to the last transfer that its station has begun.
void Recorder::takePayload(const Datagram& datagram) {
  if (!isBlock(datagram.bytes))
    return;
  const auto& all = m_transfers.all();
  const auto transfer = std::ranges::find(all.rbegin(), all.rend(), datagram.station, &Transfer::station);
  if (transfer == all.rend())
    return;
  if (transfer->isWrite && datagram.toUnit)
    takeUpload(*transfer, datagram);
  const bool isLast = datagram.bytes.size() < headerSize + blockSize;
  if (!transfer->isWrite && !datagram.toUnit && isLast && datagram.fate != Fate::lost)
    m_delivered.insert(transfer->number);
}

void Recorder::takeUpload(const Transfer& transfer, const Datagram& datagram) {
  Upload& upload = m_uploads[transfer.number];
  const std::string& bytes = datagram.bytes;
  const unsigned block = static_cast<unsigned>(static_cast<unsigned char>(bytes[2])) << 8 |
                         static_cast<unsigned>(static_cast<unsigned char>(bytes[3]));
  if (block != static_cast<std::uint16_t>(upload.lastBlock + 1))
    return;
  upload.lastBlock = static_cast<std::uint16_t>(block);
  upload.content += bytes.substr(headerSize);
}

void Recorder::save(const std::filesystem::path& file) const {
  std::vector<Event> events = m_events;
  int files = 0;
  for (const Transfer& transfer : m_transfers.all())
    events.push_back({transfer.startUs, stepOf(transfer, file, files)});
  std::ranges::stable_sort(events, {}, &Event::timeUs);
  std::string text = "# Recorded by \"gateway record\".\n";
  for (const Event& event : events) {
    const std::string time = timeText(std::max<std::int64_t>(event.timeUs - m_startUs, 0));
    text.append(event.step.starts_with('#') ? "# " + time + event.step.substr(2) : time + event.step).append("\n");
  }
  writeWholeFile(file, text);
}

std::string Recorder::stepOf(const Transfer& transfer, const std::filesystem::path& file, int& files) const {
  std::vector<std::string> words{transfer.isWrite ? "write" : "read", transfer.file};
  const bool isRefused = transfer.outcome == Outcome::error && transfer.message.starts_with(unitsMessage);
  // The unit need not have got the station's last acknowledgement.
  const bool isDone = transfer.outcome == Outcome::done || m_delivered.contains(transfer.number);
  if (!isDone && !isRefused)
    return "# " + joinWords(words) + " was given up";
  if (transfer.isWrite) {
    const auto upload = m_uploads.find(transfer.number);
    const std::string content = upload == m_uploads.end() ? "" : upload->second.content;
    const bool isLong = content.size() > longestText;
    const std::string name = file.filename().string() + "." + std::to_string(files + 1);
    files += isLong ? 1 : 0;
    if (isLong)
      writeWholeFile(file.parent_path() / name, content);
    words.insert(words.end(), {isLong ? "file" : "text", isLong ? name : content});
  }
  if (isRefused)
    words.insert(words.end(), {"expect", "error", transfer.message.substr(unitsMessage.size())});
  return joinWords(words);
}

} // namespace gateway
