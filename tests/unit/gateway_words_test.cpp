#include "simulator/words.h"

#include <gmock/gmock.h>

#include <stdexcept>

using gateway::joinWords;
using gateway::splitWords;
using testing::ElementsAre;
using testing::IsEmpty;
using Words = std::vector<std::string>;

TEST(GatewayWords, StandWithBlanksBetweenThem) {
  EXPECT_EQ(joinWords({}), "");
  EXPECT_EQ(joinWords({"set", "Xcvr", "State", "UP"}), "set Xcvr State UP");
  EXPECT_THAT(splitWords("set  Xcvr\tState UP \r\n"), ElementsAre("set", "Xcvr", "State", "UP"));
  EXPECT_THAT(splitWords(" \t"), IsEmpty());
}

TEST(GatewayWords, AreQuotedOnlyWhereTheyNeedIt) {
  EXPECT_EQ(joinWords({"", "a b", "--row", "#", "a#", "a=b"}), R"("" "a b" --row "#" a# a=b)");
  EXPECT_EQ(joinWords({"\"", "\\", "it's", "a\nb\tc\rd", std::string("\0\x7f", 2)}),
            R"("\"" "\\" "it's" "a\nb\tc\rd" "\x00\x7f")");
}

TEST(GatewayWords, AreReadBackAsTheyWere) {
  Words words{"", " ", "#x", "it's", "\"", "\\n", "\xfc\xff", "a'b\"c"};
  for (int code = 0; code < 256; ++code)
    words.emplace_back(1, static_cast<char>(code));
  EXPECT_EQ(splitWords(joinWords(words)), words);
}

TEST(GatewayWords, EndAtAComment) {
  EXPECT_THAT(splitWords("# all of it"), IsEmpty());
  EXPECT_THAT(splitWords("press reset # down"), ElementsAre("press", "reset"));
  EXPECT_THAT(splitWords("a#b '#' \"#\""), ElementsAre("a#b", "#", "#"));
}

TEST(GatewayWords, HaveQuotesWhereverTheyLike) {
  EXPECT_THAT(splitWords(R"(a' 'b"\x41\"" '\' '')"), ElementsAre("a bA\"", "\\", ""));
}

TEST(GatewayWords, AreRefusedWithoutAnEnd) {
  for (const char* const line :
       {"'", "\"", "a 'b", "\"\\", "\"\\\"", "\"\\q\"", "\"\\x\"", "\"\\x4\"", "\"\\xzz\"", "\"\\x4"})
    EXPECT_THROW(splitWords(line), std::invalid_argument) << line;
}
