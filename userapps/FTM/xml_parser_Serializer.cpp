// The serializer. One walk makes the pieces of a text; measuring and writing differ only in where the pieces go.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "userapps/FTM/xml_parser.h"

namespace {

/// Counts the characters of the pieces.
class LengthSink {
public:
  explicit LengthSink(unsigned long* length) : m_length(length) {}
  void piece(std::string_view text) { *m_length += text.size(); }

private:
  unsigned long* m_length;
};

/// Prints what printf() prints of a format without arguments: "%%" is a "%", and a conversion, having nothing to
/// convert, is nothing. Texts come from the station and from the air, so printf() itself never sees one as a format.
void printFormat(std::string_view format) {
  constexpr const char* flagsWidthsLengths = "-+ #0123456789.*'hlLjztq";
  for (;;) {
    const std::string_view plain = format.substr(0, format.find('%'));
    std::fwrite(plain.data(), 1, plain.size(), stdout);
    if (plain.size() == format.size())
      return;
    format.remove_prefix(plain.size() + 1);
    if (format.starts_with('%'))
      std::fputc('%', stdout);
    const std::size_t conversion = format.find_first_not_of(flagsWidthsLengths);
    if (conversion == std::string_view::npos)
      return;
    format.remove_prefix(conversion + 1);
  }
}

/// Appends the pieces that fit to a text, and echoes all of them when asked to.
class TextSink {
public:
  TextSink(char* buffer, unsigned long size, bool echo, unsigned long* written)
      : m_end(buffer == nullptr ? nullptr : buffer + strnlen(buffer, std::min(size, *written))), m_size(size),
        m_echo(echo), m_written(written) {}

  void piece(std::string_view text) {
    if (m_echo)
      printFormat(text);
    if (m_end == nullptr || *m_written >= m_size || text.size() >= m_size - *m_written)
      return;
    std::memcpy(m_end, text.data(), text.size());
    m_end += text.size();
    *m_end = '\0';
    *m_written += text.size();
  }

private:
  char* m_end; ///< the NUL of the text, so that appending need not look for it
  unsigned long m_size;
  bool m_echo;
  unsigned long* m_written;
};

template <class Sink>
class ElementWriter {
public:
  ElementWriter(Sink& sink, bool readable) : m_sink(sink), m_readable(readable) {}

  // As deep as the tree: whatever needs room on the stack is kept out of this function.
  void element(const ST_XML_ELEMENT& element, long level) {
    start(element, level);
    // The root's children are at level 1 too: the two spaces before a top-level element are the required form.
    for (ST_XML_ELEMENT** child = element.m_elements; child != nullptr && *child != nullptr; ++child)
      this->element(**child, level + 1);
    end(element, level);
  }

private:
  static constexpr std::string_view rootTag = "top";
  static constexpr std::string_view declarationTag = "xml";
  static constexpr std::size_t scratchSize = 128;

  void indent(long level) {
    for (long step = 0; m_readable && step < level; ++step)
      m_sink.piece("  ");
  }

  void lineEnd() {
    if (m_readable)
      m_sink.piece("\r\n");
  }

  [[gnu::noinline]] void start(const ST_XML_ELEMENT& element, long level) {
    indent(level);
    if (element.m_tag != rootTag) {
      startTag(element);
      text(element, level + 1);
    }
  }

  [[gnu::noinline]] void end(const ST_XML_ELEMENT& element, long level) {
    if (element.m_tag == rootTag || element.m_tag == declarationTag)
      return;
    indent(level);
    scratchPiece({"</", element.m_tag, ">"});
    lineEnd();
  }

  void startTag(const ST_XML_ELEMENT& element) {
    const bool declaration = element.m_tag == declarationTag;
    scratchPiece({declaration ? "<?" : "<", element.m_tag});
    for (std::size_t index = 0; hasAttribute(element, index); ++index)
      scratchPiece({" ", element.m_attrnames[index], "=\"", element.m_attrvalues[index], "\""});
    // A declaration without attributes is written "<?xml>", on purpose.
    m_sink.piece(declaration && hasAttribute(element, 0) ? "?>" : ">");
    lineEnd();
  }

  void text(const ST_XML_ELEMENT& element, long level) {
    if (element.m_hasbody == 0 || element.m_text == nullptr)
      return;
    indent(level);
    m_sink.piece(element.m_text); // as stored: nothing is escaped, on purpose
    lineEnd();
  }

  static bool hasAttribute(const ST_XML_ELEMENT& element, std::size_t index) {
    return element.m_attrnames != nullptr && element.m_attrnames[index] != nullptr;
  }

  /// One piece of several texts, cut to what the scratch buffer holds with a NUL.
  void scratchPiece(std::initializer_list<std::string_view> texts) {
    std::size_t length = 0;
    for (const std::string_view text : texts)
      length += text.copy(m_scratch + length, scratchSize - 1 - length);
    m_sink.piece({m_scratch, length});
  }

  Sink& m_sink;
  bool m_readable;
  char m_scratch[scratchSize];
};

} // namespace

void XML_LineDump(const char* pLineText, char* pBuffer, unsigned long ulBufferSize, int bPrint,
                  unsigned long* ulBytesWritten) {
  TextSink(pBuffer, ulBufferSize, bPrint != 0, ulBytesWritten).piece(pLineText);
}

int DumpToXML(const ST_XML_ELEMENT* pXmlElement, char* pBuffer, unsigned long ulBufferSize,
              unsigned long* pBytesWritten, int bReadable, int bPrint, int iLevel) {
  if (pBytesWritten == nullptr)
    return -2;
  if (pXmlElement == nullptr)
    return 0;
  TextSink sink(pBuffer, ulBufferSize, bPrint != 0, pBytesWritten);
  ElementWriter(sink, bReadable != 0).element(*pXmlElement, iLevel);
  return pBuffer != nullptr && *pBytesWritten > ulBufferSize ? -1 : 0;
}

void XML_fileLength(const ST_XML_ELEMENT* pXmlElement, unsigned long* pFileSize, int bReadable, int iLevel) {
  if (pXmlElement == nullptr)
    return;
  LengthSink sink(pFileSize);
  ElementWriter(sink, bReadable != 0).element(*pXmlElement, iLevel);
}
