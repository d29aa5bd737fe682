#include <gmock/gmock.h>
#include <syslog.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <vector>

#include "platform/board.h"
#include "tests/unit/xml_text.h"

using testing::AllOf;
using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::HasSubstr;

// Memory and the log. The linker puts these in the place of the real functions (see CMakeLists.txt).

namespace {

struct Memory {
  std::size_t allocations = 0;
  std::size_t failing = 0; ///< the allocation that fails, counted from 1; 0 for none
  std::vector<std::size_t> reallocatedTo;
};
Memory memory;

// What has been freed since it was last emptied, in order, as far as there is room. Not a vector, which would free
// memory itself.
struct Freed {
  std::array<const void*, 32> blocks{};
  std::size_t count = 0;
};
Freed freed;

bool fails() {
  return ++memory.allocations == memory.failing;
}

} // namespace

extern "C" {
void* __real_malloc(std::size_t);
void* __wrap_malloc(std::size_t);
void* __real_calloc(std::size_t, std::size_t);
void* __wrap_calloc(std::size_t, std::size_t);
void* __real_realloc(void*, std::size_t);
void* __wrap_realloc(void*, std::size_t);
void __real_free(void*);
void __wrap_free(void*);
void __wrap_board_syslog(int, const char*, ...) __attribute__((format(printf, 2, 3)));

void* __wrap_malloc(std::size_t size) {
  return fails() ? nullptr : __real_malloc(size);
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
  return fails() ? nullptr : __real_calloc(count, size);
}

void* __wrap_realloc(void* block, std::size_t size) {
  if (fails())
    return nullptr;
  memory.reallocatedTo.push_back(size);
  return __real_realloc(block, size);
}

void __wrap_free(void* block) {
  if (block != nullptr && freed.count < freed.blocks.size())
    freed.blocks[freed.count++] = block;
  __real_free(block);
}

void __wrap_board_syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::fprintf(stderr, "priority %d: ", priority);
  std::vfprintf(stderr, format, arguments);
  va_end(arguments);
}
}

namespace {

/// An element with these attributes, its text being that of a start tag.
XmlTree withAttributes(const char* attributes) {
  return XmlTree(create_sub_xml_element("A", 0, 0, attributes, nullptr, nullptr));
}

std::string outlineOfAttributes(const char* attributes) {
  return outline(*withAttributes(attributes));
}

XmlTree withText(const char* text) {
  return XmlTree(create_sub_xml_element("A", 1, 0, nullptr, nullptr, text));
}

std::string storedText(const std::string& text) {
  return GetTextBody(withText(text.c_str()).get());
}

std::string storedValue(const std::string& value) {
  const XmlTree element = withAttributes(("a=\"" + value + "\"").c_str());
  return GetAttrValue(element.get(), "a");
}

XmlTree emptyElement(const char* tag = "A") {
  return XmlTree(create_sub_xml_element(tag, 0, 0, nullptr, nullptr, nullptr));
}

ST_XML_ELEMENT* addChild(const XmlTree& parent, const char* tag) {
  ST_XML_ELEMENT* const child = emptyElement(tag).release();
  AddElement(parent.get(), child);
  return child;
}

std::size_t allocationsOf(const auto& action) {
  const std::size_t before = memory.allocations;
  action();
  return memory.allocations - before;
}

void replaceAll(char** text, const char* from, const char* to) {
  while (replace_string(text, from, to) != 0)
    continue;
}

/// A text after replacing the first occurrence of one thing after the other until none is left.
std::string repeatedlyReplaced(const std::string& text,
                               std::initializer_list<std::array<const char*, 2>> replacements) {
  char* copy = strdup_xml(text.c_str());
  for (const auto& [from, to] : replacements)
    replaceAll(&copy, from, to);
  std::string result = copy;
  std::free(copy);
  return result;
}

std::string randomText(std::mt19937& random, const std::vector<const char*>& pieces, std::size_t count) {
  std::uniform_int_distribution<std::size_t> pick(0, pieces.size() - 1);
  std::string text;
  for (std::size_t piece = 0; piece < count; ++piece)
    text += pieces[pick(random)];
  return text;
}

} // namespace

// Elements

TEST(XmlElement, KeepsItsTagAndFlagsAsGiven) {
  const XmlTree element(create_sub_xml_element("Tag", 5, 3, nullptr, nullptr, nullptr));
  EXPECT_STREQ(GetTag(element.get()), "Tag");
  EXPECT_EQ(HasBody(element.get()), 5);
  EXPECT_EQ(BreakAttr(element.get()), 3);
  EXPECT_EQ(GetAttrNames(element.get()), nullptr);
  EXPECT_EQ(GetAttrValues(element.get()), nullptr);
  EXPECT_EQ(GetElements(element.get()), nullptr);
  EXPECT_EQ(element->m_text, nullptr);
}

TEST(XmlElement, OwnsCopiesOfEverything) {
  WritableText tag("A");
  WritableText attributes("a=1");
  WritableText text("t");
  const XmlTree element(create_sub_xml_element(tag.get(), 1, 0, attributes.get(), nullptr, text.get()));
  for (char* given : {tag.get(), attributes.get(), text.get()})
    *given = 'X';
  EXPECT_EQ(outline(*element), "A[a=1]:'t'");
}

TEST(XmlElement, ParsesItsElementsWhenItHasContent) {
  const XmlTree element(create_sub_xml_element("A", 1, 0, nullptr, WritableText("<B/><C/>").get(), nullptr));
  EXPECT_EQ(outline(*element), "A{B/ C/}");
}

TEST(XmlElement, LeavesTheElementsAloneWithoutContent) {
  WritableText elements("<B/>");
  const XmlTree element(create_sub_xml_element("A", 0, 0, nullptr, elements.get(), nullptr));
  EXPECT_EQ(outline(*element), "A/");
  EXPECT_STREQ(elements.get(), "<B/>");
}

TEST(XmlElement, MayBeDestroyedWhenNull) {
  destroy_xml_object(nullptr);
}

TEST(XmlElement, IsDestroyedPartByPart) {
  ST_XML_ELEMENT* const element =
      create_sub_xml_element("A", 1, 0, "a=1 b=2", WritableText("<B c=3>t</B><C/>").get(), "text");
  const ST_XML_ELEMENT& b = *element->m_elements[0];
  const ST_XML_ELEMENT& c = *element->m_elements[1];
  const std::vector<const void*> parts = {element->m_tag,
                                          element->m_text,
                                          element->m_attrnames[0],
                                          element->m_attrnames[1],
                                          element->m_attrnames,
                                          element->m_attrvalues[0],
                                          element->m_attrvalues[1],
                                          element->m_attrvalues,
                                          b.m_tag,
                                          b.m_text,
                                          b.m_attrnames[0],
                                          b.m_attrnames,
                                          b.m_attrvalues[0],
                                          b.m_attrvalues,
                                          &b,
                                          c.m_tag,
                                          &c,
                                          element->m_elements,
                                          element};
  freed.count = 0;
  destroy_xml_object(element);
  const std::size_t count = freed.count;
  EXPECT_EQ(std::vector(freed.blocks.begin(), freed.blocks.begin() + static_cast<std::ptrdiff_t>(count)), parts);
}

// Attributes

TEST(XmlAttributes, AreReadQuotedAndUnquoted) {
  EXPECT_EQ(outlineOfAttributes("version=1.0 encoding=UTF-8"), "A/[version=1.0|encoding=UTF-8]");
  EXPECT_EQ(outlineOfAttributes("x=\"1 2\" y=3"), "A/[x=1 2|y=3]");
}

TEST(XmlAttributes, MayFollowAClosingQuoteAtOnce) {
  EXPECT_EQ(outlineOfAttributes("a=\"1\"b=\"2\""), "A/[a=1|b=2]");
}

TEST(XmlAttributes, MayHaveAnyWhiteSpaceAroundThem) {
  EXPECT_EQ(outlineOfAttributes(" \t\r\na \t\r\n= \t\r\n\"1\" \t\r\nb\n=\n2\n"), "A/[a=1|b=2]");
}

TEST(XmlAttributes, EndAnUnquotedValueAtAnyWhiteSpace) {
  EXPECT_EQ(outlineOfAttributes("a=1 b=2\tc=3\nd=4\re=5"), "A/[a=1|b=2|c=3|d=4|e=5]");
}

TEST(XmlAttributes, KeepSingleQuotesAsOrdinaryCharacters) {
  EXPECT_EQ(outlineOfAttributes("a='x' b='y z'"), "A/[a='x'|b='y]");
}

TEST(XmlAttributes, KeepAQuoteInsideAnUnquotedValue) {
  EXPECT_EQ(outlineOfAttributes("a=x\"y b=1"), "A/[a=x\"y|b=1]");
}

TEST(XmlAttributes, KeepAnEqualsSignInsideAValue) {
  EXPECT_EQ(outlineOfAttributes("a=b=c d=\"e=f\""), "A/[a=b=c|d=e=f]");
}

TEST(XmlAttributes, KeepWhiteSpaceInsideAName) {
  EXPECT_EQ(outlineOfAttributes("a b=1"), "A/[a b=1]");
}

TEST(XmlAttributes, AreNoneWithoutAnEqualsSign) {
  EXPECT_EQ(withAttributes("checked")->m_attrnames, nullptr);
  EXPECT_EQ(withAttributes("checked")->m_attrvalues, nullptr);
  EXPECT_EQ(outlineOfAttributes("a=1 checked"), "A/[a=1]");
}

TEST(XmlAttributes, AreNoneInNoTextAnEmptyOneOrWhiteSpace) {
  EXPECT_EQ(outlineOfAttributes(nullptr), "A/");
  EXPECT_EQ(outlineOfAttributes(""), "A/");
  EXPECT_EQ(outlineOfAttributes(" \t\r\n"), "A/");
}

TEST(XmlAttributes, StopAtAnEmptyName) {
  EXPECT_EQ(outlineOfAttributes("=x b=1"), "A/");
  EXPECT_EQ(outlineOfAttributes("a=1 \t =x b=1"), "A/[a=1]");
}

TEST(XmlAttributes, StopAfterAnUnterminatedValue) {
  EXPECT_EQ(outlineOfAttributes("a=\"unterminated"), "A/[a=unterminated]");
  EXPECT_EQ(outlineOfAttributes("a=\"rest b=1"), "A/[a=rest b=1]");
  EXPECT_EQ(outlineOfAttributes("a=\""), "A/[a=]");
}

TEST(XmlAttributes, MayHaveAnEmptyValue) {
  EXPECT_EQ(outlineOfAttributes("a=\"\" b=1"), "A/[a=|b=1]");
  EXPECT_EQ(outlineOfAttributes("a="), "A/[a=]");
  EXPECT_EQ(outlineOfAttributes("a= \n"), "A/[a=]");
}

TEST(XmlAttributes, TakeTheNextWordWhenTheValueIsMissing) {
  EXPECT_EQ(outlineOfAttributes("a= b=1"), "A/[a=b=1]");
}

TEST(XmlAttributes, KeepDuplicateNamesInOrder) {
  EXPECT_EQ(outlineOfAttributes("a=1 b=2 a=3"), "A/[a=1|b=2|a=3]");
}

TEST(XmlAttributes, HaveTheirValuesDecodedButNotTheirNames) {
  EXPECT_EQ(outlineOfAttributes("&lt;=&lt; b=\"&quot;&amp;\""), "A/[&lt;=<|b=\"&]");
}

TEST(XmlAttributes, ComeInArraysOfExactlyWhatTheyHold) {
  memory.reallocatedTo.clear();
  const XmlTree element = withAttributes("a=1 b=2");
  constexpr std::size_t pointer = sizeof(char*);
  EXPECT_THAT(memory.reallocatedTo, ElementsAre(2 * pointer, 2 * pointer, 3 * pointer, 3 * pointer));
  EXPECT_EQ(element->m_attrnames[2], nullptr);
  EXPECT_EQ(element->m_attrvalues[2], nullptr);
}

// Entities

TEST(XmlEntities, AreDecodedInValuesAndTexts) {
  constexpr const char* encoded = "&lt;&gt;&amp;&quot;&apos;";
  EXPECT_EQ(storedText(encoded), "<>&\"'");
  EXPECT_EQ(storedValue(encoded), "<>&\"'");
}

TEST(XmlEntities, AreDecodedOverSeveralLevels) {
  EXPECT_EQ(storedValue("&amp;quot;"), "\"");
  EXPECT_EQ(storedText("&amp;lt;"), "<");
  EXPECT_EQ(storedText("&amp;amp;"), "&");
  EXPECT_EQ(storedText("&amp;amp;amp;gt;"), ">");
}

TEST(XmlEntities, AreNotDecodedAnewAfterTheirPass) {
  EXPECT_EQ(storedText("&am&amp;p;"), "&am&p;");
  EXPECT_EQ(storedText("&l&quot;t;"), "&l\"t;");
}

TEST(XmlEntities, LeaveEverythingElseAsItStands) {
  EXPECT_EQ(storedText("& &; &lt &LT; &#65; &#x41; &nbsp; ;amp;"), "& &; &lt &LT; &#65; &#x41; &nbsp; ;amp;");
}

TEST(XmlEntities, EndAsRepeatedReplacementOfTheFirstOneWouldEnd) {
  std::mt19937 random(1);
  const std::vector<const char*> pieces = {"&",   "amp;",   "&amp;", "lt;", "&lt;", "gt;", "quot;", "&quot;",
                                           "apo", "&apos;", "s;",    ";",   "a",    "m",   "p",     "x"};
  for (int round = 0; round < 3000; ++round) {
    const std::string text = randomText(random, pieces, 1 + static_cast<std::size_t>(round % 24));
    const std::string expected =
        repeatedlyReplaced(text, {{"&amp;", "&"}, {"&quot;", "\""}, {"&apos;", "'"}, {"&lt;", "<"}, {"&gt;", ">"}});
    ASSERT_EQ(storedText(text), expected) << text;
    ASSERT_EQ(storedValue(text), expected) << text;
  }
}

TEST(XmlEntities, OfAHostileTextTakeNoMoreMemoryThanThoseOfAShortOne) {
  std::string hostile = "&";
  for (int level = 0; level < 1900; ++level)
    hostile += "amp;";
  XmlTree shortOne;
  XmlTree longOne;
  const std::size_t forAShortOne = allocationsOf([&] { shortOne = withText("&amp;"); });
  EXPECT_EQ(allocationsOf([&] { longOne = withText(hostile.c_str()); }), forAShortOne);
  EXPECT_STREQ(GetTextBody(longOne.get()), "&");
}

// Texts

TEST(XmlText, HasItsLineFeedsMadeCrLfAndItsEndTrimmed) {
  EXPECT_EQ(storedText("A\nB  "), "A\r\nB");
  EXPECT_EQ(storedText("A \t\r\n"), "A");
}

TEST(XmlText, HasACrLfMadeCrCrLf) {
  EXPECT_EQ(storedText("A\r\nB"), "A\r\r\nB");
}

TEST(XmlText, HasTwoTildesMadeCrLf) {
  EXPECT_EQ(storedText("x~~y"), "x\r\ny");
  EXPECT_EQ(storedText("x~y"), "x~y");
  EXPECT_EQ(storedText("~~~"), "\r\n~");
}

TEST(XmlText, HasATildeBesideALineFeedPairedWithItsMark) {
  EXPECT_EQ(storedText("a~\nb"), "a\r\n~b");
  EXPECT_EQ(storedText("a~\n~b"), "a\r\n\r\nb");
}

TEST(XmlText, EndsAsRepeatedReplacementWouldEnd) {
  std::mt19937 random(2);
  for (int round = 0; round < 3000; ++round) {
    const std::string text =
        randomText(random, {"~", "~~", "\n", "\r\n", "\r", "a"}, 1 + static_cast<std::size_t>(round % 16)) + ".";
    ASSERT_EQ(storedText(text), repeatedlyReplaced(text, {{"\n", "~~"}, {"~~", "\r\n"}})) << text;
  }
}

TEST(XmlText, KeepsALeadingSpaceGivenToTheConstructor) {
  EXPECT_EQ(storedText("  x"), "  x");
}

TEST(XmlText, MarksTheElementAsHavingContent) {
  const XmlTree element(create_sub_xml_element("A", 0, 0, nullptr, nullptr, "t"));
  EXPECT_EQ(HasBody(element.get()), 1);
}

TEST(XmlText, OfWhiteSpaceAloneIsKeptAsAnEmptyOne) {
  const XmlTree element = withText(" \t\r\n");
  EXPECT_STREQ(element->m_text, "");
}

TEST(XmlText, IsNoneWhenNullOrEmpty) {
  for (const char* text : {static_cast<const char*>(nullptr), ""}) {
    const XmlTree element(create_sub_xml_element("A", 0, 0, nullptr, nullptr, text));
    EXPECT_EQ(element->m_text, nullptr);
    EXPECT_EQ(HasBody(element.get()), 0);
  }
}

// Accessors of attributes

TEST(XmlGetAttrValue, IsThatOfTheFirstAttributeOfTheName) {
  EXPECT_STREQ(GetAttrValue(withAttributes("b=0 a=1 a=2").get(), "a"), "1");
}

TEST(XmlGetAttrValue, IsNullWithoutAMatchInExactlyThisCase) {
  const XmlTree element = withAttributes("a=1 ab=2");
  EXPECT_EQ(GetAttrValue(element.get(), "A"), nullptr);
  EXPECT_EQ(GetAttrValue(element.get(), "abc"), nullptr);
  EXPECT_EQ(GetAttrValue(element.get(), ""), nullptr);
  EXPECT_EQ(GetAttrValue(emptyElement().get(), "a"), nullptr);
}

TEST(XmlSetAttrValue, ReplacesTheValueOfTheFirstAttributeOfTheName) {
  const XmlTree element = withAttributes("a=1 b=2 a=3");
  WritableText value("new");
  SetAttrValue(element.get(), "a", value.get());
  *value.get() = 'X';
  EXPECT_EQ(outline(*element), "A/[a=new|b=2|a=3]");
}

TEST(XmlSetAttrValue, AppendsAMissingAttribute) {
  const XmlTree element = emptyElement();
  SetAttrValue(element.get(), "a", "1");
  SetAttrValue(element.get(), "b", "2&lt;");
  EXPECT_EQ(outline(*element), "A/[a=1|b=2&lt;]");
}

TEST(XmlSetAttrValue, AllocatesNothingForTheValueAlreadyPresent) {
  const XmlTree element = withAttributes("a=1");
  const char* const present = GetAttrValue(element.get(), "a");
  EXPECT_EQ(allocationsOf([&] { SetAttrValue(element.get(), "a", "1"); }), 0U);
  EXPECT_EQ(GetAttrValue(element.get(), "a"), present);
}

TEST(XmlSetAttrValue, TakesAPartOfTheOldValue) {
  const XmlTree element = withAttributes("a=12345");
  SetAttrValue(element.get(), "a", GetAttrValue(element.get(), "a") + 3);
  EXPECT_STREQ(GetAttrValue(element.get(), "a"), "45");
}

TEST(XmlAttrSlots, AreSteppedThroughToTheTerminator) {
  const XmlTree element = withAttributes("a=1 b=2");
  EXPECT_STREQ(*GetAttrName(element.get(), 0), "a");
  EXPECT_STREQ(*GetAttrVal(element.get(), 0), "1");
  EXPECT_STREQ(*GetAttrName(element.get(), 1), "b");
  EXPECT_STREQ(*GetAttrVal(element.get(), 1), "2");
  EXPECT_EQ(*GetAttrName(element.get(), 2), nullptr);
  EXPECT_EQ(*GetAttrVal(element.get(), 2), nullptr);
  EXPECT_EQ(GetAttrName(element.get(), 0), element->m_attrnames);
  EXPECT_EQ(GetAttrVal(element.get(), 0), element->m_attrvalues);
}

TEST(XmlAttrSlots, AreNullWithoutAttributes) {
  const XmlTree element = emptyElement();
  for (const int index : {0, 1, 7}) {
    EXPECT_EQ(GetAttrName(element.get(), index), nullptr);
    EXPECT_EQ(GetAttrVal(element.get(), index), nullptr);
  }
}

TEST(XmlGetters, ReturnTheFieldsAsStored) {
  const XmlTree element = parsed("<A\nx=1><B/></A>");
  const ST_XML_ELEMENT* const a = GetElement(element.get(), "A");
  EXPECT_EQ(GetTag(a), a->m_tag);
  EXPECT_EQ(HasBody(a), 1);
  EXPECT_EQ(BreakAttr(a), 1);
  EXPECT_EQ(GetAttrNames(a), a->m_attrnames);
  EXPECT_EQ(GetAttrValues(a), a->m_attrvalues);
  EXPECT_EQ(GetElements(a), a->m_elements);
}

// Accessors of children

TEST(XmlGetElement, IsTheFirstDirectChildOfTheTag) {
  const XmlTree tree = parsed("<A><B/></A><B>1</B><B>2</B>");
  EXPECT_STREQ(GetTextBody(GetElement(tree.get(), "B")), "1");
}

TEST(XmlGetElement, IsNullWithoutAMatchInExactlyThisCase) {
  const XmlTree tree = parsed("<A><B/></A>");
  EXPECT_EQ(GetElement(tree.get(), "B"), nullptr);
  EXPECT_EQ(GetElement(tree.get(), "a"), nullptr);
  EXPECT_EQ(GetElement(tree.get(), "AB"), nullptr);
  EXPECT_EQ(GetElement(emptyElement().get(), "A"), nullptr);
}

TEST(XmlGetElementBody, FindsATextByItsPath) {
  const XmlTree tree = parsed("<MODEM_INFO><MODEL_NUM> 77 </MODEL_NUM><NONE/></MODEM_INFO>");
  EXPECT_STREQ(GetElementBody(tree.get(), "MODEM_INFO/MODEL_NUM"), "77");
  EXPECT_STREQ(GetElementBody(tree.get(), "MODEM_INFO/NONE"), "");
  EXPECT_STREQ(GetElementBody(tree.get(), "MODEM_INFO"), "");
}

TEST(XmlGetElementBody, IsNullForAMissingComponent) {
  const XmlTree tree = parsed("<A><B>1</B></A>");
  for (const char* path : {"B", "A/C", "A/B/C", "C/B", "A//B", "/A/B", "A/B/", ""})
    EXPECT_EQ(GetElementBody(tree.get(), path), nullptr) << path;
}

TEST(XmlGetElementBody, MatchesAnEmptyComponentWithAnEmptyTag) {
  const XmlTree tree = emptyElement();
  SetTextBody(addChild(tree, ""), "nameless");
  EXPECT_STREQ(GetElementBody(tree.get(), ""), "nameless");
  EXPECT_EQ(GetElementBody(tree.get(), "/"), nullptr);
}

TEST(XmlGetElementBody, IsNullForNullArguments) {
  const XmlTree tree = parsed("<A>1</A>");
  EXPECT_EQ(GetElementBody(nullptr, "A"), nullptr);
  EXPECT_EQ(GetElementBody(tree.get(), nullptr), nullptr);
}

TEST(XmlGetElementBody, TakesAPathOf255CharactersAndNoneOf256) {
  const std::string longestTag(253, 'A');
  const XmlTree tree =
      parsed("<" + longestTag + "B><C>1</C></" + longestTag + "B><" + longestTag + "><C>2</C></" + longestTag + ">");
  EXPECT_STREQ(GetElementBody(tree.get(), (longestTag + "/C").c_str()), "2");
  EXPECT_EQ(GetElementBody(tree.get(), (longestTag + "B/C").c_str()), nullptr);
}

TEST(XmlGetTagElements, AreAllDirectChildrenOfTheTagInOrder) {
  const XmlTree tree = parsed("<A>1</A><B><A>x</A></B><A>2</A>");
  ST_XML_ELEMENT** const found = GetTagElements(tree.get(), "A");
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found[0], tree->m_elements[0]);
  EXPECT_EQ(found[1], tree->m_elements[2]);
  EXPECT_EQ(found[2], nullptr);
  std::free(found);
}

TEST(XmlGetTagElements, AreNullWithoutAMatch) {
  EXPECT_EQ(GetTagElements(parsed("<A/>").get(), "B"), nullptr);
  EXPECT_EQ(GetTagElements(emptyElement().get(), "A"), nullptr);
}

TEST(XmlAddElement, AppendsTheLastChild) {
  const XmlTree tree = parsed("<A/>");
  const ST_XML_ELEMENT* const added = addChild(tree, "B");
  EXPECT_EQ(outlineOfChildren(*tree), "A/ B/");
  EXPECT_EQ(GetElement(tree.get(), "B"), added);
}

TEST(XmlAddElement, GrowsTheArrayToExactlyWhatItHolds) {
  const XmlTree tree = emptyElement();
  memory.reallocatedTo.clear();
  for (const char* tag : {"B", "C", "D"})
    addChild(tree, tag);
  constexpr std::size_t pointer = sizeof(void*);
  EXPECT_THAT(memory.reallocatedTo, ElementsAre(2 * pointer, 3 * pointer, 4 * pointer));
  EXPECT_EQ(GetElements(tree.get())[3], nullptr);
}

TEST(XmlRemoveElements, ClosesTheGapsAndKeepsTheOrder) {
  const XmlTree tree = parsed("<A/><B/><A/><C/><D/><A/>");
  ST_XML_ELEMENT** const array = GetElements(tree.get());
  EXPECT_EQ(allocationsOf([&] { RemoveElements(tree.get(), "A"); }), 0U);
  EXPECT_EQ(outlineOfChildren(*tree), "B/ C/ D/");
  EXPECT_EQ(GetElements(tree.get()), array);
}

TEST(XmlRemoveElements, LeavesAnArrayOfOnlyItsTerminatorWhenEveryChildGoes) {
  const XmlTree tree = parsed("<A/><A/>");
  RemoveElements(tree.get(), "A");
  ASSERT_NE(GetElements(tree.get()), nullptr);
  EXPECT_EQ(GetElements(tree.get())[0], nullptr);
  EXPECT_EQ(GetElement(tree.get(), "A"), nullptr);
  addChild(tree, "B");
  EXPECT_EQ(outlineOfChildren(*tree), "B/");
}

TEST(XmlRemoveElements, ChangesNothingWithoutAMatch) {
  const XmlTree tree = parsed("<A><B/></A>");
  RemoveElements(tree.get(), "B");
  EXPECT_EQ(outlineOfChildren(*tree), "A{B/}");
  const XmlTree childless = emptyElement();
  RemoveElements(childless.get(), "B");
  EXPECT_EQ(GetElements(childless.get()), nullptr);
}

// Accessors of texts

TEST(XmlSetTextBody, StoresACopyAsGivenAndMarksTheElement) {
  const XmlTree element = emptyElement();
  WritableText text(" &lt;\n~~ ");
  SetTextBody(element.get(), text.get());
  *text.get() = 'X';
  EXPECT_STREQ(GetTextBody(element.get()), " &lt;\n~~ ");
  EXPECT_EQ(HasBody(element.get()), 1);
}

TEST(XmlSetTextBody, RemovesTheTextAndLeavesTheMarkWhenNullOrEmpty) {
  for (const char* text : {static_cast<const char*>(nullptr), ""}) {
    const XmlTree element = withText("old");
    SetTextBody(element.get(), text);
    EXPECT_EQ(element->m_text, nullptr);
    EXPECT_EQ(HasBody(element.get()), 1);
    const XmlTree unmarked = emptyElement();
    SetTextBody(unmarked.get(), text);
    EXPECT_EQ(HasBody(unmarked.get()), 0);
  }
}

TEST(XmlSetTextBody, TakesAPartOfTheOldText) {
  const XmlTree element = withText("12345");
  SetTextBody(element.get(), GetTextBody(element.get()) + 3);
  EXPECT_STREQ(GetTextBody(element.get()), "45");
}

TEST(XmlGetTextBody, IsNeverNull) {
  EXPECT_STREQ(GetTextBody(emptyElement().get()), "");
}

TEST(XmlSetBodyFlag, MarksTheElementAsHavingContent) {
  const XmlTree element = emptyElement();
  SetBodyFlag(element.get());
  EXPECT_EQ(HasBody(element.get()), 1);
}

// String utilities

TEST(XmlStrdup, CopiesATextIntoMemoryOfItsOwn) {
  const char* const text = "text";
  char* const copy = strdup_xml(text);
  EXPECT_NE(copy, text);
  EXPECT_STREQ(copy, "text");
  std::free(copy);
}

TEST(XmlStrdup, IsNullWithoutMemory) {
  memory.failing = memory.allocations + 1;
  EXPECT_EQ(strdup_xml("text"), nullptr);
  memory.failing = 0;
}

TEST(XmlTrimRight, OverwritesWhiteSpaceFromTheEndBackwards) {
  char text[] = " a b \t\r\n ";
  trim_right(text);
  EXPECT_STREQ(text, " a b");
  EXPECT_EQ(std::string(text + 4, sizeof text - 4), std::string(sizeof text - 4, '\0'));
}

TEST(XmlTrimRight, TakesAnEmptyTextOneOfWhiteSpaceAndNull) {
  WritableText empty("");
  trim_right(empty.get());
  EXPECT_STREQ(empty.get(), "");
  WritableText blank(" \n");
  trim_right(blank.get());
  EXPECT_STREQ(blank.get(), "");
  trim_right(nullptr);
}

TEST(XmlTrimRight, KeepsOtherControlCharacters) {
  WritableText text("a\v\f");
  trim_right(text.get());
  EXPECT_STREQ(text.get(), "a\v\f");
}

TEST(XmlSkipSpace, AdvancesToTheFirstOtherCharacter) {
  WritableText text(" \t\r\n\va ");
  char* cursor = text.get();
  skip_space(&cursor);
  EXPECT_STREQ(cursor, "\va ");
  WritableText blank("  ");
  cursor = blank.get();
  skip_space(&cursor);
  EXPECT_EQ(cursor, blank.get() + 2);
}

TEST(XmlReplaceString, ReplacesTheFirstOccurrenceOnly) {
  const auto replaced = [](const char* source, const char* from, const char* to) {
    char* text = strdup_xml(source);
    EXPECT_EQ(replace_string(&text, from, to), 1);
    std::string result = text;
    std::free(text);
    return result;
  };
  EXPECT_EQ(replaced("a-b-c", "-", "+"), "a+b-c");
  EXPECT_EQ(replaced("a-b-c", "-", "long"), "alongb-c");
  EXPECT_EQ(replaced("a-b-c", "a-b", ""), "-c");
  EXPECT_EQ(replaced("whole", "whole", ""), "");
}

TEST(XmlReplaceString, LeavesTheTextWithoutAnOccurrence) {
  char* text = strdup_xml("abc");
  char* const before = text;
  EXPECT_EQ(replace_string(&text, "x", "y"), 0);
  EXPECT_EQ(replace_string(&text, "abcd", "y"), 0);
  EXPECT_EQ(text, before);
  EXPECT_STREQ(text, "abc");
  std::free(text);
}

TEST(XmlReplaceString, ReturnsZeroForANullText) {
  char* text = nullptr;
  EXPECT_EQ(replace_string(&text, "a", "b"), 0);
}

// Memory that runs out

TEST(XmlOutOfMemoryDeathTest, EndsTheProcessAtWhicheverAllocationOfAParseFails) {
  const auto parse = [] { return parsed("<A x=1>a\nb<B/></A>"); };
  const std::size_t allocations = allocationsOf(parse);
  ASSERT_GT(allocations, 10U);
  for (std::size_t failing = 1; failing <= allocations; ++failing) {
    EXPECT_EXIT(
        {
          memory.failing = memory.allocations + failing;
          parse();
          std::_Exit(0); // not reached
        },
        ExitedWithCode(255),
        AllOf(HasSubstr("priority " + std::to_string(LOG_ERR)), HasSubstr("XML: out of memory\n")));
  }
}

TEST(XmlOutOfMemoryDeathTest, EndsTheProcessInEveryAccessorThatAllocates) {
  const XmlTree element = withAttributes("a=1");
  addChild(element, "B");
  char* text = strdup_xml("text");
  const std::vector<std::function<void()>> actions = {
      [&] { SetAttrValue(element.get(), "a", "2"); },         [&] { SetAttrValue(element.get(), "b", "2"); },
      [&] { AddElement(element.get(), element.get()); },      [&] { SetTextBody(element.get(), "text"); },
      [&] { std::free(GetTagElements(element.get(), "B")); }, [&] { replace_string(&text, "t", "T"); },
  };
  for (const auto& action : actions) {
    EXPECT_EXIT(
        {
          memory.failing = memory.allocations + 1;
          action();
          std::_Exit(0); // not reached
        },
        ExitedWithCode(255), HasSubstr("XML: out of memory\n"));
  }
  std::free(text);
}
