#include "kora/smtlib/lexer.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace kora::smtlib {
namespace {

std::vector<Token> lex_all(const std::string& text) {
  std::istringstream in(text);
  Lexer lexer(in);
  std::vector<Token> tokens;
  for (;;) {
    tokens.push_back(lexer.next());
    if (tokens.back().kind == TokenKind::End) return tokens;
  }
}

void expect_token(const Token& t, TokenKind kind, const std::string& text, std::size_t line,
                  std::size_t column) {
  EXPECT_EQ(t.kind, kind) << "token '" << t.text << "'";
  EXPECT_EQ(t.text, text);
  EXPECT_EQ(t.pos.line, line) << "token '" << t.text << "'";
  EXPECT_EQ(t.pos.column, column) << "token '" << t.text << "'";
}

TEST(Lexer, TokensAndPositions) {
  auto t = lex_all("(declare-const x (_ BitVec 8)) ; comment ( ignored\n  (echo \"hi\")\n");
  ASSERT_EQ(t.size(), 14U);
  expect_token(t[0], TokenKind::LParen, "(", 1, 1);
  expect_token(t[1], TokenKind::Symbol, "declare-const", 1, 2);
  expect_token(t[2], TokenKind::Symbol, "x", 1, 16);
  expect_token(t[3], TokenKind::LParen, "(", 1, 18);
  expect_token(t[4], TokenKind::Symbol, "_", 1, 19);
  expect_token(t[5], TokenKind::Symbol, "BitVec", 1, 21);
  expect_token(t[6], TokenKind::Numeral, "8", 1, 28);
  expect_token(t[7], TokenKind::RParen, ")", 1, 29);
  expect_token(t[8], TokenKind::RParen, ")", 1, 30);
  expect_token(t[9], TokenKind::LParen, "(", 2, 3);
  expect_token(t[10], TokenKind::Symbol, "echo", 2, 4);
  expect_token(t[11], TokenKind::String, "hi", 2, 9);
  expect_token(t[12], TokenKind::RParen, ")", 2, 13);
  expect_token(t[13], TokenKind::End, "", 3, 1);
}

TEST(Lexer, QuotedSymbolsKeepTheirTextAndMayCrossLines) {
  auto t = lex_all("|a b| |x\ny| z");
  expect_token(t[0], TokenKind::Symbol, "a b", 1, 1);
  EXPECT_TRUE(t[0].quoted);
  expect_token(t[1], TokenKind::Symbol, "x\ny", 1, 7);
  expect_token(t[2], TokenKind::Symbol, "z", 2, 4);
  EXPECT_FALSE(t[2].quoted);
  expect_token(lex_all("||")[0], TokenKind::Symbol, "", 1, 1);
}

TEST(Lexer, StringsUndoubleQuotes) {
  auto t = lex_all("\"say \"\"hi\"\"\" \"\" \"a\nb\" x");
  expect_token(t[0], TokenKind::String, "say \"hi\"", 1, 1);
  expect_token(t[1], TokenKind::String, "", 1, 14);
  expect_token(t[2], TokenKind::String, "a\nb", 1, 17);
  expect_token(t[3], TokenKind::Symbol, "x", 2, 4);
}

TEST(Lexer, NumeralsDecimalsAndLiterals) {
  auto t = lex_all("0 42 1.5 #b0101 #xA5f :named ~!@$%^&*_-+=<>.?/");
  expect_token(t[0], TokenKind::Numeral, "0", 1, 1);
  expect_token(t[1], TokenKind::Numeral, "42", 1, 3);
  expect_token(t[2], TokenKind::Decimal, "1.5", 1, 6);
  expect_token(t[3], TokenKind::Binary, "#b0101", 1, 10);
  expect_token(t[4], TokenKind::Hex, "#xA5f", 1, 17);
  expect_token(t[5], TokenKind::Keyword, ":named", 1, 23);
  expect_token(t[6], TokenKind::Symbol, "~!@$%^&*_-+=<>.?/", 1, 30);
}

TEST(Lexer, MalformedTokensAreErrorsAtTheirStart) {
  struct Case {
    const char* input;
    const char* message;
  };
  const Case cases[] = {
      {"  007", "invalid numeral '007': leading zeros are not allowed"},
      {"  12ab", "invalid token '12ab': a symbol cannot start with a digit"},
      {"  1.", "invalid token '1.': a symbol cannot start with a digit"},
      {"  #b012", "invalid binary literal '#b012': #b must be followed by binary digits only"},
      {"  #xg",
       "invalid hexadecimal literal '#xg': #x must be followed by hexadecimal digits "
       "only"},
      {"  #",
       "invalid literal '#': expected #b followed by binary digits or #x followed by "
       "hexadecimal digits"},
      {"  : x", "expected a keyword name after ':'"},
      {"  {", "unexpected character '{'"},
      {"  \x01", "unexpected byte 0x01"},
      {"  \xff", "unexpected byte 0xff"},
      {"  \"open", "unterminated string literal"},
      {"  |open", "unterminated quoted symbol"},
      {"  |a\\b|", "a quoted symbol cannot contain '\\'"},
  };
  for (const Case& c : cases) {
    auto t = lex_all(c.input);
    expect_token(t[0], TokenKind::Error, c.message, 1, 3);
  }
}

TEST(Lexer, ResumesAfterAnError) {
  auto t = lex_all("[x] |a\\b| y");
  EXPECT_EQ(t[0].kind, TokenKind::Error);
  expect_token(t[1], TokenKind::Symbol, "x", 1, 2);
  EXPECT_EQ(t[2].kind, TokenKind::Error);
  EXPECT_EQ(t[3].kind, TokenKind::Error);
  expect_token(t[4], TokenKind::Symbol, "y", 1, 11);
}

TEST(Lexer, EndOfInputInsideACommentIsTheEnd) {
  auto t = lex_all("a ; no newline");
  ASSERT_EQ(t.size(), 2U);
  expect_token(t[1], TokenKind::End, "", 1, 15);
}

TEST(Lexer, NeverReadsPastAClosingParenthesis) {
  // An interactive session must answer a command before more is typed.
  std::istringstream in("(exit)rest");
  Lexer lexer(in);
  while (lexer.next().kind != TokenKind::RParen) {
  }
  EXPECT_EQ(in.rdbuf()->sgetc(), 'r');
}

TEST(Lexer, SymbolPrinting) {
  EXPECT_TRUE(is_simple_symbol("x1"));
  EXPECT_FALSE(is_simple_symbol("1x"));
  EXPECT_FALSE(is_simple_symbol("a b"));
  EXPECT_FALSE(is_simple_symbol(""));
  EXPECT_EQ(printed_symbol("a b"), "|a b|");
  EXPECT_EQ(printed_symbol("ab"), "ab");
  EXPECT_EQ(shorten(std::string(100, 'x'), 10), "xxxxxxxxxx...");
}

}  // namespace
}  // namespace kora::smtlib
