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
  EXPECT_FALSE(words.takeIf("vlan"));
  EXPECT_FALSE(words.takeIf("por"));
  EXPECT_TRUE(words.takeIf("port"));
  EXPECT_EQ(problem([&] { words.expect("vlan"); }), "\"3\" stands where \"vlan\" should");
  words.expect("3");
  EXPECT_FALSE(words.takeIf("port"));
  EXPECT_EQ(problem([&] { words.expect("vlan"); }), "\"vlan\" is missing");
}

TEST(Words, LeftOverAreNamed) {
  const Words words({"left\x1b", "over"});
  EXPECT_EQ(problem([&] { words.end(); }), "\"left\\x1b\" is one word too many");
}

TEST(Words, ThatShouldBeOneOfSeveralAreAskedFor) {
  EXPECT_EQ(problem([] { Words({}).expectOneOf("x or y"); }), "x or y is missing");
  EXPECT_EQ(problem([] { Words({"z"}).expectOneOf("x or y"); }),
            "\"z\" stands where x or y should");
}

}  // namespace
}  // namespace cli
