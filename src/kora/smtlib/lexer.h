#pragma once

#include <cstddef>
#include <iosfwd>
#include <streambuf>
#include <string>

namespace kora::smtlib {

// 1-based; columns count bytes, so that a position means the same thing to
// every editor whatever the encoding.
struct Position {
  std::size_t line = 1;
  std::size_t column = 1;
  bool operator==(const Position&) const = default;
};

enum class TokenKind : unsigned char {
  LParen,
  RParen,
  Symbol,   // text without the bars of a |quoted| symbol
  Numeral,  // decimal digits
  Decimal,  // digits.digits, lexed so that it can be refused by name
  Binary,   // #b0101, text as written
  Hex,      // #xA5, text as written
  String,   // text with "" already turned into "
  Keyword,  // :name, text with the colon
  Error,    // text is the message
  End,
};

struct Token {
  TokenKind kind = TokenKind::End;
  Position pos;
  std::string text;
  // A |quoted| symbol is never a reserved word such as `_` or `as`.
  bool quoted = false;
};

// Hand-written SMT-LIB 2 lexer over a stream. It never reads past the token
// that it returns (a closing parenthesis is taken alone), so an interactive
// session sees each command answered before the next one is typed.
class Lexer {
 public:
  explicit Lexer(std::istream& in);

  Token next();
  // Position of the next unread byte (for end of input: just past the last).
  Position position() const noexcept { return pos_; }

 private:
  int peek();
  int get();
  Token error(Position at, std::string message);
  Token lex_string(Position start);
  Token lex_quoted_symbol(Position start);
  Token lex_hash(Position start);
  Token lex_number(Position start, char first);
  std::string take_symbol_chars(std::string prefix);

  std::streambuf* buf_;
  Position pos_;
};

// SMT-LIB simple-symbol characters (letters, digits and ~!@$%^&*_-+=<>.?/).
bool is_symbol_char(int c) noexcept;
// Whether name can be written without bars.
bool is_simple_symbol(const std::string& name);
// name as SMT-LIB prints it: bare when simple, |quoted| otherwise.
std::string printed_symbol(const std::string& name);
// text cut to a readable length for a message.
std::string shorten(const std::string& text, std::size_t limit = 60);

}  // namespace kora::smtlib
