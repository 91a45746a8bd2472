#include "l2cp/node.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

using TextNode = Node<std::string>;

TEST(Node, HoldsADefaultValueFromTheStart) { EXPECT_EQ(*TextNode(), ""); }

TEST(Node, StandsForItsValue) {
  TextNode node = std::string("a");
  EXPECT_EQ(*node, "a");
  EXPECT_EQ(node->size(), 1U);
  node->push_back('b');
  const TextNode& constant = node;
  EXPECT_EQ(*constant, "ab");
  EXPECT_EQ(constant->size(), 2U);
  EXPECT_EQ(constant.pointer().get(), &*node);
}

TEST(Node, CopyIsAValueOfItsOwn) {
  TextNode source = std::string("a");
  TextNode copy = source;
  *copy = "b";
  EXPECT_EQ(*source, "a");
  EXPECT_EQ(*copy, "b");
  EXPECT_NE(copy.pointer(), source.pointer());
}

TEST(Node, AssignmentIsSeenByEveryPointerToTheElement) {
  TextNode target = std::string("a");
  const TextNode source = std::string("b");
  const std::shared_ptr<std::string> pointer = target.pointer();
  target = source;
  EXPECT_EQ(target.pointer(), pointer);
  EXPECT_EQ(*pointer, "b");
  *target = "c";
  EXPECT_EQ(*source, "b");
}

TEST(Node, AssignmentToItselfChangesNothing) {
  TextNode node = std::string("a");
  const std::shared_ptr<std::string> pointer = node.pointer();
  const TextNode& itself = node;
  node = itself;
  EXPECT_EQ(*node, "a");
  EXPECT_EQ(node.pointer(), pointer);
}

TEST(Node, ValueOutlivesTheElementWhileSomebodyPointsAtIt) {
  std::map<int, TextNode> registry;
  registry.emplace(1, std::string("a"));
  std::shared_ptr<std::string> pointer = registry.at(1).pointer();
  const std::weak_ptr<std::string> watch = pointer;
  registry.erase(1);
  EXPECT_EQ(*pointer, "a");
  pointer.reset();
  EXPECT_TRUE(watch.expired());
}

TEST(Node, ElementOfARegistryKeepsItsPlaceWhenOthersComeAndGo) {
  std::map<int, TextNode> registry;
  registry.emplace(50, std::string("a"));
  const std::string* place = registry.at(50).pointer().get();
  for (int key = 0; key < 100; ++key) registry[key];
  for (int key = 0; key < 50; ++key) registry.erase(key);
  EXPECT_EQ(registry.at(50).pointer().get(), place);
  EXPECT_EQ(*place, "a");
}

}  // namespace
