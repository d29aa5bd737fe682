// A document: its tree is written in the computed length, into a shorter buffer as far as it fits, and echoed; and read
// back it is the same tree, unless it holds what the serializer, which escapes nothing, can't write.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/fuzz/fuzz.h"
#include "userapps/FTM/xml_parser.h"

namespace {

constexpr std::size_t longestPiece = 127; // of a tag or an attribute with the characters around it

/// Takes what is printed to standard output as long as it lives.
class Echo {
public:
  Echo() : m_kept(stdout), m_stream(open_memstream(&m_text, &m_length)) {
    fuzz::require(m_stream != nullptr, "there is memory for what is printed");
    stdout = m_stream;
  }
  ~Echo() {
    stdout = m_kept;
    std::fclose(m_stream);
    std::free(m_text);
  }
  Echo(const Echo&) = delete;
  Echo& operator=(const Echo&) = delete;

  std::string text() {
    std::fflush(m_stream);
    return {m_text, m_length};
  }

private:
  char* m_text = nullptr;
  std::size_t m_length = 0;
  std::FILE* m_kept;
  std::FILE* m_stream;
};

/// Whether a text is another one with characters left out.
bool isPartOf(std::string_view part, std::string_view whole) {
  for (const char character : whole)
    if (!part.empty() && part.front() == character)
      part.remove_prefix(1);
  return part.empty();
}

/// Into a buffer of exactly that size go the pieces that fit, and a NUL.
void requireCut(const ST_XML_ELEMENT* tree, std::string_view text, std::size_t size, int readable, int echoed) {
  const auto buffer = std::make_unique<char[]>(size);
  unsigned long count = 0;
  fuzz::require(DumpToXML(tree, buffer.get(), size, &count, readable, echoed, 0) == 0, "what fits is written");
  fuzz::require(count < size && strnlen(buffer.get(), size) == count, "a short buffer holds a text of the told length");
  fuzz::require(isPartOf(buffer.get(), text), "a short buffer holds pieces of the text");
}

/// What is echoed is the whole text, whether it fits or not, as printf() prints a format that has nothing to convert.
void requireEcho(const ST_XML_ELEMENT* tree, std::string_view text, int readable) {
  Echo echo;
  requireCut(tree, text, text.size() / 2 + 1, readable, 1);
  const std::string echoed = echo.text();
  if (text.find('%') == std::string_view::npos)
    fuzz::require(echoed == text, "a text is echoed as a whole");
  else
    fuzz::require(isPartOf(echoed, text), "nothing is echoed that isn't in the text");
}

void requireShortBuffers(const ST_XML_ELEMENT* tree, std::string_view text, int readable) {
  requireCut(tree, text, 1, readable, 0);
  requireCut(tree, text, text.size() / 2 + 1, readable, 0);
  requireCut(tree, text, std::max<std::size_t>(text.size(), 1), readable, 0);
}

std::string written(const ST_XML_ELEMENT* tree, int readable) {
  unsigned long length = 0;
  XML_fileLength(tree, &length, readable, 0);
  const auto buffer = std::make_unique<char[]>(length + 1);
  unsigned long count = 0;
  fuzz::require(DumpToXML(tree, buffer.get(), length + 1, &count, readable, 0, 0) == 0, "a tree is written");
  fuzz::require(count == length && std::strlen(buffer.get()) == length, "the length is the computed one");
  return {buffer.get(), length};
}

XmlTree parsed(std::string_view document) {
  return XmlTree(create_xml_object(fuzz::WritableText(document).get()));
}

/// Names end at white space, and markup stands for itself in them. To the parser no other character is special.
bool isName(std::string_view text) {
  return !text.empty() && text.find_first_of(" \t\r\n<>/=\"?!") == std::string_view::npos;
}

bool isWritable(std::string_view text) {
  return text.find_first_of("\n<>&\"") == std::string_view::npos;
}

bool areAttributesWritable(const ST_XML_ELEMENT& element) {
  for (std::size_t index = 0; element.m_attrnames != nullptr && element.m_attrnames[index] != nullptr; ++index) {
    const std::string_view name = element.m_attrnames[index];
    const std::string_view value = element.m_attrvalues[index];
    if (!isName(name) || !isWritable(value) || name.size() + value.size() + 4 > longestPiece)
      return false;
  }
  return true;
}

/// A declaration without attributes is written as what no parser takes for one, and an element may not be named as the
/// parser names what it makes itself.
bool isTagWritable(const ST_XML_ELEMENT& element) {
  const std::string_view tag = element.m_tag;
  if (tag == "xml")
    return element.m_hasbody == 0 && element.m_attrnames != nullptr && element.m_elements == nullptr;
  return isName(tag) && tag != "top" && tag.size() + 3 <= longestPiece;
}

template <class Check>
bool areAll(ST_XML_ELEMENT* const* elements, Check check) {
  for (; elements != nullptr && *elements != nullptr; ++elements)
    if (!check(**elements))
      return false;
  return true;
}

bool isElementWritable(const ST_XML_ELEMENT& element) {
  return isTagWritable(element) && areAttributesWritable(element) && isWritable(GetTextBody(&element)) &&
         areAll(element.m_elements, isElementWritable);
}

bool areSameTexts(char* const* one, char* const* other) {
  for (; one != nullptr && *one != nullptr; ++one, ++other)
    if (other == nullptr || *other == nullptr || std::strcmp(*one, *other) != 0)
      return false;
  return other == nullptr || *other == nullptr;
}

bool isSame(const ST_XML_ELEMENT& one, const ST_XML_ELEMENT& other) {
  if (std::strcmp(one.m_tag, other.m_tag) != 0 || std::strcmp(GetTextBody(&one), GetTextBody(&other)) != 0)
    return false;
  if (!areSameTexts(one.m_attrnames, other.m_attrnames) || !areSameTexts(one.m_attrvalues, other.m_attrvalues))
    return false;
  ST_XML_ELEMENT** counterpart = other.m_elements;
  const bool areChildrenSame = areAll(one.m_elements, [&](const ST_XML_ELEMENT& child) {
    return counterpart != nullptr && *counterpart != nullptr && isSame(child, **counterpart++);
  });
  return areChildrenSame && (counterpart == nullptr || *counterpart == nullptr);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const XmlTree tree = parsed({reinterpret_cast<const char*>(data), size});
  const std::string compact = written(tree.get(), 0);
  const std::string readable = written(tree.get(), 1);
  requireShortBuffers(tree.get(), compact, 0);
  requireShortBuffers(tree.get(), readable, 1);
  requireEcho(tree.get(), readable, 1);
  if (!areAll(tree->m_elements, isElementWritable))
    return 0;
  fuzz::require(isSame(*tree, *parsed(readable)), "a readable text is read back");
  fuzz::require(isSame(*tree, *parsed(compact)), "a compact text is read back");
  return 0;
}
