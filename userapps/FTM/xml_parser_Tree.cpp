// Accessors of the element tree, its destruction, and the string utilities.
#include <syslog.h>

#include <algorithm>
#include <string_view>

#include "platform/board.h"
#include "userapps/FTM/xml_memory.h"
#include "userapps/FTM/xml_parser.h"

namespace {

constexpr std::size_t pathSize = 256;

void freeStrings(char** strings) {
  for (char** string = strings; string != nullptr && *string != nullptr; ++string)
    std::free(*string);
  std::free(strings);
}

/// Slot of the value of the first attribute of that name, or null.
char** valueSlot(const ST_XML_ELEMENT* element, std::string_view name) {
  for (std::size_t index = 0; element->m_attrnames != nullptr && element->m_attrnames[index] != nullptr; ++index) {
    if (element->m_attrnames[index] == name)
      return &element->m_attrvalues[index];
  }
  return nullptr;
}

bool hasTag(const ST_XML_ELEMENT* element, const char* tag) {
  return std::strcmp(element->m_tag, tag) == 0;
}

char** slot(char** array, int index) {
  return array == nullptr ? nullptr : array + index;
}

} // namespace

void xmlOutOfMemory() {
  board_syslog(LOG_ERR, "XML: out of memory\n");
  std::exit(-1);
}

void destroy_xml_object(ST_XML_ELEMENT* pstXmlElement) {
  if (pstXmlElement == nullptr)
    return;
  std::free(pstXmlElement->m_tag);
  std::free(pstXmlElement->m_text);
  freeStrings(pstXmlElement->m_attrnames);
  freeStrings(pstXmlElement->m_attrvalues);
  for (ST_XML_ELEMENT** child = pstXmlElement->m_elements; child != nullptr && *child != nullptr; ++child)
    destroy_xml_object(*child);
  std::free(pstXmlElement->m_elements);
  std::free(pstXmlElement);
}

const char* GetAttrValue(const ST_XML_ELEMENT* pXmlElement, const char* name) {
  char** const value = valueSlot(pXmlElement, name);
  return value == nullptr ? nullptr : *value;
}

void SetAttrValue(ST_XML_ELEMENT* pXmlElement, const char* name, const char* value) {
  char** const present = valueSlot(pXmlElement, name);
  if (present == nullptr) {
    xmlAppend(pXmlElement->m_attrnames, xmlCopy(name));
    xmlAppend(pXmlElement->m_attrvalues, xmlCopy(value));
    return;
  }
  if (std::strcmp(*present, value) == 0)
    return;
  char* const copy = xmlCopy(value); // before the old value goes: `value` may stand in it
  std::free(*present);
  *present = copy;
}

ST_XML_ELEMENT* GetElement(const ST_XML_ELEMENT* pXmlElement, const char* tag) {
  for (ST_XML_ELEMENT** child = pXmlElement->m_elements; child != nullptr && *child != nullptr; ++child) {
    if (hasTag(*child, tag))
      return *child;
  }
  return nullptr;
}

const char* GetElementBody(const ST_XML_ELEMENT* pXmlElement, const char* tag) {
  if (tag == nullptr)
    return nullptr;
  const std::size_t length = strnlen(tag, pathSize);
  if (length == pathSize)
    return nullptr;
  char path[pathSize];
  std::memcpy(path, tag, length + 1);
  const ST_XML_ELEMENT* element = pXmlElement;
  for (char* component = path; component != nullptr && element != nullptr;) {
    char* const separator = std::strchr(component, '/');
    if (separator != nullptr)
      *separator = '\0';
    element = GetElement(element, component);
    component = separator == nullptr ? nullptr : separator + 1;
  }
  return element == nullptr ? nullptr : GetTextBody(element);
}

ST_XML_ELEMENT** GetTagElements(const ST_XML_ELEMENT* pXmlElement, const char* tag) {
  ST_XML_ELEMENT** found = nullptr;
  for (ST_XML_ELEMENT** child = pXmlElement->m_elements; child != nullptr && *child != nullptr; ++child) {
    if (hasTag(*child, tag))
      xmlAppend(found, *child);
  }
  return found;
}

void RemoveElements(ST_XML_ELEMENT* pXmlElement, const char* tag) {
  ST_XML_ELEMENT** kept = pXmlElement->m_elements;
  if (kept == nullptr)
    return;
  for (ST_XML_ELEMENT** child = kept; *child != nullptr; ++child) {
    if (hasTag(*child, tag))
      destroy_xml_object(*child);
    else
      *kept++ = *child;
  }
  *kept = nullptr;
}

void AddElement(ST_XML_ELEMENT* pXmlElement, ST_XML_ELEMENT* element) {
  xmlAppend(pXmlElement->m_elements, element);
}

void SetTextBody(ST_XML_ELEMENT* pXmlElement, const char* text) {
  char* copy = nullptr;
  if (text != nullptr && *text != '\0') {
    copy = xmlCopy(text); // before the old text goes: `text` may stand in it
    pXmlElement->m_hasbody = 1;
  }
  std::free(pXmlElement->m_text);
  pXmlElement->m_text = copy;
}

const char* GetTextBody(const ST_XML_ELEMENT* pXmlElement) {
  return pXmlElement->m_text == nullptr ? "" : pXmlElement->m_text;
}

const char* GetTag(const ST_XML_ELEMENT* pXmlElement) {
  return pXmlElement->m_tag;
}

int HasBody(const ST_XML_ELEMENT* pXmlElement) {
  return pXmlElement->m_hasbody;
}

int BreakAttr(const ST_XML_ELEMENT* pXmlElement) {
  return pXmlElement->m_attrbrk;
}

char** GetAttrNames(const ST_XML_ELEMENT* pXmlElement) {
  return pXmlElement->m_attrnames;
}

char** GetAttrValues(const ST_XML_ELEMENT* pXmlElement) {
  return pXmlElement->m_attrvalues;
}

ST_XML_ELEMENT** GetElements(const ST_XML_ELEMENT* pXmlElement) {
  return pXmlElement->m_elements;
}

void SetBodyFlag(ST_XML_ELEMENT* pXmlElement) {
  pXmlElement->m_hasbody = 1;
}

char** GetAttrName(const ST_XML_ELEMENT* pXmlElement, int index) {
  return slot(pXmlElement->m_attrnames, index);
}

char** GetAttrVal(const ST_XML_ELEMENT* pXmlElement, int index) {
  return slot(pXmlElement->m_attrvalues, index);
}

char* strdup_xml(const char* str) {
  const std::size_t size = std::strlen(str) + 1;
  void* const copy = std::malloc(size);
  return copy == nullptr ? nullptr : static_cast<char*>(std::memcpy(copy, str, size));
}

void trim_right(char* data) {
  if (data == nullptr)
    return;
  for (char* end = data + std::strlen(data); end != data && isXmlSpace(end[-1]); --end)
    end[-1] = '\0';
}

void skip_space(char** szDataptr) {
  while (isXmlSpace(**szDataptr))
    ++*szDataptr;
}

int replace_string(char** srcstr, const char* oldstr, const char* newstr) {
  char* const source = *srcstr;
  if (source == nullptr)
    return 0;
  const char* const found = std::strstr(source, oldstr);
  if (found == nullptr)
    return 0;
  const std::size_t oldLength = std::strlen(oldstr);
  const std::size_t newLength = std::strlen(newstr);
  const std::size_t length = std::strlen(source) + newLength - oldLength;
  char* const result = static_cast<char*>(xmlAllocated(std::calloc(length + 1, 1)));
  char* const end = std::copy(static_cast<const char*>(source), found, result);
  std::copy(found + oldLength, static_cast<const char*>(source) + std::strlen(source),
            std::copy_n(newstr, newLength, end));
  std::free(source);
  *srcstr = result;
  return 1;
}
