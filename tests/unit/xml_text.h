#pragma once
// Trees from texts and texts from trees, for the tests of the XML module.

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "userapps/FTM/xml_parser.h"

/// A writable text in memory of exactly its size, so that AddressSanitizer sees a step beyond it.
class WritableText {
public:
  explicit WritableText(std::string_view text) : m_text(new char[text.size() + 1]) {
    text.copy(m_text.get(), text.size());
    m_text[text.size()] = '\0';
  }
  char* get() { return m_text.get(); }

private:
  std::unique_ptr<char[]> m_text;
};

/// The tree of a document whose text is gone.
inline XmlTree parsed(std::string_view document) {
  return XmlTree(create_xml_object(WritableText(document).get()));
}

/// The text of a tree, written as the file handlers do: into a buffer of the computed length and one.
inline std::string written(const ST_XML_ELEMENT* tree, bool readable, int level = 0) {
  unsigned long length = 0;
  XML_fileLength(tree, &length, readable, level);
  const std::unique_ptr<char[]> buffer(new char[length + 1]);
  buffer[0] = '\0';
  unsigned long count = 0;
  EXPECT_EQ(DumpToXML(tree, buffer.get(), length + 1, &count, readable, 0, level), 0);
  EXPECT_EQ(count, length);
  EXPECT_EQ(std::strlen(buffer.get()), length);
  return {buffer.get(), length};
}

std::string outlineOfChildren(const ST_XML_ELEMENT& element);

/// An element in short: A[name=value|...]:'text'{children}, with a "/" after the tag of one without content.
inline std::string outline(const ST_XML_ELEMENT& element) {
  std::string result = element.m_tag;
  if (element.m_hasbody == 0)
    result += '/';
  for (std::size_t index = 0; element.m_attrnames != nullptr && element.m_attrnames[index] != nullptr; ++index)
    result += std::string(index == 0 ? "[" : "|") + element.m_attrnames[index] + "=" + element.m_attrvalues[index];
  if (element.m_attrnames != nullptr)
    result += ']';
  if (element.m_text != nullptr)
    result += ":'" + std::string(element.m_text) + "'";
  const std::string children = outlineOfChildren(element);
  return children.empty() ? result : result + "{" + children + "}";
}

inline std::string outlineOfChildren(const ST_XML_ELEMENT& element) {
  std::string result;
  for (ST_XML_ELEMENT** child = element.m_elements; child != nullptr && *child != nullptr; ++child)
    result += (result.empty() ? "" : " ") + outline(**child);
  return result;
}

/// The elements of a document in short.
inline std::string outlineOf(std::string_view document) {
  return outlineOfChildren(*parsed(document));
}
