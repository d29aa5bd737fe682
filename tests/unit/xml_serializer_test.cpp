#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/unit/xml_text.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

constexpr unsigned long roomy = 1000;
constexpr std::size_t longestPiece = 127; // with a tag or an attribute in it

XmlTree element(const char* tag) {
  return XmlTree(create_sub_xml_element(tag, 0, 0, nullptr, nullptr, nullptr));
}

XmlTree elementWithText(const char* text) {
  XmlTree result = element("A");
  SetTextBody(result.get(), text);
  return result;
}

/// A buffer and the count of what is in it, as DumpToXML() and XML_LineDump() take them.
struct Output {
  explicit Output(unsigned long bufferSize, std::string_view text = {})
      : buffer(new char[bufferSize + 1]), size(bufferSize), count(text.size()) {
    std::fill_n(buffer.get(), size + 1, '#');
    text.copy(buffer.get(), text.size());
    buffer[text.size()] = '\0';
  }
  int dump(const XmlTree& tree, bool readable) {
    return DumpToXML(tree.get(), buffer.get(), size, &count, readable, 0, 0);
  }
  void line(const char* text) { XML_LineDump(text, buffer.get(), size, 0, &count); }

  std::unique_ptr<char[]> buffer;
  unsigned long size;
  unsigned long count;
};

/// Dumps a tree whose text has `length` characters into a buffer of `size` bytes, and looks at the byte behind it.
void expectToStayWithin(unsigned long size, const XmlTree& tree, std::size_t length) {
  Output output(size);
  EXPECT_EQ(output.dump(tree, true), 0);
  EXPECT_LT(output.count, size);
  EXPECT_EQ(std::strlen(output.buffer.get()), output.count);
  EXPECT_EQ(output.buffer[size], '#');
  EXPECT_EQ(output.count == length, size == length + 1) << size;
}

/// What a piece prints on standard output.
std::string printed(const char* text) {
  unsigned long count = 0;
  CaptureStdout();
  XML_LineDump(text, nullptr, 0, 1, &count);
  return GetCapturedStdout();
}

/// Trees whose values and texts hold nothing that the serializer would have to escape.
class RandomTrees {
public:
  explicit RandomTrees(unsigned seed) : m_random(seed) {}

  XmlTree next() {
    XmlTree root(create_xml_object(nullptr));
    addChildren(*root, 0);
    return root;
  }

private:
  std::size_t upTo(std::size_t highest) { return std::uniform_int_distribution<std::size_t>(0, highest)(m_random); }

  std::string word(std::string_view characters) {
    std::string result(1 + upTo(11), ' ');
    for (char& character : result)
      character = characters[upTo(characters.size() - 1)];
    return result;
  }

  void addChildren(ST_XML_ELEMENT& parent, std::size_t depth) {
    for (std::size_t children = upTo(4); depth < 5 && children > 0; --children) {
      // The depth in the tag keeps one from beginning with that of an element around it.
      const std::string tag = std::to_string(depth) + word("ABC_");
      ST_XML_ELEMENT* const child = element(tag.c_str()).release();
      AddElement(&parent, child);
      for (std::size_t attributes = upTo(3); attributes > 0; --attributes)
        SetAttrValue(child, word("abc").c_str(), word("01 .%='").c_str());
      if (upTo(1) == 0)
        SetTextBody(child, ("t" + word("xyz 01.%='") + "t").c_str());
      SetBodyFlag(child);
      addChildren(*child, depth + 1);
    }
  }

  std::mt19937 m_random;
};

} // namespace

// The text

TEST(XmlSerializer, WritesTheReadableForm) {
  EXPECT_EQ(written(parsed("<?xml version=1.0 encoding=UTF-8?><MODEM_INFO><SEC> N/A </SEC></MODEM_INFO>").get(), true),
            "  <?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
            "  <MODEM_INFO>\r\n"
            "    <SEC>\r\n"
            "      N/A\r\n"
            "    </SEC>\r\n"
            "  </MODEM_INFO>\r\n");
}

TEST(XmlSerializer, WritesOneLineWithoutWhiteSpaceWhenNotReadable) {
  EXPECT_EQ(written(parsed("<?xml version=1.0?>\n<A x=1> t <B/> </A>").get(), false),
            "<?xml version=\"1.0\"?><A x=\"1\">t<B></B></A>");
}

TEST(XmlSerializer, WritesNothingForAnEmptyRoot) {
  EXPECT_EQ(written(parsed("").get(), true), "");
  EXPECT_EQ(written(parsed("").get(), false), "");
}

TEST(XmlSerializer, WritesAnEndTagForAnElementReadSelfClosing) {
  EXPECT_EQ(written(parsed("<A/>").get(), true), "  <A>\r\n  </A>\r\n");
}

TEST(XmlSerializer, WritesADeclarationWithoutAttributesWithAPlainBracket) {
  EXPECT_EQ(written(parsed("<?xml?>").get(), true), "  <?xml>\r\n");
}

TEST(XmlSerializer, WritesTheChildrenOfADeclarationButNoEndTag) {
  const XmlTree declaration = element("xml");
  AddElement(declaration.get(), element("A").release());
  EXPECT_EQ(written(declaration.get(), true), "<?xml>\r\n  <A>\r\n  </A>\r\n");
}

TEST(XmlSerializer, EscapesNothing) {
  XmlTree tree = elementWithText("a<b&c\"");
  SetAttrValue(tree.get(), "x", "<&\">");
  EXPECT_EQ(written(tree.get(), false), "<A x=\"<&\">\">a<b&c\"</A>");
}

TEST(XmlSerializer, WritesAttributesInOrder) {
  EXPECT_EQ(written(parsed("<A b=1 a=\"2 3\" b=4/>").get(), false), "<A b=\"1\" a=\"2 3\" b=\"4\"></A>");
}

TEST(XmlSerializer, WritesATextOnlyOfAnElementMarkedAsHavingContent) {
  const XmlTree tree = elementWithText("t");
  tree->m_hasbody = 0;
  EXPECT_EQ(written(tree.get(), true), "<A>\r\n</A>\r\n");
}

TEST(XmlSerializer, WritesALineForAnEmptyText) {
  const XmlTree tree(create_sub_xml_element("A", 1, 0, nullptr, nullptr, "  "));
  EXPECT_EQ(written(tree.get(), true), "<A>\r\n  \r\n</A>\r\n");
}

TEST(XmlSerializer, WritesTheTextBeforeTheChildren) {
  EXPECT_EQ(written(parsed("<A>t<B/></A>").get(), true), "  <A>\r\n    t\r\n    <B>\r\n    </B>\r\n  </A>\r\n");
}

TEST(XmlSerializer, WritesNothingButTheIndentOfAnElementNamedTopInside) {
  EXPECT_EQ(written(parsed("<A><top x=1>t<B/></top></A>").get(), true),
            "  <A>\r\n          <B>\r\n      </B>\r\n  </A>\r\n");
}

TEST(XmlSerializer, IndentsByTheLevelGiven) {
  EXPECT_EQ(written(element("A").get(), true, 2), "    <A>\r\n    </A>\r\n");
  EXPECT_EQ(written(element("A").get(), true, -1), "<A>\r\n</A>\r\n");
  EXPECT_EQ(written(element("A").get(), false, 2), "<A></A>");
}

TEST(XmlSerializer, LeavesTheTreeAsItIs) {
  const XmlTree tree = parsed("<?xml a=1?><A x=1>t<B/></A>");
  const std::string before = outlineOfChildren(*tree);
  written(tree.get(), true);
  EXPECT_EQ(outlineOfChildren(*tree), before);
}

// Pieces that are too long

TEST(XmlSerializer, KeepsPiecesOf127Characters) {
  const std::string tag(longestPiece - 3, 'T');
  EXPECT_EQ(written(element(tag.c_str()).get(), false), "<" + tag + "></" + tag + ">");
}

TEST(XmlSerializer, CutsTagsTo127CharactersAPiece) {
  const std::string tag(200, 'T');
  EXPECT_EQ(written(element(tag.c_str()).get(), false),
            "<" + std::string(longestPiece - 1, 'T') + "></" + std::string(longestPiece - 2, 'T'));
  const XmlTree oneTooLong = element(std::string(longestPiece - 2, 'T').c_str());
  EXPECT_EQ(written(oneTooLong.get(), false), "<" + std::string(125, 'T') + "></" + std::string(125, 'T'));
}

TEST(XmlSerializer, CutsAnAttributeTo127CharactersWithItsSignsAndKeepsTheNext) {
  const XmlTree tree = element("A");
  SetAttrValue(tree.get(), "name", std::string(longestPiece - 4 - 4, 'v').c_str());
  EXPECT_EQ(written(tree.get(), false), "<A name=\"" + std::string(119, 'v') + "\"></A>");
  SetAttrValue(tree.get(), "name", std::string(300, 'v').c_str());
  SetAttrValue(tree.get(), "b", "1");
  EXPECT_EQ(written(tree.get(), false), "<A name=\"" + std::string(120, 'v') + " b=\"1\"></A>");
  const XmlTree longName = element("A");
  SetAttrValue(longName.get(), std::string(300, 'n').c_str(), "v");
  EXPECT_EQ(written(longName.get(), false), "<A " + std::string(126, 'n') + "></A>");
}

TEST(XmlSerializer, DoesNotCutATextBody) {
  const std::string text(5000, 't');
  EXPECT_EQ(written(elementWithText(text.c_str()).get(), false), "<A>" + text + "</A>");
}

// Results and buffers

TEST(XmlDump, ReturnsMinusTwoWithoutACount) {
  char buffer[roomy] = "";
  EXPECT_EQ(DumpToXML(element("A").get(), buffer, roomy, nullptr, 1, 0, 0), -2);
  EXPECT_STREQ(buffer, "");
}

TEST(XmlDump, WritesNothingForANullElement) {
  Output output(roomy);
  EXPECT_EQ(output.dump(nullptr, true), 0);
  EXPECT_EQ(output.count, 0U);
  EXPECT_STREQ(output.buffer.get(), "");
  unsigned long length = 7;
  XML_fileLength(nullptr, &length, 1, 0);
  EXPECT_EQ(length, 7U);
}

TEST(XmlDump, AddsToTheTextAndTheCountAlreadyThere) {
  Output output(roomy, "before");
  EXPECT_EQ(output.dump(element("A"), false), 0);
  EXPECT_STREQ(output.buffer.get(), "before<A></A>");
  EXPECT_EQ(output.count, 13U);
  unsigned long length = 6;
  XML_fileLength(element("A").get(), &length, 0, 0);
  EXPECT_EQ(length, 13U);
}

TEST(XmlDump, ReturnsMinusOneWhenTheCountIsAboveTheSizeOfABuffer) {
  char buffer[1] = "";
  unsigned long count = 2;
  EXPECT_EQ(DumpToXML(element("A").get(), buffer, 1, &count, 1, 0, 0), -1);
  EXPECT_EQ(count, 2U);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(DumpToXML(element("A").get(), nullptr, 1, &count, 1, 0, 0), 0);
  EXPECT_EQ(count, 2U);
}

TEST(XmlDump, ReturnsZeroWhenTheCountIsTheSizeOfTheBuffer) {
  char buffer[1] = "";
  unsigned long count = 1;
  EXPECT_EQ(DumpToXML(element("A").get(), buffer, 1, &count, 1, 0, 0), 0);
  EXPECT_EQ(count, 1U);
}

TEST(XmlDump, WithoutABufferCountsNothing) {
  unsigned long count = 0;
  EXPECT_EQ(DumpToXML(element("A").get(), nullptr, roomy, &count, 1, 0, 0), 0);
  EXPECT_EQ(count, 0U);
}

TEST(XmlDump, DropsTheLastLineEndWhenTheBufferIsOneByteTooSmall) {
  const XmlTree tree = parsed("<A>t</A>");
  const std::string whole = written(tree.get(), true);
  Output output(whole.size());
  EXPECT_EQ(output.dump(tree, true), 0);
  EXPECT_EQ(output.count, whole.size() - 2);
  EXPECT_EQ(output.buffer.get(), whole.substr(0, whole.size() - 2));
}

TEST(XmlDump, DropsAPieceThatDoesNotFitAndAppendsSmallerOnesAfterIt) {
  Output output(14);
  EXPECT_EQ(output.dump(elementWithText("a text too long"), false), 0);
  EXPECT_STREQ(output.buffer.get(), "<A></A>");
  EXPECT_EQ(output.count, 7U);
}

TEST(XmlDump, StaysWithinABufferOfAnySize) {
  const XmlTree tree = parsed("<?xml a=1?><A b=\"2\">text<B/><C>3</C></A>");
  const std::size_t length = written(tree.get(), true).size();
  for (unsigned long size = 1; size <= length + 1; ++size)
    expectToStayWithin(size, tree, length);
}

TEST(XmlLineDump, NeedsRoomForThePieceAndItsNul) {
  Output output(8, "1234");
  output.line("5678");
  EXPECT_STREQ(output.buffer.get(), "1234");
  EXPECT_EQ(output.count, 4U);
  output.line("567");
  EXPECT_STREQ(output.buffer.get(), "1234567");
  EXPECT_EQ(output.count, 7U);
  output.line("");
  EXPECT_EQ(output.count, 7U);
}

TEST(XmlLineDump, DecidesByTheCountAndNotByTheText) {
  Output output(8);
  output.count = 5;
  output.line("678");
  EXPECT_STREQ(output.buffer.get(), "");
  output.line("67");
  EXPECT_STREQ(output.buffer.get(), "67");
  EXPECT_EQ(output.count, 7U);
}

TEST(XmlLineDump, TakesACountBeyondAnyBuffer) {
  Output output(8);
  output.count = ~0UL;
  output.line("1");
  EXPECT_STREQ(output.buffer.get(), "");
  EXPECT_EQ(output.count, ~0UL);
}

TEST(XmlLineDump, DropsEverythingWithoutABuffer) {
  unsigned long count = 0;
  XML_LineDump("piece", nullptr, roomy, 0, &count);
  EXPECT_EQ(count, 0U);
}

// Printing

TEST(XmlPrinting, EchoesTheWholeTextOnStandardOutput) {
  const XmlTree tree = parsed("<A x=1>t<B/></A>");
  Output output(roomy);
  CaptureStdout();
  DumpToXML(tree.get(), output.buffer.get(), roomy, &output.count, 1, 1, 0);
  EXPECT_EQ(GetCapturedStdout(), written(tree.get(), true));
  EXPECT_EQ(output.buffer.get(), written(tree.get(), true));
}

TEST(XmlPrinting, HappensOnlyWhenAskedFor) {
  Output output(roomy);
  CaptureStdout();
  output.dump(element("A"), true);
  EXPECT_EQ(GetCapturedStdout(), "");
}

TEST(XmlPrinting, IncludesPiecesThatDoNotFit) {
  Output output(1);
  CaptureStdout();
  XML_LineDump("piece", output.buffer.get(), 1, 1, &output.count);
  EXPECT_EQ(GetCapturedStdout(), "piece");
  EXPECT_EQ(output.count, 0U);
}

TEST(XmlPrinting, InterpretsThePieceAsAFormat) {
  EXPECT_EQ(printed("100%% sure"), "100% sure");
  EXPECT_EQ(printed("%%%%"), "%%");
  EXPECT_EQ(printed("%%d"), "%d");
}

TEST(XmlPrinting, PrintsNothingForAConversion) {
  EXPECT_EQ(printed("a%sb%n%dc"), "abc");
  EXPECT_EQ(printed("[%-#0+ 12.34llx]"), "[]");
  EXPECT_EQ(printed("[%*.*f]"), "[]");
  EXPECT_EQ(printed("100% sure"), "100ure");
  EXPECT_EQ(printed("50%"), "50");
  EXPECT_EQ(printed("50%-5"), "50");
}

TEST(XmlPrinting, StoresThePieceUninterpreted) {
  Output output(roomy);
  CaptureStdout();
  XML_LineDump("100%% %s", output.buffer.get(), roomy, 1, &output.count);
  GetCapturedStdout();
  EXPECT_STREQ(output.buffer.get(), "100%% %s");
  EXPECT_EQ(output.count, 8U);
}

// Round trips

TEST(XmlRoundTrip, GivesBackTheSameTreeFromBothForms) {
  RandomTrees trees(5);
  for (int round = 0; round < 300; ++round) {
    const XmlTree tree = trees.next();
    const std::string outline = outlineOfChildren(*tree);
    ASSERT_EQ(outlineOf(written(tree.get(), true)), outline);
    ASSERT_EQ(outlineOf(written(tree.get(), false)), outline);
  }
}

TEST(XmlRoundTrip, GivesBackTheSameTextOfADocumentOnceItHasBeenWritten) {
  const std::string text = written(parsed("<?xml a=1?><A x=1> t <B/><C/> u </A><!-- c --><D><E>1</E></D>").get(), true);
  EXPECT_EQ(written(parsed(text).get(), true), text);
}
