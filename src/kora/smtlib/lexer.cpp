#include "kora/smtlib/lexer.h"

#include <cstdio>
#include <cstring>
#include <istream>
#include <utility>

namespace kora::smtlib {

namespace {

constexpr int kEof = std::char_traits<char>::eof();

bool is_digit(int c) noexcept {
  return c >= '0' && c <= '9';
}

bool is_space(int c) noexcept {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

std::string describe_byte(int c) {
  if (c >= 0x20 && c < 0x7f) return std::string("character '") + static_cast<char>(c) + "'";
  char buf[8];
  std::snprintf(buf, sizeof buf, "0x%02x", static_cast<unsigned>(c) & 0xffU);
  return std::string("byte ") + buf;
}

}  // namespace

bool is_symbol_char(int c) noexcept {
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || is_digit(c)) return true;
  return c > 0 && c < 0x80 && std::strchr("~!@$%^&*_-+=<>.?/", c) != nullptr;
}

bool is_simple_symbol(const std::string& name) {
  if (name.empty() || is_digit(static_cast<unsigned char>(name[0]))) return false;
  for (char c : name) {
    if (!is_symbol_char(static_cast<unsigned char>(c))) return false;
  }
  return true;
}

std::string printed_symbol(const std::string& name) {
  return is_simple_symbol(name) ? name : "|" + name + "|";
}

std::string shorten(const std::string& text, std::size_t limit) {
  if (text.size() <= limit) return text;
  return text.substr(0, limit) + "...";
}

Lexer::Lexer(std::istream& in) : buf_(in.rdbuf()) {}

int Lexer::peek() {
  return buf_ == nullptr ? kEof : buf_->sgetc();
}

int Lexer::get() {
  if (buf_ == nullptr) return kEof;
  int c = buf_->sbumpc();
  if (c == '\n') {
    ++pos_.line;
    pos_.column = 1;
  } else if (c != kEof) {
    ++pos_.column;
  }
  return c;
}

Token Lexer::error(Position at, std::string message) {
  return Token{TokenKind::Error, at, std::move(message), false};
}

std::string Lexer::take_symbol_chars(std::string prefix) {
  while (is_symbol_char(peek())) prefix += static_cast<char>(get());
  return prefix;
}

Token Lexer::next() {
  for (;;) {
    int c = peek();
    if (c == kEof) return Token{TokenKind::End, pos_, {}, false};
    if (is_space(c)) {
      get();
      continue;
    }
    if (c == ';') {
      while (c != kEof && c != '\n') c = get();
      continue;
    }
    break;
  }

  Position start = pos_;
  int c = get();
  switch (c) {
    case '(':
      return Token{TokenKind::LParen, start, "(", false};
    case ')':
      return Token{TokenKind::RParen, start, ")", false};
    case '"':
      return lex_string(start);
    case '|':
      return lex_quoted_symbol(start);
    case '#':
      return lex_hash(start);
    case ':': {
      std::string text = take_symbol_chars(":");
      if (text.size() == 1) return error(start, "expected a keyword name after ':'");
      return Token{TokenKind::Keyword, start, std::move(text), false};
    }
    default:
      break;
  }
  if (is_digit(c)) return lex_number(start, static_cast<char>(c));
  if (is_symbol_char(c)) {
    return Token{TokenKind::Symbol, start, take_symbol_chars(std::string(1, static_cast<char>(c))),
                 false};
  }
  return error(start, "unexpected " + describe_byte(c));
}

Token Lexer::lex_string(Position start) {
  std::string text;
  for (;;) {
    int c = get();
    if (c == kEof) return error(start, "unterminated string literal");
    if (c == '"') {
      if (peek() != '"') break;
      get();
    }
    text += static_cast<char>(c);
  }
  return Token{TokenKind::String, start, std::move(text), false};
}

Token Lexer::lex_quoted_symbol(Position start) {
  std::string text;
  bool backslash = false;
  for (;;) {
    int c = get();
    if (c == kEof) return error(start, "unterminated quoted symbol");
    if (c == '|') break;
    // Read on to the closing bar so that the next token starts cleanly.
    if (c == '\\') backslash = true;
    text += static_cast<char>(c);
  }
  if (backslash) return error(start, "a quoted symbol cannot contain '\\'");
  return Token{TokenKind::Symbol, start, std::move(text), true};
}

Token Lexer::lex_hash(Position start) {
  std::string text = take_symbol_chars("#");
  if (text.size() > 2 && text[1] == 'b') {
    if (text.find_first_not_of("01", 2) == std::string::npos) {
      return Token{TokenKind::Binary, start, std::move(text), false};
    }
    return error(start, "invalid binary literal '" + shorten(text) +
                            "': #b must be followed by binary digits only");
  }
  if (text.size() > 2 && text[1] == 'x') {
    if (text.find_first_not_of("0123456789abcdefABCDEF", 2) == std::string::npos) {
      return Token{TokenKind::Hex, start, std::move(text), false};
    }
    return error(start, "invalid hexadecimal literal '" + shorten(text) +
                            "': #x must be followed by hexadecimal digits only");
  }
  return error(start, "invalid literal '" + shorten(text) +
                          "': expected #b followed by binary digits or #x followed by "
                          "hexadecimal digits");
}

Token Lexer::lex_number(Position start, char first) {
  // Read the whole run of symbol characters so that "12abc" is one bad token
  // rather than a numeral followed by a symbol.
  std::string text = take_symbol_chars(std::string(1, first));
  std::size_t dot = text.find('.');
  std::size_t digits_end = text.find_first_not_of("0123456789");
  if (digits_end == std::string::npos) {
    if (text.size() > 1 && text[0] == '0') {
      return error(start, "invalid numeral '" + shorten(text) + "': leading zeros are not allowed");
    }
    return Token{TokenKind::Numeral, start, std::move(text), false};
  }
  if (digits_end == dot && dot + 1 < text.size() &&
      text.find_first_not_of("0123456789", dot + 1) == std::string::npos) {
    return Token{TokenKind::Decimal, start, std::move(text), false};
  }
  return error(start, "invalid token '" + shorten(text) + "': a symbol cannot start with a digit");
}

}  // namespace kora::smtlib
