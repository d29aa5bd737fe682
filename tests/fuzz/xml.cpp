// A document: its tree is written in the computed length, and read back it is the same tree, unless it holds what the
// serializer, which escapes nothing, can't write.
#include <cctype>
#include <string>

#include "tests/fuzz/fuzz.h"
#include "userapps/FTM/xml_parser.h"

namespace {

constexpr std::size_t longestPiece = 127; // of a tag or an attribute with the characters around it

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

bool isName(std::string_view text) {
  const auto isNameCharacter = [](char character) {
    return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_' || character == '-';
  };
  return !text.empty() && std::ranges::all_of(text, isNameCharacter);
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
  if (!areAll(tree->m_elements, isElementWritable))
    return 0;
  fuzz::require(isSame(*tree, *parsed(readable)), "a readable text is read back");
  fuzz::require(isSame(*tree, *parsed(compact)), "a compact text is read back");
  return 0;
}
