#include "cli/choice.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace cli {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::string_view nouns[] = {"protocol", "profile", "port", "vlan", "vlan-profile"};

TEST(Candidates, AreAllThatBeginWithTheWord) {
  EXPECT_THAT(candidates("p", nouns), ElementsAre("protocol", "profile", "port"));
  EXPECT_THAT(candidates("pro", nouns), ElementsAre("protocol", "profile"));
  EXPECT_THAT(candidates("prof", nouns), ElementsAre("profile"));
  EXPECT_THAT(candidates("vlan-", nouns), ElementsAre("vlan-profile"));
}

TEST(Candidates, AreOnlyTheWordItselfIfItIsThere) {
  EXPECT_THAT(candidates("vlan", nouns), ElementsAre("vlan"));
}

TEST(Candidates, OfNothingAndOfOtherWordsAreNone) {
  EXPECT_THAT(candidates("", nouns), IsEmpty());
  EXPECT_THAT(candidates("ports", nouns), IsEmpty());
  EXPECT_THAT(candidates("Port", nouns), IsEmpty());
}

TEST(Nearest, ForgivesOneMistakeInAShortWord) {
  EXPECT_EQ(nearest("prot", std::span(&nouns[2], 1)), "port");  // swapped
  EXPECT_EQ(nearest("poort", nouns), "port");                   // too many
  EXPECT_EQ(nearest("vln", nouns), "vlan");                     // missing
  EXPECT_EQ(nearest("vlam", nouns), "vlan");                    // wrong
  EXPECT_EQ(nearest("pert", nouns), "port");
}

TEST(Nearest, ForgivesAThirdOfALongWord) {
  EXPECT_EQ(nearest("prtcol", nouns), "protocol");
  EXPECT_EQ(nearest("vlan_profil", nouns), "vlan-profile");
}

TEST(Nearest, IsNothingForAWordLikeNoOther) {
  EXPECT_EQ(nearest("frob", nouns), "");
  EXPECT_EQ(nearest("x", nouns), "");
  EXPECT_EQ(nearest("", nouns), "");
  EXPECT_EQ(nearest(std::string(100000, 'p'), nouns), "");
}

TEST(Suggestion, IsMadeOnlyIfThereIsOne) {
  EXPECT_EQ(suggestion("porfile", nouns), " (did you mean \"profile\"?)");
  EXPECT_EQ(suggestion("frob", nouns), "");
}

TEST(Alternatives, AreJoinedAsInASentence) {
  EXPECT_EQ(alternatives(std::span(nouns, 1)), R"("protocol")");
  EXPECT_EQ(alternatives(std::span(nouns, 2)), R"("protocol" or "profile")");
  EXPECT_EQ(alternatives(std::span(nouns, 3)), R"("protocol", "profile" or "port")");
}

}  // namespace
}  // namespace cli
