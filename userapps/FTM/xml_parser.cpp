// The forgiving parser: cuts a writable text in place and copies only names, values and texts into the tree.
#include "userapps/FTM/xml_parser.h"

#include <algorithm>
#include <string_view>

#include "userapps/FTM/xml_memory.h"

namespace {

/// What stands in the text for one element.
struct ElementParts {
  const char* tag;
  int hasbody;
  int attrbrk;
  const char* attributes; ///< the start tag after the name, or null
  char* content;          ///< the children, or null
  std::string_view text;  ///< empty when there is none
};

struct Entity {
  std::string_view name;
  char character;
};

// "&amp;" goes first, so that "&amp;lt;" ends as "<": on purpose.
constexpr Entity entities[] = {{"&amp;", '&'}, {"&quot;", '"'}, {"&apos;", '\''}, {"&lt;", '<'}, {"&gt;", '>'}};

/// Replaces an entity until none is left. One pass is enough: one that a replacement completes ("&amp;amp;") ends
/// where a later ";" is copied.
void decodeEntity(char* text, const Entity& entity) {
  const std::size_t length = entity.name.size();
  char* end = text;
  for (const char* next = text; *next != '\0'; ++next) {
    *end++ = *next;
    if (*next != ';' || static_cast<std::size_t>(end - text) < length ||
        std::memcmp(end - length, entity.name.data(), length) != 0)
      continue;
    end -= length;
    *end++ = entity.character;
  }
  *end = '\0';
}

void decodeEntities(char* text) {
  if (std::strchr(text, '&') == nullptr)
    return;
  for (const Entity& entity : entities)
    decodeEntity(text, entity);
}

/// A copy of a text with "~~" for each line feed.
char* withMarkedLineEnds(const char* text, std::size_t length, std::size_t lineFeeds) {
  char* const marked = static_cast<char*>(xmlAllocated(std::malloc(length + lineFeeds + 1)));
  char* end = marked;
  for (const char* next = text; *next != '\0'; ++next) {
    *end++ = *next == '\n' ? '~' : *next;
    if (*next == '\n')
      *end++ = '~';
  }
  *end = '\0';
  return marked;
}

/// Ends every line with CR LF. The text is taken over; the result replaces it.
char* rewriteLineEnds(char* text) {
  const std::string_view view = text;
  const auto lineFeeds = static_cast<std::size_t>(std::count(view.begin(), view.end(), '\n'));
  char* marked = text;
  if (lineFeeds > 0) {
    marked = withMarkedLineEnds(text, view.size(), lineFeeds);
    std::free(text);
  }
  // A "~~" of the text itself becomes a line end too, and a CR LF of the text CR CR LF: on purpose.
  for (char* mark = marked; (mark = std::strstr(mark, "~~")) != nullptr;) {
    *mark++ = '\r';
    *mark++ = '\n';
  }
  return marked;
}

void readText(ST_XML_ELEMENT& element, std::string_view body) {
  if (body.empty())
    return;
  char* const text = xmlCopy(body.data(), body.size());
  trim_right(text);
  decodeEntities(text);
  element.m_text = rewriteLineEnds(text);
  element.m_hasbody = 1;
}

/// Takes an attribute's value from the start of `text`; what is left of `text` follows it.
std::string_view takeValue(std::string_view& text) {
  const bool quoted = text.starts_with('"');
  if (quoted)
    text.remove_prefix(1);
  const auto isEnd = [quoted](char character) { return quoted ? character == '"' : isXmlSpace(character); };
  const auto length = static_cast<std::size_t>(std::find_if(text.begin(), text.end(), isEnd) - text.begin());
  const std::string_view value = text.substr(0, length);
  text.remove_prefix(std::min(length + 1, text.size()));
  return value;
}

void skipSpace(std::string_view& text) {
  while (!text.empty() && isXmlSpace(text.front()))
    text.remove_prefix(1);
}

/// Takes an attribute's name and the "=" from the start of `text`. Returns nothing when there is no name or no "=".
std::string_view takeName(std::string_view& text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos)
    return {};
  std::string_view name = text.substr(0, equals);
  text.remove_prefix(equals + 1);
  while (!name.empty() && isXmlSpace(name.back()))
    name.remove_suffix(1);
  return name;
}

/// The attributes of a start tag, as far as they can be read.
void readAttributes(ST_XML_ELEMENT& element, std::string_view text) {
  for (;;) {
    skipSpace(text);
    const std::string_view name = takeName(text);
    if (name.empty())
      return;
    skipSpace(text);
    const std::string_view value = takeValue(text);
    xmlAppend(element.m_attrnames, xmlCopy(name.data(), name.size()));
    char* const decoded = xmlCopy(value.data(), value.size());
    decodeEntities(decoded);
    xmlAppend(element.m_attrvalues, decoded);
  }
}

[[gnu::noinline]] ST_XML_ELEMENT* newElement(const char* tag, int hasbody, int attrbrk) {
  auto* const element = static_cast<ST_XML_ELEMENT*>(xmlAllocated(std::malloc(sizeof(ST_XML_ELEMENT))));
  *element = {xmlCopy(tag), hasbody, attrbrk, nullptr, nullptr, nullptr, nullptr};
  return element;
}

[[gnu::noinline]] void readStartAndText(ST_XML_ELEMENT& element, const ElementParts& parts) {
  if (parts.attributes != nullptr)
    readAttributes(element, parts.attributes);
  readText(element, parts.text);
}

// This function and parse_xml_elements() call each other as deep as the document nests: whatever needs room on the
// stack is kept out of them.
ST_XML_ELEMENT* createElement(const ElementParts& parts) {
  ST_XML_ELEMENT* const element = newElement(parts.tag, parts.hasbody, parts.attrbrk);
  if (parts.hasbody != 0)
    element->m_elements = parse_xml_elements(parts.content);
  readStartAndText(*element, parts);
  return element;
}

/// Reads no further than the first difference, so never past the end of `text`.
bool startsWith(const char* text, std::string_view prefix) {
  for (const char character : prefix) {
    if (*text++ != character)
      return false;
  }
  return true;
}

/// The "<" of the end tag that belongs to a start tag, or null. Names are compared over the length of the start tag's
/// only, and a self-closing element of the same name counts as open: on purpose.
char* findEndTag(char* content, std::string_view tag) {
  std::size_t open = 1;
  for (char* bracket = std::strchr(content, '<'); bracket != nullptr; bracket = std::strchr(content, '<')) {
    content = bracket + 1;
    skip_space(&content);
    if (startsWith(content, tag)) {
      content += tag.size();
      ++open;
      continue;
    }
    if (*content != '/')
      continue;
    ++content;
    skip_space(&content);
    if (!startsWith(content, tag))
      continue;
    content += tag.size();
    if (--open == 0)
      return bracket;
  }
  return nullptr;
}

/// Reads the text body, which the children's parser passes over again, and the extent of the children. The cursor ends
/// in the end tag; null when there is none.
void readContent(char*& cursor, ElementParts& parts) {
  parts.content = cursor;
  char* const firstTag = std::strchr(cursor, '<');
  char* body = cursor;
  skip_space(&body);
  if (firstTag != nullptr && body != firstTag)
    parts.text = {body, static_cast<std::size_t>(firstTag - body)};
  char* const endTag = findEndTag(parts.content, parts.tag);
  if (endTag != nullptr)
    *endTag = '\0';
  cursor = endTag == nullptr ? nullptr : endTag + 1;
}

/// Reads an element from behind its "<". Returns false when its start tag does not end.
bool readElement(char*& cursor, ElementParts& parts) {
  skip_space(&cursor);
  char* const start = cursor;
  char* const end = std::strchr(start, '>');
  if (end == nullptr)
    return false;
  *end = '\0';
  cursor = end + 1;
  parts = {};
  parts.tag = start;
  parts.hasbody = end[-1] != '/'; // at least the "<" stands before the ">"
  if (parts.hasbody == 0)
    end[-1] = '\0';
  char* nameEnd = start;
  while (*nameEnd != '\0' && !isXmlSpace(*nameEnd))
    ++nameEnd;
  if (*nameEnd != '\0') {
    parts.attrbrk = std::strpbrk(nameEnd, "\n\r") != nullptr;
    *nameEnd = '\0';
    parts.attributes = nameEnd + 1;
  }
  if (parts.hasbody != 0)
    readContent(cursor, parts);
  return true;
}

constexpr std::string_view declarationStart = "?xml";

/// Reads a declaration from behind its "<". Returns false when it does not end.
bool readDeclaration(char*& cursor, ElementParts& parts) {
  char* const attributes = cursor + declarationStart.size();
  char* const end = std::strstr(attributes, "?>");
  if (end == nullptr)
    return false;
  *end = '\0';
  cursor = end + 2;
  parts = {};
  parts.tag = "xml";
  parts.attributes = attributes;
  return true;
}

/// The end of a construct that opens with "<!"; null when it has none. A ">" ends a comment early, on purpose.
char* skipConstruct(char* cursor) {
  std::size_t open = 1;
  while (open > 0) {
    cursor = std::strpbrk(cursor, "<>");
    if (cursor == nullptr)
      return nullptr;
    open = *cursor == '<' ? open + 1 : open - 1;
    ++cursor;
  }
  return cursor;
}

/// Reads the next element and moves the cursor behind it. Returns false when there is none.
[[gnu::noinline]] bool nextElement(char*& cursor, ElementParts& parts) {
  while (cursor != nullptr) {
    cursor = std::strchr(cursor, '<');
    if (cursor == nullptr)
      return false;
    ++cursor;
    if (startsWith(cursor, declarationStart))
      return readDeclaration(cursor, parts);
    if (*cursor != '!')
      return readElement(cursor, parts);
    cursor = skipConstruct(cursor);
  }
  return false;
}

} // namespace

ST_XML_ELEMENT** parse_xml_elements(char* data) {
  ST_XML_ELEMENT** elements = nullptr;
  ElementParts parts;
  while (nextElement(data, parts))
    xmlAppend(elements, createElement(parts));
  return elements;
}

ST_XML_ELEMENT* create_sub_xml_element(const char* tag, int hasbody, int attrbrk, const char* attributes,
                                       char* elements, const char* textbody) {
  return createElement({tag, hasbody, attrbrk, attributes, elements, textbody == nullptr ? "" : textbody});
}

ST_XML_ELEMENT* create_xml_object(char* szXmlData) {
  return create_xml_elements(szXmlData, newElement("top", 1, 1));
}

ST_XML_ELEMENT* create_xml_elements(char* szXmlData, ST_XML_ELEMENT* pXmlElement) {
  pXmlElement->m_hasbody = 1;
  pXmlElement->m_attrbrk = 1;
  pXmlElement->m_elements = parse_xml_elements(szXmlData); // children that it had stay their holder's, on purpose
  return pXmlElement;
}
