#include "tests/failures/contents.h"

#include <map>

namespace contents {

namespace {

/// Attributes and texts by the element's path.
using Elements = std::map<std::string, std::string>;

std::string_view trimmed(std::string_view line) {
  const std::size_t start = line.find_first_not_of(" \r\n");
  return start == std::string_view::npos ? "" : line.substr(start, line.find_last_not_of(" \r\n") + 1 - start);
}

/// Takes the lines of a file, each of which is a tag or a text.
class Reader {
public:
  void take(std::string_view line) {
    if (line.starts_with("</"))
      return leave();
    if (!line.starts_with("<")) {
      m_elements[m_path].append(line).append("\n");
      return;
    }
    const std::string_view tag = line.substr(1, line.find_last_not_of("/>"));
    const std::size_t nameEnd = tag.find(' ');
    m_path.append("/").append(tag.substr(0, nameEnd));
    m_elements[m_path].append(nameEnd == std::string_view::npos ? "" : tag.substr(nameEnd)).append("\n");
    if (line.ends_with("/>") || line.ends_with("?>"))
      leave();
  }

  const Elements& elements() const { return m_elements; }

private:
  void leave() { m_path.resize(m_path.empty() ? 0 : m_path.rfind('/')); }

  std::string m_path;
  Elements m_elements;
};

Elements elementsOf(std::string_view file) {
  Reader reader;
  while (!file.empty()) {
    const std::size_t end = file.find('\n');
    if (const std::string_view line = trimmed(file.substr(0, end)); !line.empty())
      reader.take(line);
    file.remove_prefix(end == std::string_view::npos ? file.size() : end + 1);
  }
  return reader.elements();
}

void addMissing(std::set<std::string>& paths, const Elements& elements, const Elements& from) {
  for (const auto& [path, text] : elements)
    if (const auto same = from.find(path); same == from.end() || same->second != text)
      paths.insert(path.substr(path.empty() ? 0 : 1));
}

} // namespace

std::set<std::string> differences(std::string_view file, std::string_view other) {
  const Elements elements = elementsOf(file);
  const Elements others = elementsOf(other);
  std::set<std::string> paths;
  addMissing(paths, elements, others);
  addMissing(paths, others, elements);
  return paths;
}

} // namespace contents
