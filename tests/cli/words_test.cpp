#include "cli/words.h"

#include <gtest/gtest.h>

#include <functional>

#include "cli/failure.h"

namespace cli {
namespace {

std::string problem(const std::function<void()>& step) {
  try {
    step();
  } catch (const UsageError& error) {
    return error.what();
  }
  return "none";
}

TEST(Words, AreTakenInOrder) {
  Words words({"a", "b"});
  EXPECT_EQ(words.front(), "a");
  EXPECT_EQ(words.take("FIRST"), "a");
  EXPECT_EQ(words.take("SECOND"), "b");
  EXPECT_TRUE(words.empty());
  EXPECT_EQ(problem([&] { words.end(); }), "none");
  EXPECT_EQ(problem([&] { words.take("THIRD"); }), "THIRD is missing");
}

TEST(Words, AreTakenOnlyIfTheyAreTheRightOnes) {
  Words words({"port", "3"});
  EXPECT_EQ(words.size(), 2U);
  EXPECT_FALSE(words.takeIf("vlan"));
  EXPECT_FALSE(words.takeIf("por"));
  EXPECT_TRUE(words.takeIf("port"));
  EXPECT_EQ(problem([&] { words.expect("vlan"); }), "\"3\" stands where \"vlan\" should");
  EXPECT_EQ(words.take("PORT"), "3");
  EXPECT_FALSE(words.takeIf("port"));
  EXPECT_EQ(problem([&] { words.expect("vlan"); }), "\"vlan\" is missing");
}

TEST(Words, LeftOverAreNamed) {
  const Words words({"left\x1b", "over"});
  EXPECT_EQ(problem([&] { words.end(); }), "\"left\\x1b\" is one word too many");
}

TEST(Words, ThatAreKeywordsMayBeAbbreviated) {
  Words words({"p", "vl", "protect", "dyn"});
  EXPECT_TRUE(words.takeIf("port"));
  words.expect("vlan");
  EXPECT_EQ(words.choose({"protect", "protected"}), "protect");
  EXPECT_EQ(words.choose({"protect", "dynamic"}), "dynamic");
  EXPECT_TRUE(words.empty());
}

TEST(Words, ThatCouldBeSeveralKeywordsAreLeftAndNameThem) {
  Words words({"pro"});
  EXPECT_EQ(problem([&] {
              words.choose({"profile", "port", "protocol"});
            }),
            R"("pro" could be "profile" or "protocol")");
  EXPECT_EQ(words.front(), "pro");
}

TEST(Words, ThatShouldBeOneOfSeveralAreAskedFor) {
  EXPECT_EQ(problem([] { Words({}).choose({"x", "y", "z"}); }), R"("x", "y" or "z" is missing)");
  EXPECT_EQ(problem([] {
              Words({"a"}).choose({"x", "y"});
            }),
            R"("a" stands where "x" or "y" should)");
  EXPECT_EQ(problem([] { Words({""}).choose({"x"}); }), R"("" stands where "x" should)");
}

TEST(Words, ThatAreNearlyRightAreSuggested) {
  EXPECT_EQ(problem([] {
              Words({"protcet"}).choose({"protect", "dynamic"});
            }),
            R"("protcet" stands where "protect" or "dynamic" should (did you mean "protect"?))");
}

TEST(Keywords, StandInAnyOrderOnceEach) {
  Words words({"dyn", "protect", "d"});
  Keywords keywords({"protect", "dynamic"});
  EXPECT_EQ(keywords.take(words), "dynamic");
  EXPECT_EQ(keywords.take(words), "protect");
  EXPECT_EQ(problem([&] { keywords.take(words); }), R"("dynamic" stands there twice)");
}

}  // namespace
}  // namespace cli
