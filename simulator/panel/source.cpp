#include "simulator/panel/source.h"

#include <sys/stat.h>

namespace gateway {

UnitSource::FileIdentity UnitSource::present() const {
  struct stat file {};
  if (stat(Unit::file(m_folder).c_str(), &file) != 0)
    return {};
  return {file.st_dev, file.st_ino};
}

void UnitSource::open() {
  const FileIdentity now = present();
  if (m_unit != nullptr && now == m_opened)
    return;
  m_unit.reset();
  if (now == FileIdentity())
    throw NoUnit("there is no unit in " + m_folder.string());
  m_unit = Unit::open(m_folder);
  m_opened = now; // from before it was opened: one that took its place meanwhile is opened once more
  m_life.beginAnew();
}

} // namespace gateway
