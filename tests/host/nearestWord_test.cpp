#include "host/nearestWord.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr std::string_view words[] = {"bridge", "port", "lock", "vlan-profile", "service-profile"};

TEST(NearestWord, IsOneSlipAway) {
  EXPECT_EQ(nearestWord("brige", words), "bridge");    // missing
  EXPECT_EQ(nearestWord("bridgee", words), "bridge");  // too many
  EXPECT_EQ(nearestWord("lick", words), "lock");       // wrong
  EXPECT_EQ(nearestWord("prot", words), "port");       // swapped
  EXPECT_EQ(nearestWord("orpt", words), "");           // that is two
}

TEST(NearestWord, DoesNotAskForTheCaseOfLetters) {
  EXPECT_EQ(nearestWord("LOCK", words), "lock");
  EXPECT_EQ(nearestWord("VLAN-Profil", words), "vlan-profile");
}

TEST(NearestWord, MayBeFurtherAwayFromALongWord) {
  EXPECT_EQ(nearestWord("servce_profle", words), "service-profile");
  EXPECT_EQ(nearestWord("log", words), "");
  EXPECT_EQ(nearestWord("breeze", words), "");
}

TEST(NearestWord, IsTheNearest) {
  constexpr std::string_view near[] = {"cabs", "cab", "cabin"};
  EXPECT_EQ(nearestWord("cabb", near), "cabs");
  EXPECT_EQ(nearestWord("cabin", near), "cabin");
}

TEST(NearestWord, IsNoneForAWordLikeNoOther) {
  EXPECT_EQ(nearestWord("", words), "");
  EXPECT_EQ(nearestWord("colour", words), "");
  EXPECT_EQ(nearestWord("bridge", {}), "");
  EXPECT_EQ(nearestWord(std::string(100'000, 'b'), words), "");
}

TEST(Suggestion, EndsAMessage) {
  EXPECT_EQ(suggestion("brige", words), "; did you mean \"bridge\"?");
  EXPECT_EQ(suggestion("colour", words), "");
}

}  // namespace
