#include "cli/completion/synopsis.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <stdexcept>
#include <utility>

namespace cli {

struct Synopsis::Node {
  enum class Kind : std::uint8_t {
    keyword,
    argument,
    sequence,
    choice,
    options,  ///< all of them may be left out, and stand in any order
    repeated,
  };
  Kind kind = Kind::sequence;
  std::string word;
  std::vector<Node> parts;
};

namespace {

using Node = Synopsis::Node;
using Kind = Node::Kind;

// ---- Reading ----

std::vector<std::string> tokens(std::string_view text) {
  std::vector<std::string> found;
  bool apart = true;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == ' ') {
      apart = true;
      continue;
    }
    const bool tight = c == '|' && !(apart && (i + 1 == text.size() || text[i + 1] == ' '));
    if (std::string_view("[]{}").find(c) != std::string_view::npos) {
      found.emplace_back(1, c);
      apart = true;
      continue;
    }
    if (c == '|' && !tight) {
      found.emplace_back(" | ");
      continue;
    }
    if (text.substr(i).starts_with("...")) {
      found.emplace_back("...");
      i += 2;
      apart = true;
      continue;
    }
    if (apart) found.emplace_back();
    found.back() += c;
    apart = false;
  }
  return found;
}

Node word(const std::string& text) {
  const bool argument = std::isupper(static_cast<unsigned char>(text.front())) != 0;
  return {argument ? Kind::argument : Kind::keyword, text, {}};
}

// "a|b" of single words.
Node words(std::string_view text) {
  Node choice{Kind::choice, {}, {}};
  while (true) {
    const std::size_t length = std::min(text.find('|'), text.size());
    if (length == 0) throw std::invalid_argument("a choice is empty");
    choice.parts.push_back(word(std::string(text.substr(0, length))));
    if (length == text.size()) break;
    text.remove_prefix(length + 1);
  }
  return choice.parts.size() == 1 ? std::move(choice.parts.front()) : choice;
}

class Parser {
 public:
  explicit Parser(std::string_view text) : tokens_(tokens(text)) {}

  Node all() {
    Node node = choice();
    if (next_ != tokens_.size()) throw std::invalid_argument("a bracket is too many");
    return node;
  }

 private:
  bool at(std::string_view token) const {
    return next_ < tokens_.size() && tokens_[next_] == token;
  }
  void close(std::string_view bracket) {
    if (!at(bracket)) throw std::invalid_argument("a bracket is missing");
    ++next_;
  }

  Node choice() {
    Node node{Kind::choice, {}, {}};
    node.parts.push_back(sequence());
    while (at(" | ")) {
      ++next_;
      node.parts.push_back(sequence());
    }
    return node.parts.size() == 1 ? std::move(node.parts.front()) : node;
  }

  Node sequence() {
    Node node{Kind::sequence, {}, {}};
    while (next_ < tokens_.size() && !at(" | ") && !at("]") && !at("}")) {
      if (at("...")) {
        if (node.parts.empty()) throw std::invalid_argument("nothing is repeated");
        repeat(node.parts.back());
        ++next_;
      } else if (at("[")) {
        ++next_;
        Node option = choice();
        close("]");
        const bool goesOn = !node.parts.empty() && node.parts.back().kind == Kind::options;
        if (!goesOn) node.parts.push_back({Kind::options, {}, {}});
        node.parts.back().parts.push_back(std::move(option));
      } else if (at("{")) {
        ++next_;
        node.parts.push_back(choice());
        close("}");
      } else {
        node.parts.push_back(words(tokens_[next_++]));
      }
    }
    return node;
  }

  static void repeat(Node& node) {
    Node& repeated = node.kind == Kind::options ? node.parts.back() : node;
    Node part = std::move(repeated);
    repeated = {Kind::repeated, {}, {}};
    repeated.parts.push_back(std::move(part));
  }

  std::vector<std::string> tokens_;
  std::size_t next_ = 0;
};

// ---- Following words ----

// Tries all ways in which words fit. What could stand at their end is gathered on the way.
class Walk {
 public:
  using Then = std::function<void(std::size_t)>;

  explicit Walk(std::span<const std::string> words) : words_(words) {}

  void node(const Node& node, std::size_t at, const Then& then) {
    switch (node.kind) {
      case Kind::keyword:
      case Kind::argument:
        return single(node, at, then);
      case Kind::sequence:
        return sequence(node.parts, at, then);
      case Kind::choice:
        for (const Node& part : node.parts) this->node(part, at, then);
        return;
      case Kind::options:
        return options(node.parts, std::vector<bool>(node.parts.size(), false), at, then);
      case Kind::repeated:
        return this->node(node.parts.front(), at, [&](std::size_t next) {
          then(next);
          if (next > at) this->node(node, next, then);
        });
    }
  }

  std::vector<Expected> expected;

 private:
  void single(const Node& node, std::size_t at, const Then& then) {
    const bool argument = node.kind == Kind::argument;
    if (at == words_.size()) {
      const Expected here{node.word, argument};
      if (std::find(expected.begin(), expected.end(), here) == expected.end()) {
        expected.push_back(here);
      }
    } else if (argument || (!words_[at].empty() && node.word.starts_with(words_[at]))) {
      then(at + 1);
    }
  }

  void sequence(std::span<const Node> parts, std::size_t at, const Then& then) {
    if (parts.empty()) return then(at);
    node(parts.front(), at, [&](std::size_t next) { sequence(parts.subspan(1), next, then); });
  }

  void options(const std::vector<Node>& parts, const std::vector<bool>& taken, std::size_t at,
               const Then& then) {
    for (std::size_t i = 0; i < parts.size(); ++i) {
      if (taken[i]) continue;
      node(parts[i], at, [&](std::size_t next) {
        if (next == at) return;
        std::vector<bool> now = taken;
        now[i] = true;
        options(parts, now, next, then);
      });
    }
    then(at);
  }

  std::span<const std::string> words_;
};

}  // namespace

Synopsis::Synopsis(std::string_view text) : root_(std::make_unique<Node>(Parser(text).all())) {}
Synopsis::Synopsis(Synopsis&&) noexcept = default;
Synopsis& Synopsis::operator=(Synopsis&&) noexcept = default;
Synopsis::~Synopsis() = default;

std::vector<Expected> Synopsis::after(std::span<const std::string> words) const {
  if (words.size() > mostWords) return {};
  Walk walk(words);
  walk.node(*root_, 0, [](std::size_t) {});
  return std::move(walk.expected);
}

bool Synopsis::isWhole(std::span<const std::string> words) const {
  if (words.size() > mostWords) return false;
  bool whole = false;
  Walk(words).node(*root_, 0, [&](std::size_t at) { whole = whole || at == words.size(); });
  return whole;
}

}  // namespace cli
