#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "kora/smtlib/lexer.h"

namespace kora::smtlib {

// A problem with the input, at the position of the offending token.
class InputError : public std::runtime_error {
 public:
  InputError(Position pos, const std::string& message)
      : std::runtime_error(message), pos_(pos), message_(message) {}
  Position pos() const noexcept { return pos_; }
  // The whole message: what() ends at a NUL byte that quoted input may hold.
  const std::string& message() const noexcept { return message_; }

 private:
  Position pos_;
  std::string message_;
};

// One node of an S-expression: a list or a single token.
struct Node {
  enum class Kind : unsigned char { List, Symbol, Numeral, Decimal, Binary, Hex, String, Keyword };

  Kind kind = Kind::List;
  bool quoted = false;  // a |quoted| symbol
  Position pos;         // of the token, or of the '(' of a list
  Position end;         // of the ')' of a list
  // Order of creation within its command: the nodes of a command are made in
  // source order, so this numbers them in pre-order and a subtree's nodes
  // are consecutive.
  std::size_t index = 0;
  std::string text;
  std::vector<const Node*> children;

  bool is_list() const noexcept { return kind == Kind::List; }
  // An unquoted symbol spelled name: reserved words only count bare.
  bool is_reserved(const char* name) const noexcept {
    return kind == Kind::Symbol && !quoted && text == name;
  }
  bool is_symbol() const noexcept { return kind == Kind::Symbol; }
};

// The source text of n, cut short for a message. Never recurses deeper than
// the length limit, so arbitrarily nested input is safe.
std::string describe(const Node& n, std::size_t limit = 60);

// The whole source text of root on one line, as it was written (comments and
// line breaks become single spaces). Walks with an explicit stack.
std::string source_text(const Node& root);

// Reads one top-level command at a time into a tree that it owns until the
// next call. Malformed input is reported once per command and skipped up to
// the parenthesis that closes the command, so that the next command is read
// cleanly.
class Reader {
 public:
  // Deeper lists are refused: nothing in a command needs them, and refusing
  // bounds what later passes over the tree have to cope with.
  static constexpr std::size_t kMaxDepth = 10000;

  explicit Reader(std::istream& in) : lexer_(in) {}

  // The next command, or nullopt at the end of the input. Throws InputError
  // for a malformed one, after skipping it.
  std::optional<const Node*> next();
  // The command that next() returned or refused last, as far as it was read
  // (its first child, when it has one, is the command's name); nullptr when
  // no command was begun.
  const Node* current() const noexcept;

 private:
  Node* make(Node::Kind kind, Position pos, std::string&& text = {}, bool quoted = false);
  // Skips tokens until the list that was open at depth `depth` is closed.
  void skip(std::size_t depth);

  Lexer lexer_;
  // Nodes are kept from one command to the next and handed out again, with
  // the capacity of their text and child vector: allocating and freeing each
  // command's tree was a sixth of the time of reading a large file. A deque
  // never moves its elements, so the tree's pointers stay valid as it grows.
  std::deque<Node> nodes_;
  std::size_t used_ = 0;
  std::optional<Token> pending_;
};

}  // namespace kora::smtlib
