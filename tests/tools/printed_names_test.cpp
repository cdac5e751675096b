// How names that are not simple symbols print, and how the reader's side
// turns the printed text back into the name.
#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <string>

#include "kora/terms/term.h"

namespace kora {
namespace {

TEST(PrintedNames, SimpleNamesPrintBare) {
  EXPECT_EQ(smtlib_symbol("x1"), "x1");
  EXPECT_EQ(smtlib_symbol("a.b!_-+=<>?/~@$%^&*"), "a.b!_-+=<>?/~@$%^&*");
}

TEST(PrintedNames, LineBreaksAndControlsAreEscapedBetweenBars) {
  EXPECT_EQ(smtlib_symbol("a b"), "|a b|");
  EXPECT_EQ(smtlib_symbol(""), "||");
  EXPECT_EQ(smtlib_symbol("two\nlines"), "|two\\nlines|");
  EXPECT_EQ(smtlib_symbol("cr\r"), "|cr\\r|");
  EXPECT_EQ(smtlib_symbol(std::string("a\0b", 3)), "|a\\x00b|");
  EXPECT_EQ(smtlib_symbol("\x1b[1m\x7f"), "|\\x1b[1m\\x7f|");
  // A tab does not break a line and stays as it is.
  EXPECT_EQ(smtlib_symbol("a\tb"), "|a\tb|");
  // The bar and the backslash cannot stand between bars.
  EXPECT_EQ(smtlib_symbol("a|b\\c"), "|a\\x7cb\\x5cc|");
  // Bytes from 0x80 up are left to the terminal's encoding.
  EXPECT_EQ(smtlib_symbol("caf\xc3\xa9"), "|caf\xc3\xa9|");
}

TEST(PrintedNames, EscapesReadBack) {
  EXPECT_EQ(unquote_smtlib_symbol("two\\nlines"), "two\nlines");
  EXPECT_EQ(unquote_smtlib_symbol("\\r\\x00\\x7C\\x5c"), std::string("\r\0|\\", 4));
  EXPECT_EQ(unquote_smtlib_symbol("plain text"), "plain text");
  EXPECT_EQ(unquote_smtlib_symbol(""), "");
}

TEST(PrintedNames, OtherBackslashesAreRefused) {
  for (const char* body : {"\\", "a\\", "\\t", "\\\\", "\\x", "\\x4", "\\xg0", "\\x0g", "\\N"}) {
    EXPECT_EQ(unquote_smtlib_symbol(body), std::nullopt) << body;
  }
}

// Whatever bytes a name holds, its printed form is one line that reads back
// as the name.
TEST(PrintedNames, EveryNameRoundTrips) {
  std::mt19937 rng(2026);
  for (int i = 0; i < 20000; ++i) {
    std::string name(rng() % 12, '\0');
    for (char& c : name) c = static_cast<char>(rng() % 256);
    const std::string printed = smtlib_symbol(name);
    for (char c : printed) {
      const auto b = static_cast<unsigned char>(c);
      ASSERT_TRUE(b >= 0x20 || c == '\t') << printed;
    }
    if (printed == name) continue;
    ASSERT_GE(printed.size(), 2U);
    ASSERT_EQ(printed.front(), '|');
    ASSERT_EQ(printed.back(), '|');
    const std::string body = printed.substr(1, printed.size() - 2);
    ASSERT_EQ(body.find('|'), std::string::npos) << printed;
    EXPECT_EQ(unquote_smtlib_symbol(body), name) << printed;
  }
}

}  // namespace
}  // namespace kora
