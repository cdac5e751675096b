// Each operator that the reader rewrites (or reads n-ary, chained or
// right-associated) is checked exhaustively at widths 1 to 4: the elaborated
// term must evaluate like a direct implementation of its SMT-LIB definition,
// both by the test's own evaluator and by the term layer's folders.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "kora/model/model_store.h"
#include "kora/smtlib/script.h"
#include "support/evaluator.h"
#include "support/extension_reference.h"

namespace kora::smtlib {
namespace {

using u64 = std::uint64_t;
using test::mask;
// The reference: the operator's value for the arguments, all of width w
// (Booleans are 0 or 1).
using Reference = std::function<u64(const std::vector<u64>& args, std::size_t w)>;

std::int64_t to_signed(u64 x, std::size_t w) {
  return ((x >> (w - 1)) & 1) != 0 ? static_cast<std::int64_t>(x) - (std::int64_t{1} << w)
                                   : static_cast<std::int64_t>(x);
}

// The value of a folded term: a numeral's, or 1 and 0 for true and false.
std::optional<u64> folded(const TermManager& mgr, const Term* t) {
  if (t == mgr.true_term()) return 1;
  if (t == mgr.false_term()) return 0;
  QNumber value;
  if (!mgr.number_value(t->get_symbol(), &value)) return std::nullopt;
  return std::stoull(value.to_string());
}

class Rewrite : public ::testing::Test {
 protected:
  // Reads `(get-value ((EXPR)))` over `arity` constants x0, x1 ... of the sort
  // (Bool when w is 0) and compares with ref under every assignment.
  void check(const std::string& expr, std::size_t arity, std::size_t w, const Reference& ref) {
    SCOPED_TRACE(expr + " at width " + std::to_string(w));
    std::ostringstream script;
    std::string sort = w == 0 ? "Bool" : "(_ BitVec " + std::to_string(w) + ")";
    for (std::size_t k = 0; k < arity; ++k) script << "(declare-const x" << k << " " << sort << ")";
    script << "(get-value ((" << expr << ")))";
    std::istringstream in(script.str());
    TermManager mgr;
    ModelStore store(&mgr);
    ScriptReader reader(in, &mgr, "t.smt2");
    std::vector<const Term*> xs;
    const Term* t = nullptr;
    while (std::optional<Command> c = reader.next()) {
      if (c->kind == Command::Kind::DeclareConst) xs.push_back(c->term);
      if (c->kind == Command::Kind::GetValue) t = c->terms.at(0);
    }
    ASSERT_NE(t, nullptr);
    const std::size_t bits = w == 0 ? 1 : w;
    std::vector<u64> args(arity, 0);
    for (u64 code = 0; code < (u64{1} << (bits * arity)); ++code) {
      for (std::size_t k = 0; k < arity; ++k) {
        args[k] = (code >> (k * bits)) & mask(bits);
        store.set_value(xs[k], w == 0 ? (args[k] != 0 ? mgr.true_term() : mgr.false_term())
                                      : mgr.make_bv_word(args[k], w));
      }
      const u64 want = ref(args, w);
      std::optional<u64> got = test::evaluate(mgr, store, t);
      ASSERT_TRUE(got.has_value());
      ASSERT_EQ(*got, want) << "for arguments coded " << code;
      ASSERT_EQ(folded(mgr, store.get_normalized(t)), want)
          << "folded, for arguments coded " << code;
    }
  }
  // The same at every width from 1 to 4.
  void check_widths(const std::string& expr, std::size_t arity, const Reference& ref) {
    for (std::size_t w = 1; w <= 4; ++w) check(expr, arity, w, ref);
  }
};

TEST_F(Rewrite, Bvnand) {
  check_widths("bvnand x0 x1", 2, [](auto& a, auto w) { return ~(a[0] & a[1]) & mask(w); });
}

TEST_F(Rewrite, Bvnor) {
  check_widths("bvnor x0 x1", 2, [](auto& a, auto w) { return ~(a[0] | a[1]) & mask(w); });
}

TEST_F(Rewrite, Bvxnor) {
  check_widths("bvxnor x0 x1", 2, [](auto& a, auto w) { return ~(a[0] ^ a[1]) & mask(w); });
}

TEST_F(Rewrite, UnsignedComparisons) {
  check_widths("bvuge x0 x1", 2, [](auto& a, auto) { return u64{a[0] >= a[1]}; });
  check_widths("bvugt x0 x1", 2, [](auto& a, auto) { return u64{a[0] > a[1]}; });
}

TEST_F(Rewrite, SignedComparisons) {
  check_widths("bvsge x0 x1", 2,
               [](auto& a, auto w) { return u64{to_signed(a[0], w) >= to_signed(a[1], w)}; });
  check_widths("bvsgt x0 x1", 2,
               [](auto& a, auto w) { return u64{to_signed(a[0], w) > to_signed(a[1], w)}; });
}

// The signed remainder whose sign follows the divisor; s itself for t = 0.
TEST_F(Rewrite, Bvsmod) {
  check_widths("bvsmod x0 x1", 2, [](auto& a, auto w) {
    std::int64_t s = to_signed(a[0], w);
    std::int64_t t = to_signed(a[1], w);
    if (t == 0) return a[0];
    std::int64_t r = s % t;
    if (r != 0 && (r < 0) != (t < 0)) r += t;
    return static_cast<u64>(r) & mask(w);
  });
}

TEST_F(Rewrite, Repeat) {
  for (std::size_t k = 1; k <= 7; ++k) {
    check_widths("(_ repeat " + std::to_string(k) + ") x0", 1, [k](auto& a, auto w) {
      u64 r = 0;
      for (std::size_t i = 0; i < k; ++i) r = (r << w) | a[0];
      return r;
    });
  }
}

TEST_F(Rewrite, Distinct) {
  auto all_different = [](auto& a, auto) {
    for (std::size_t i = 0; i < a.size(); ++i) {
      for (std::size_t j = i + 1; j < a.size(); ++j) {
        if (a[i] == a[j]) return u64{0};
      }
    }
    return u64{1};
  };
  check_widths("distinct x0 x1", 2, all_different);
  check_widths("distinct x0 x1 x2", 3, all_different);
  check("distinct x0 x1", 2, 0, all_different);
  check("distinct x0 x1 x2", 3, 0, all_different);
}

TEST_F(Rewrite, ChainedEquality) {
  auto all_equal = [](auto& a, auto) {
    for (u64 v : a) {
      if (v != a[0]) return u64{0};
    }
    return u64{1};
  };
  check_widths("= x0 x1 x2", 3, all_equal);
  check_widths("= x0 x1 x2 x3", 4, all_equal);
  check("= x0 x1 x2", 3, 0, all_equal);
}

TEST_F(Rewrite, BooleanXor) {
  auto parity = [](auto& a, auto) { return (a[0] ^ a[1] ^ (a.size() > 2 ? a[2] : 0)) & 1; };
  check("xor x0 x1", 2, 0, parity);
  check("xor x0 x1 x2", 3, 0, parity);
}

// a => b => c is a => (b => c): false only for a, b true and c false.
TEST_F(Rewrite, ImplicationIsRightAssociative) {
  check("=> x0 x1", 2, 0, [](auto& a, auto) { return u64{!a[0] || a[1]}; });
  check("=> x0 x1 x2", 3, 0, [](auto& a, auto) { return u64{!a[0] || !a[1] || a[2]}; });
}

TEST_F(Rewrite, NaryConnectives) {
  check("and x0 x1 x2", 3, 0, [](auto& a, auto) { return a[0] & a[1] & a[2]; });
  check("or x0 x1 x2", 3, 0, [](auto& a, auto) { return a[0] | a[1] | a[2]; });
}

TEST_F(Rewrite, NaryBitVectorOperators) {
  check_widths("bvadd x0 x1 x2", 3, [](auto& a, auto w) { return (a[0] + a[1] + a[2]) & mask(w); });
  check_widths("bvmul x0 x1 x2", 3, [](auto& a, auto w) { return (a[0] * a[1] * a[2]) & mask(w); });
  check_widths("bvand x0 x1 x2", 3, [](auto& a, auto) { return a[0] & a[1] & a[2]; });
  check_widths("bvor x0 x1 x2", 3, [](auto& a, auto) { return a[0] | a[1] | a[2]; });
  check_widths("bvxor x0 x1 x2", 3, [](auto& a, auto) { return a[0] ^ a[1] ^ a[2]; });
  check_widths("concat x0 x1 x2", 3,
               [](auto& a, auto w) { return (a[0] << (2 * w)) | (a[1] << w) | a[2]; });
}

// The reduction and overflow operators against integer arithmetic.
TEST_F(Rewrite, ReductionAndOverflowOperators) {
  for (std::string_view name : test::kExtensionNames) {
    check_widths(std::string(name) + " x0" + (test::is_unary_extension(name) ? "" : " x1"),
                 test::is_unary_extension(name) ? 1 : 2, [name](auto& a, auto w) {
                   return test::extension_value(name, a[0], a.size() > 1 ? a[1] : 0, w);
                 });
  }
}

TEST_F(Rewrite, OneArgumentConnectives) {
  check("and x0", 1, 0, [](auto& a, auto) { return a[0]; });
  check("or x0", 1, 0, [](auto& a, auto) { return a[0]; });
}

}  // namespace
}  // namespace kora::smtlib
