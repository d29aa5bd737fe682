#include "simulator/faults.h"

#include <algorithm>

#include "platform/adsldrv.h"
#include "simulator/drivers/driver.h"
#include "simulator/store/tables.h"

namespace gateway {

namespace {

constexpr FaultForm forms[] = {
    {"open PATH", "the device can't be opened"},
    {"request PATH NUMBER", "this request of the device fails; PATH is \"socket\" for a network-interface request"},
    {"refuse PATH NUMBER", "the ADSL driver takes this request, but says in its status that it refuses"},
    {"socket", "a control socket can't be opened"},
    {"file PATH", "the kernel text file can't be opened"},
    {"radio", "the wireless driver doesn't answer"},
    {"radio-magic", "the wireless interface belongs to a foreign driver"},
    {"radio-version", "the wireless driver is newer than the service knows"},
    {"radio-request NUMBER", "the wireless driver refuses this command"},
    {"spawn", "no process can be started"},
    {"session", "a store session can't be started"},
    {"table NAME", "the store table can't be read"},
    {"transaction", "a store transaction can't be started"},
    {"field COLUMN", "a cell of this column can't be staged"},
    {"commit", "a store transaction can't be committed"},
    {"reset", "the factory configuration can't be restored"},
    {"message", "a store message can't be sent"},
    {"ini", "an INI text can't be applied"},
};

std::vector<std::string> wordsOf(std::string_view text) {
  std::vector<std::string> words;
  std::size_t start = 0;
  while (start <= text.size()) {
    const std::size_t end = std::min(text.find(' ', start), text.size());
    words.emplace_back(text.substr(start, end - start));
    start = end + 1;
  }
  return words;
}

bool isRequest(std::string_view path, std::string_view number) {
  if (path == socketPath)
    return std::ranges::any_of(socketDrivers(),
                               [&](const SocketDriver& driver) { return requestText(driver.request) == number; });
  return findDriver(path) != nullptr && isRequestText(number);
}

bool isColumn(std::string_view name, Tables& tables) {
  return std::ranges::any_of(storeTables(),
                             [&](const StoreTable& table) { return tables.findColumn(table, name) >= 0; });
}

/// Whether the unit has what the words behind the first one name.
bool isKnown(const std::vector<std::string>& words, Tables& tables) {
  const std::string& kind = words[0];
  if (kind == "open")
    return findDriver(words[1]) != nullptr;
  if (kind == "request")
    return isRequest(words[1], words[2]);
  if (kind == "refuse")
    return words[1] == adslDevice && isRequest(words[1], words[2]);
  if (kind == "file")
    return findTextFile(words[1]) != nullptr;
  if (kind == "table")
    return findTable(words[1]) != nullptr;
  if (kind == "field")
    return isColumn(words[1], tables);
  return true;
}

bool hasForm(const std::vector<std::string>& words) {
  return std::ranges::any_of(forms, [&](const FaultForm& fault) {
    const std::vector<std::string> form = wordsOf(fault.form);
    return form[0] == words[0] && form.size() == words.size();
  });
}

} // namespace

std::span<const FaultForm> faultForms() {
  return forms;
}

void Faults::set(std::string_view name, bool on) {
  const std::vector<std::string> words = wordsOf(name);
  Tables tables(m_database);
  if (!hasForm(words) || !isKnown(words, tables))
    throw std::runtime_error("no such fault: " + std::string(name));
  execute(m_database, on ? "INSERT OR IGNORE INTO faults VALUES (?)" : "DELETE FROM faults WHERE name = ?", name);
}

const std::vector<std::string>& Faults::current() {
  const Database::Version version = m_database.version();
  if (version == m_version)
    return m_names;
  m_names.clear();
  Query query(m_database, "SELECT name FROM faults ORDER BY name");
  while (query.next())
    m_names.emplace_back(query.text(0));
  m_version = version;
  return m_names;
}

std::vector<std::string> Faults::names() {
  const auto lock = m_database.lock();
  return current();
}

bool Faults::has(std::string_view name) {
  return has({name});
}

bool Faults::has(std::initializer_list<std::string_view> words) {
  const auto lock = m_database.lock();
  const std::vector<std::string>& names = current();
  if (names.empty())
    return false;
  std::string name;
  for (const std::string_view word : words) {
    if (!name.empty())
      name += ' ';
    name += word;
  }
  return std::ranges::binary_search(names, name);
}

} // namespace gateway
