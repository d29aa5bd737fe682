#pragma once
// The XML document model: an element tree, the forgiving parser that builds it and the serializer
// that writes it back. Absence is reported by null; nothing here logs. Not tied to a thread: a tree
// belongs to whoever made it.

#include <cstddef>
#include <memory>

/// Stack, in bytes, for a thread that parses a document of up to 7648 bytes and measures, serialises and destroys its
/// tree. The deepest one, 3824 times "<>", takes 0.5 MB of it in an optimised build and 1.5 MB under a sanitizer.
inline constexpr std::size_t xmlDocumentStack = std::size_t{2} * 1024 * 1024;

/// One element. It owns everything below it; every array is null-terminated and has no separate
/// count.
struct ST_XML_ELEMENT {
  char* m_tag;                 ///< name; "top" for the root that the parser makes, "xml" for a declaration
  int m_hasbody;               ///< 1: start and end tag; 0: written self-closing, or the declaration
  int m_attrbrk;               ///< 1: the start tag ran over a line end
  char** m_attrnames;          ///< attribute names in document order, or null
  char** m_attrvalues;         ///< values, parallel to m_attrnames, or null
  ST_XML_ELEMENT** m_elements; ///< children in document order, or null
  char* m_text;                ///< text body, trimmed and decoded, or null
};

// Construction and destruction.

/// Makes an element from the parts of its text. `attributes` and `elements` may be null; `elements`
/// is parsed in place. Never null.
ST_XML_ELEMENT* create_sub_xml_element(const char* tag, int hasbody, int attrbrk, const char* attributes,
                                       char* elements, const char* textbody);
/// Parses a document in place: a root "top" with the document's elements below it. Never null; the
/// caller frees the tree with destroy_xml_object().
ST_XML_ELEMENT* create_xml_object(char* szXmlData);
/// Makes the elements of `szXmlData` (parsed in place) the children of an element that has none yet.
ST_XML_ELEMENT* create_xml_elements(char* szXmlData, ST_XML_ELEMENT* pXmlElement);
/// Parses sibling elements in place. Returns a new null-terminated array, or null when there are none.
ST_XML_ELEMENT** parse_xml_elements(char* data);
/// Frees an element and everything below it. Null is accepted.
void destroy_xml_object(ST_XML_ELEMENT* pstXmlElement);

// Accessors. None accepts a null element unless it says so; what they return is borrowed.

/// Value of the first attribute of that name, or null.
const char* GetAttrValue(const ST_XML_ELEMENT* pXmlElement, const char* name);
/// Replaces the value of an attribute, or appends the attribute. `value` must not be null.
void SetAttrValue(ST_XML_ELEMENT* pXmlElement, const char* name, const char* value);
/// First direct child with that tag, or null.
ST_XML_ELEMENT* GetElement(const ST_XML_ELEMENT* pXmlElement, const char* tag);
/// Text at a path of tags separated by "/" ("" when the element has none); null when there is no such
/// element, an argument is null, or the path has 256 characters or more.
const char* GetElementBody(const ST_XML_ELEMENT* pXmlElement, const char* tag);
/// New null-terminated array of the direct children with that tag, or null. The caller frees the
/// array with free(), not the elements in it.
ST_XML_ELEMENT** GetTagElements(const ST_XML_ELEMENT* pXmlElement, const char* tag);
/// Destroys every direct child with that tag.
void RemoveElements(ST_XML_ELEMENT* pXmlElement, const char* tag);
/// Appends a child, which the parent then owns.
void AddElement(ST_XML_ELEMENT* pXmlElement, ST_XML_ELEMENT* element);
/// Stores a copy of `text` as it stands and marks the element as having content; a null or empty text
/// removes the text and leaves that mark alone.
void SetTextBody(ST_XML_ELEMENT* pXmlElement, const char* text);
/// The text, or "".
const char* GetTextBody(const ST_XML_ELEMENT* pXmlElement);
const char* GetTag(const ST_XML_ELEMENT* pXmlElement);
int HasBody(const ST_XML_ELEMENT* pXmlElement);
int BreakAttr(const ST_XML_ELEMENT* pXmlElement);
char** GetAttrNames(const ST_XML_ELEMENT* pXmlElement);
char** GetAttrValues(const ST_XML_ELEMENT* pXmlElement);
ST_XML_ELEMENT** GetElements(const ST_XML_ELEMENT* pXmlElement);
void SetBodyFlag(ST_XML_ELEMENT* pXmlElement);
/// Address of slot `index` of the names or values; null when there are none. The index is not checked
/// against the terminator: step it up from 0 and stop where the slot holds null.
char** GetAttrName(const ST_XML_ELEMENT* pXmlElement, int index);
char** GetAttrVal(const ST_XML_ELEMENT* pXmlElement, int index);

// String utilities.

/// A copy made with malloc(); null when that fails.
char* strdup_xml(const char* str);
/// Overwrites trailing white space with NUL. Null is ignored.
void trim_right(char* data);
/// Moves the cursor past white space.
void skip_space(char** szDataptr);
/// Replaces the first `oldstr` in the heap string `*srcstr`. Returns 1 after a replacement, else 0.
int replace_string(char** srcstr, const char* oldstr, const char* newstr);

// Serializer.

/// Appends the text of an element and its subtree to `pBuffer`, which holds a NUL-terminated text of
/// `*pBytesWritten` characters. Returns 0, -1 when the count ends above `ulBufferSize`, -2 when
/// `pBytesWritten` is null. A piece that does not fit is left out and not counted.
int DumpToXML(const ST_XML_ELEMENT* pXmlElement, char* pBuffer, unsigned long ulBufferSize,
              unsigned long* pBytesWritten, int bReadable, int bPrint, int iLevel);
/// Appends one piece if it fits, and echoes it to standard output when `bPrint` is set.
void XML_LineDump(const char* pLineText, char* pBuffer, unsigned long ulBufferSize, int bPrint,
                  unsigned long* ulBytesWritten);
/// Adds to `*pFileSize` the number of characters that DumpToXML() writes for the same arguments.
void XML_fileLength(const ST_XML_ELEMENT* pXmlElement, unsigned long* pFileSize, int bReadable, int iLevel);

/// Owns a tree.
struct XmlTreeDeleter {
  void operator()(ST_XML_ELEMENT* tree) const { destroy_xml_object(tree); }
};
using XmlTree = std::unique_ptr<ST_XML_ELEMENT, XmlTreeDeleter>;
