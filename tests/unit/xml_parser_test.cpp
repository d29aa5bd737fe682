#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdlib>
#include <functional>
#include <random>

#include "tests/unit/xml_text.h"

namespace {

constexpr std::size_t longestDocument = 7648;

constexpr std::string_view exampleDocument =
    "<?xml version=1.0 encoding=UTF-8?>\r\n<!-- a -->\n<TEST_CONFIG>\n  <LED RW=\"RW\" x=1>text\n&amp;lt;<A/>tail<B "
    "y='2'></B></LED><SEC>1<SECOND/></SEC>\n</TEST_CONFIG>\n";

/// What the parser made of the text itself, with each NUL shown as "0".
std::string textAfterParsing(std::string_view document) {
  WritableText text(document);
  destroy_xml_object(create_xml_object(text.get()));
  std::string result(text.get(), document.size());
  for (char& character : result)
    character = character == '\0' ? '0' : character;
  return result;
}

/// Parses, measures and writes, changes nothing that lasts; the results are of no interest.
void useUp(std::string_view document) {
  const XmlTree tree = parsed(document);
  written(tree.get(), true);
  written(tree.get(), false);
}

std::string repeated(std::string_view unit, std::size_t size) {
  std::string text;
  while (text.size() + unit.size() <= size)
    text += unit;
  return text;
}

/// Runs an action on a thread that has only the stack that a document needs.
void onDocumentStack(std::function<void()> action) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, xmlDocumentStack), 0);
  pthread_t thread{};
  const auto body = [](void* argument) -> void* {
    (*static_cast<std::function<void()>*>(argument))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, body, &action), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attributes);
}

std::size_t depthOf(const ST_XML_ELEMENT* element) {
  std::size_t depth = 0;
  for (; element->m_elements != nullptr; element = element->m_elements[0])
    ++depth;
  return depth;
}

} // namespace

// The root

TEST(XmlDocument, HasARootThatCarriesNothingOfItsOwn) {
  const XmlTree tree = parsed("<A/>");
  EXPECT_STREQ(GetTag(tree.get()), "top");
  EXPECT_EQ(HasBody(tree.get()), 1);
  EXPECT_EQ(BreakAttr(tree.get()), 1);
  EXPECT_EQ(GetAttrNames(tree.get()), nullptr);
  EXPECT_EQ(GetAttrValues(tree.get()), nullptr);
  EXPECT_EQ(tree->m_text, nullptr);
}

TEST(XmlDocument, WithoutAnElementIsARootWithoutChildren) {
  for (const char* document : {"", " \t\r\n", "no element", "a > b"})
    EXPECT_EQ(parsed(document)->m_elements, nullptr) << document;
}

TEST(XmlDocument, MayBeNull) {
  const XmlTree tree(create_xml_object(nullptr));
  EXPECT_EQ(tree->m_elements, nullptr);
  EXPECT_EQ(parse_xml_elements(nullptr), nullptr);
}

TEST(XmlDocument, EndsAtItsFirstNul) {
  EXPECT_EQ(outlineOf(std::string_view("<A/>\0<B/>", 9)), "A/");
}

TEST(XmlDocument, IsCutInPlaceAndOtherwiseKept) {
  EXPECT_EQ(textAfterParsing("<?xml a=1?><A\tb=2>x<C />y</A><D/>"), "<?xml a=10><A0b=20x<C000y0/A><D00");
}

TEST(XmlCreateElements, ReplacesTheChildrenWithoutFreeingThem) {
  const XmlTree element(create_sub_xml_element("A", 0, 0, nullptr, nullptr, nullptr));
  EXPECT_EQ(create_xml_elements(WritableText("<B/>").get(), element.get()), element.get());
  EXPECT_EQ(HasBody(element.get()), 1);
  EXPECT_EQ(BreakAttr(element.get()), 1);
  ST_XML_ELEMENT** const previous = GetElements(element.get());
  create_xml_elements(WritableText("<C/>").get(), element.get());
  EXPECT_EQ(outline(*element), "A{C/}");
  EXPECT_STREQ(GetTag(previous[0]), "B");
  destroy_xml_object(previous[0]);
  std::free(previous);
}

// The declaration

TEST(XmlDeclaration, IsAnElementWithoutContentBesideTheDocumentElement) {
  EXPECT_EQ(outlineOf("<?xml version=1.0 encoding=UTF-8?><A> x </A>"), "xml/[version=1.0|encoding=UTF-8] A:'x'");
  EXPECT_EQ(BreakAttr(parsed("<?xml\na=1?>")->m_elements[0]), 0);
}

TEST(XmlDeclaration, MayHaveQuotedValuesOrNone) {
  EXPECT_EQ(outlineOf("<?xml version=\"1.0\"?><A/>"), "xml/[version=1.0] A/");
  EXPECT_EQ(outlineOf("<?xml?><A/>"), "xml/ A/");
}

TEST(XmlDeclaration, MayStandMoreThanOnceAndInsideAnElement) {
  EXPECT_EQ(outlineOf("<?xml a=1?> <?xml b=2?><A><?xml c=3?></A>"), "xml/[a=1] xml/[b=2] A{xml/[c=3]}");
}

TEST(XmlDeclaration, IsRecognisedOnlyDirectlyAfterTheBracket) {
  EXPECT_EQ(outlineOf("< ?xml a=1?>"), "?xml[a=1?]");
  EXPECT_EQ(outlineOf("<?XML a=1?>"), "?XML[a=1?]");
}

TEST(XmlDeclaration, ThatDoesNotEndEndsTheParse) {
  EXPECT_EQ(outlineOf("<A/><?xml a=1><B/>"), "A/");
}

// Constructs that are skipped

TEST(XmlSkippedConstruct, CreatesNothing) {
  EXPECT_EQ(outlineOf("<!DOCTYPE a><A/><!-- b --><B/><![CDATA[c]]>"), "A/ B/");
}

TEST(XmlSkippedConstruct, IsCountedByItsBrackets) {
  EXPECT_EQ(outlineOf("<!DOCTYPE a [<!ELEMENT b (c)><d>]><A/>"), "A/");
  EXPECT_EQ(outlineOf("<!-- <A/> --><B/>"), "B/");
  EXPECT_EQ(outlineOf("<!><A/>"), "A/");
}

TEST(XmlSkippedConstruct, EndsAtAStrayBracketOfAComment) {
  EXPECT_EQ(outlineOf("<!-- a > b --><A/>"), "A/");
}

TEST(XmlSkippedConstruct, ThatIsUnbalancedEndsTheParse) {
  EXPECT_EQ(outlineOf("<A/><!-- < --><B/>"), "A/");
  EXPECT_EQ(outlineOf("<A/><!"), "A/");
}

TEST(XmlSkippedConstruct, IsRecognisedOnlyDirectlyAfterTheBracket) {
  EXPECT_EQ(outlineOf("< !-- a><A/>"), "!--{A/}");
}

// Start tags

TEST(XmlStartTag, MayHaveWhiteSpaceAroundTheName) {
  EXPECT_EQ(outlineOf(" \t< \r\nA \n></A>"), "A");
}

TEST(XmlStartTag, HasItsAttributesAfterTheFirstWhiteSpace) {
  EXPECT_EQ(outlineOf("<A x=\"1\" y=2/>"), "A/[x=1|y=2]");
  EXPECT_EQ(outlineOf("<A\tx=1></A><B\ny=2></B><C\rz=3></C>"), "A[x=1] B[y=2] C[z=3]");
}

TEST(XmlStartTag, EndsAtABracketInsideAValue) {
  EXPECT_EQ(outlineOf("<A x=\"1>2\"></A>"), "A[x=1]:'2\">'");
  EXPECT_EQ(outlineOf("<A x=\"1&gt;2\"/>"), "A/[x=1>2]");
}

TEST(XmlStartTag, IsMarkedWhenItRunsOverALineEnd) {
  const auto mark = [](const char* document) { return BreakAttr(parsed(document)->m_elements[0]); };
  EXPECT_EQ(mark("<A x=1\ny=2/>"), 1);
  EXPECT_EQ(mark("<A\r/>"), 1);
  EXPECT_EQ(mark("<A x=1 \ty=2/>"), 0);
  EXPECT_EQ(mark("<A>\n</A>"), 0);
  EXPECT_EQ(mark("<\nA/>"), 0); // the text of the tag begins at its name
}

TEST(XmlStartTag, ThatDoesNotEndEndsTheParse) {
  EXPECT_EQ(outlineOf("<A/><B x=1"), "A/");
  EXPECT_EQ(outlineOf("<A/><"), "A/");
}

TEST(XmlStartTag, MayBeEmpty) {
  EXPECT_EQ(outlineOf("<>"), "");
  ASSERT_NE(parsed("<>")->m_elements, nullptr);
  EXPECT_STREQ(GetTag(parsed("<>")->m_elements[0]), "");
}

// Elements without content

TEST(XmlSelfClosing, IsAnElementWithoutContent) {
  EXPECT_EQ(outlineOf("<A/><B /><C x=1/><D x=\"1\"/>"), "A/ B/ C/[x=1] D/[x=1]");
}

TEST(XmlSelfClosing, NeedsTheSlashDirectlyBeforeTheBracket) {
  EXPECT_EQ(outlineOf("<A x=1 / ></A>"), "A[x=1]");
}

TEST(XmlSelfClosing, MayHaveNoName) {
  EXPECT_EQ(outlineOf("</><A/>"), "/ A/");
}

// Text bodies

TEST(XmlTextBody, IsWhatStandsBeforeTheFirstChild) {
  EXPECT_EQ(outlineOf("<A>lead<B/></A>"), "A:'lead'{B/}");
  EXPECT_EQ(outlineOf("<A><B>1</B>tail</A>"), "A{B:'1'}");
  EXPECT_EQ(outlineOf("<A><B/>between<C/></A>"), "A{B/ C/}");
}

TEST(XmlTextBody, IsTrimmedAtBothEnds) {
  EXPECT_EQ(outlineOf("<A> \t\r\n a b \r\n\t </A>"), "A:'a b'");
}

TEST(XmlTextBody, IsNoneWhenOnlyWhiteSpaceStandsThere) {
  EXPECT_EQ(parsed("<A> \r\n </A>")->m_elements[0]->m_text, nullptr);
  EXPECT_EQ(outlineOf("<A> <B/></A>"), "A{B/}");
}

TEST(XmlTextBody, NeedsAnOpeningBracketBehindIt) {
  EXPECT_EQ(outlineOf("<A>text"), "A");
}

TEST(XmlTextBody, IsDecodedAndHasItsLineEndsRewritten) {
  EXPECT_EQ(outlineOf("<A>&lt;B/&gt;\nx~~y&amp;quot;</A>"), "A:'<B/>\r\nx\r\ny\"'");
}

TEST(XmlTextBody, ReadBackGainsACarriageReturnPerLineEnd) {
  const XmlTree tree = parsed("<A>A\nB</A>");
  EXPECT_STREQ(GetElementBody(tree.get(), "A"), "A\r\nB");
  EXPECT_STREQ(GetElementBody(parsed(written(tree.get(), true)).get(), "A"), "A\r\r\nB");
}

// End tags

TEST(XmlEndTag, IsTheOneAtTheSameDepth) {
  EXPECT_EQ(outlineOf("<A><A><A>1</A></A></A><B/>"), "A{A{A:'1'}} B/");
}

TEST(XmlEndTag, MayHaveWhiteSpaceInIt) {
  EXPECT_EQ(outlineOf("<A>1< \n/ \tA \r><B/>"), "A:'1' B/");
}

TEST(XmlEndTag, MissingLeavesTheRestAsContent) {
  EXPECT_EQ(outlineOf("<A><B/><C/>"), "A{B/ C/}");
  EXPECT_EQ(outlineOf("<A>text<B></B><C/>"), "A:'text'{B C/}");
}

TEST(XmlEndTag, IsFoundByThePrefixOfItsName) {
  EXPECT_EQ(outlineOf("<SEC>1</SECOND><B/>"), "SEC:'1' B/");
}

TEST(XmlEndTag, IsMissedWhenAnUnclosedNestedNameBeginsWithTheSameCharacters) {
  EXPECT_EQ(outlineOf("<SEC><SECOND/></SEC><B/>"), "SEC{SECOND/ /SEC{B/}}");
  EXPECT_EQ(outlineOf("<SEC><SECOND>1</SECOND></SEC><B/>"), "SEC{SECOND:'1'} B/");
}

TEST(XmlEndTag, IsMissedWhenASelfClosingElementOfTheNameStandsInside) {
  EXPECT_EQ(outlineOf("<A><A/></A><B/>"), "A{A/ /A{B/}}");
}

TEST(XmlEndTag, IsLookedForBehindANestedNameAndNotInIt) {
  EXPECT_EQ(outlineOf("<<<><<<<<></<<></<<><B/>"), "<<{<<<<{/<<}} <{B/}");
}

TEST(XmlEndTag, OfAnotherElementIsTakenForAStartTag) {
  EXPECT_EQ(outlineOf("</A><B/>"), "/A{B/}");
}

TEST(XmlEndTag, OfANamelessElementIsNeverFound) {
  EXPECT_EQ(outlineOf("<><A/></><B/>"), "{A/ / B/}");
}

TEST(XmlEndTag, ComparesNothingBeyondTheEndOfTheText) {
  EXPECT_EQ(outlineOf("<LONG_NAME>1</LONG"), "LONG_NAME:'1'");
  EXPECT_EQ(outlineOf("<LONG_NAME>1<LONG"), "LONG_NAME:'1'");
  EXPECT_EQ(outlineOf("<LONG_NAME>1</"), "LONG_NAME:'1'");
  EXPECT_EQ(outlineOf("<LONG_NAME>1<"), "LONG_NAME:'1'");
}

// Hostile documents

TEST(XmlHostileDocument, CutAtAnyByteIsParsed) {
  for (std::size_t length = 0; length <= exampleDocument.size(); ++length)
    useUp(exampleDocument.substr(0, length));
  EXPECT_EQ(outlineOf(exampleDocument), "xml/[version=1.0|encoding=UTF-8] TEST_CONFIG{LED[RW=RW|x=1]:'text\r\n<'{A/ "
                                        "B[y='2']} SEC:'1'{SECOND/ /SEC}}");
}

TEST(XmlHostileDocument, WithAnyByteReplacedIsParsed) {
  for (const char replacement : {'<', '>', '/', '!', '"', '\n', '\0', '\xff'}) {
    for (std::size_t index = 0; index < exampleDocument.size(); ++index) {
      std::string document(exampleDocument);
      document[index] = replacement;
      useUp(document);
    }
  }
}

TEST(XmlHostileDocument, OfRandomBytesIsParsed) {
  std::mt19937 random(3);
  std::uniform_int_distribution<int> byte(0, 255);
  for (int round = 0; round < 300; ++round) {
    std::string document(static_cast<std::size_t>(round), '\0');
    for (char& character : document)
      character = static_cast<char>(byte(random));
    useUp(document);
  }
}

TEST(XmlHostileDocument, OfRandomMarkupIsParsed) {
  constexpr std::string_view markup[] = {"<", ">",  "/",  "</", "/>", "<!", "?>",   "<?xml", "A",   "AB",  "=",
                                         " ", "\n", "\"", "'",  "~",  "&",  "amp;", "&lt;",  "<A>", "</A>"};
  std::mt19937 random(4);
  std::uniform_int_distribution<std::size_t> pick(0, std::size(markup) - 1);
  for (int round = 0; round < 2000; ++round) {
    std::string document;
    for (int piece = 0; piece < round % 120; ++piece)
      document += markup[pick(random)];
    useUp(document);
  }
}

TEST(XmlHostileDocument, OfTheDeepestNestingStaysWithinTheStackOfADocument) {
  for (const std::string_view unit : {"<>", "<a>", "< >"}) {
    const std::string document = repeated(unit, longestDocument);
    std::size_t depth = 0;
    onDocumentStack([&] {
      const XmlTree tree = parsed(document);
      depth = depthOf(tree.get());
      written(tree.get(), true);
    });
    EXPECT_EQ(depth, document.size() / unit.size());
  }
}

TEST(XmlHostileDocument, OfAsManyElementsOrAttributesAsItHoldsIsParsed) {
  const XmlTree siblings = parsed(repeated("</>", longestDocument));
  EXPECT_NE(siblings->m_elements[longestDocument / 3 - 1], nullptr);
  const XmlTree attributes = parsed("<A " + repeated("a=\"\"", longestDocument - 4) + ">");
  EXPECT_STREQ(*GetAttrName(attributes->m_elements[0], (longestDocument - 4) / 4 - 1), "a");
}

TEST(XmlHostileDocument, OfTildesOrLineFeedsIsParsed) {
  const auto textOf = [](const std::string& text) {
    return std::string(GetElementBody(parsed("<A>" + text + ".</A>").get(), "A"));
  };
  constexpr std::size_t characters = 7000;
  EXPECT_EQ(textOf(std::string(characters, '~')), repeated("\r\n", characters) + ".");
  EXPECT_EQ(textOf("." + std::string(characters, '\n')), "." + repeated("\r\n", 2 * characters) + ".");
}
