// Random QF_BV formulas with shared subterms and unconstrained leaves, at
// widths 1 to 6: every model of the reduced problem, found by brute force,
// rebuilds into a model of the original; the original is satisfiable exactly
// when the reduced problem is; and simplification stops at a fixed point.

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "kora/model/model_store.h"
#include "kora/preprocess/model_builder.h"
#include "kora/preprocess/simplifier.h"
#include "kora/smtlib/operators.h"
#include "kora/terms/term_manager.h"
#include "support/evaluator.h"
#include "support/extension_reference.h"
#include "support/term_helpers.h"

namespace kora::test {
namespace {

using preprocess::constants_of;

constexpr std::size_t kMaxBits = 10;  // per problem, so brute force stays cheap

std::size_t bits_of(const Term* t) {
  return t->type()->is_bool() ? 1 : t->type()->width();
}

// The reduction and overflow operators exist only as the reader's
// definitions over the term layer's operators: built here as the reader
// builds them.
const Term* extension(TermManager& mgr, std::string_view name,
                      const std::vector<const Term*>& args) {
  smtlib::Node head;
  head.kind = smtlib::Node::Kind::Symbol;
  head.text = std::string(name);
  smtlib::Node app;
  app.children.assign(args.size() + 1, &head);
  smtlib::OperatorHead h;
  h.info = smtlib::find_operator(name, smtlib::Dialect::Standard);
  h.node = &head;
  return smtlib::apply_operator(mgr, h, app, args);
}

// Builds one random formula over a small budget of constant bits; with
// extensions, also over the reduction and overflow operators.
class FormulaGenerator {
 public:
  FormulaGenerator(TermManager& mgr, std::uint64_t seed, bool extensions = false)
      : mgr_(mgr), rng_(seed), extensions_(extensions) {}

  std::vector<const Term*> make() {
    const std::size_t applications = 3 + pick(10);
    for (std::size_t i = 0; i < 2; ++i) fresh_leaf(i == 0 ? 0 : 1 + pick(3), true);
    for (std::size_t i = 0; i < applications; ++i) application();
    std::vector<const Term*> assertions;
    const std::size_t n = 1 + pick(3);
    for (std::size_t i = 0; i < n; ++i) {
      assertions.push_back(pick(2) == 0 ? equation() : boolean_term());
    }
    return assertions;
  }
  std::size_t extensions_made() const { return extensions_made_; }

 private:
  std::size_t pick(std::size_t n) {
    return std::uniform_int_distribution<std::size_t>(0, n - 1)(rng_);
  }

  // A new constant; one left out of the pool occurs once (unless a later
  // numeral or sharing happens to meet it again).
  const Term* fresh_leaf(std::size_t w, bool pooled) {
    const std::size_t bits = w == 0 ? 1 : w;
    if (bits_ + bits > kMaxBits) return nullptr;
    bits_ += bits;
    const DataType* type = w == 0 ? mgr_.bool_type() : mgr_.bv_type(w);
    const Term* c = mgr_.make_constant("c" + std::to_string(names_++), type);
    if (pooled) pool_[w].push_back(c);
    return c;
  }

  // A term of width w (0: Boolean): often one already made (sharing),
  // sometimes a new constant or a numeral.
  const Term* operand(std::size_t w) {
    const std::size_t r = pick(10);
    if (r < 5) {
      if (const Term* c = fresh_leaf(w, r == 0)) return c;
    }
    auto& terms = pool_[w];
    if (r == 5 || terms.empty()) {
      if (w == 0) return pick(2) == 0 ? mgr_.true_term() : mgr_.false_term();
      return mgr_.make_bv_word(pick(64), w);
    }
    return terms[terms.size() - 1 - pick(std::min<std::size_t>(terms.size(), 8))];
  }

  std::size_t some_width() {
    std::vector<std::size_t> widths;
    for (const auto& [w, terms] : pool_) {
      if (w != 0 && !terms.empty()) widths.push_back(w);
    }
    return widths.empty() ? 1 + pick(6) : widths[pick(widths.size())];
  }

  void application() {
    const std::size_t w = some_width();
    const Term* t = nullptr;
    switch (pick(extensions_ ? 7 : 6)) {
      case 0:
        t = boolean_application();
        break;
      case 6: {
        const std::string_view name = kExtensionNames[pick(std::size(kExtensionNames))];
        const Term* a = operand(w);
        t = extension(mgr_, name,
                      is_unary_extension(name) ? std::vector{a} : std::vector{a, operand(w)});
        ++extensions_made_;
        break;
      }
      case 1:
        t = comparison(w);
        break;
      case 2:
        t = structural(w);
        break;
      default:
        t = arithmetic(w);
        break;
    }
    pool_[t->type()->is_bool() ? 0 : t->type()->width()].push_back(t);
  }

  const Term* boolean_application() {
    const Term* a = operand(0);
    switch (pick(5)) {
      case 0:
        return mgr_.make_not(a);
      case 1:
        return mgr_.make_and(a, operand(0));
      case 2:
        return mgr_.make_or(a, operand(0));
      case 3:
        return mgr_.make_iff(a, operand(0));
      default:
        return mgr_.make_ite(a, operand(0), operand(0));
    }
  }

  const Term* comparison(std::size_t w) {
    static constexpr Op kOps[] = {Op::BVUlt, Op::BVUle, Op::BVSlt, Op::BVSle};
    const Term* a = operand(w);
    const Term* b = operand(w);
    if (pick(5) == 0) return mgr_.make_equal(a, b);
    return mgr_.make_term(mgr_.make_bv_symbol(kOps[pick(4)], w), {a, b});
  }

  const Term* arithmetic(std::size_t w) {
    static constexpr Op kOps[] = {Op::BVAdd,  Op::BVSub,  Op::BVMul,  Op::BVAnd,  Op::BVOr,
                                  Op::BVXor,  Op::BVShl,  Op::BVLshr, Op::BVAshr, Op::BVUdiv,
                                  Op::BVUrem, Op::BVSdiv, Op::BVSrem, Op::BVNot,  Op::BVNeg};
    const Op op = kOps[pick(std::size(kOps))];
    const Term* a = operand(w);
    if (op == Op::BVNot || op == Op::BVNeg) return mgr_.make_term(mgr_.make_bv_symbol(op, w), {a});
    return mgr_.make_term(mgr_.make_bv_symbol(op, w), {a, operand(w)});
  }

  const Term* structural(std::size_t w) {
    if (w >= 2 && pick(7) == 0) return packed_word(w);
    const Term* a = operand(w);
    switch (pick(6)) {
      case 0: {
        const std::size_t lsb = pick(w);
        const std::size_t msb = lsb + pick(w - lsb);
        return mgr_.make_term(mgr_.make_bv_extract_symbol(msb, lsb, w), {a});
      }
      case 1:
        return mgr_.make_term(mgr_.make_bv_rotate_left_symbol(pick(w + 1), w), {a});
      case 2:
        return mgr_.make_term(mgr_.make_bv_comp_symbol(w), {a, operand(w)});
      case 3:
        return mgr_.make_ite(operand(0), a, operand(w));
      case 4: {
        if (w >= 6) return mgr_.make_term(mgr_.make_bv_rotate_right_symbol(1, w), {a});
        const std::size_t low = 1 + pick(6 - w);
        return mgr_.make_term(mgr_.make_bv_concat_symbol(w, low), {a, operand(low)});
      }
      default:
        if (w >= 6) return mgr_.make_term(mgr_.make_bv_neg_symbol(w), {a});
        if (pick(2) == 0) return mgr_.make_term(mgr_.make_bv_sign_extend_symbol(1, w), {a});
        return mgr_.make_term(mgr_.make_bv_zero_extend_symbol(1, w), {a});
    }
  }

  // An equation between one of the latest terms and an operand: asserted by
  // itself, the equation rules see it.
  const Term* equation() {
    const std::size_t w = pick(4) == 0 ? 0 : some_width();
    auto& terms = pool_[w];
    if (terms.empty()) return boolean_term();
    const Term* t = terms[terms.size() - 1 - pick(std::min<std::size_t>(terms.size(), 3))];
    const Term* other = operand(w);
    const Term* eq = nullptr;
    if (w == 0) {
      eq = pick(2) == 0 ? mgr_.make_iff(t, other) : mgr_.make_iff(other, t);
    } else {
      eq = pick(2) == 0 ? mgr_.make_equal(t, other) : mgr_.make_equal(other, t);
    }
    // Sometimes a conjunct, which the rules take as well.
    return pick(3) == 0 ? mgr_.make_and(operand(0), eq) : eq;
  }

  // A word of width w packed from a high and a low part, as translated
  // programs build words from bytes.
  const Term* packed_word(std::size_t w) {
    const std::size_t low = 1 + pick(w - 1);
    const Term* high = operand(w - low);
    const Term* wide = mgr_.make_term(mgr_.make_bv_zero_extend_symbol(low, w - low), {high});
    const Term* shifted =
        mgr_.make_term(mgr_.make_bv_symbol(Op::BVShl, w), {wide, mgr_.make_bv_word(low, w)});
    const Term* part =
        mgr_.make_term(mgr_.make_bv_zero_extend_symbol(w - low, low), {operand(low)});
    const Op op = pick(2) == 0 ? Op::BVOr : Op::BVAdd;
    return mgr_.make_term(mgr_.make_bv_symbol(op, w), {shifted, part});
  }

  // A Boolean term for an assertion, preferring the latest ones (the roots
  // of what was built).
  const Term* boolean_term() {
    auto& terms = pool_[0];
    if (terms.empty() || terms.back()->arity() == 0) return comparison(some_width());
    const Term* t = terms.back();
    terms.pop_back();
    return t;
  }

  TermManager& mgr_;
  std::mt19937_64 rng_;
  bool extensions_;
  std::map<std::size_t, std::vector<const Term*>> pool_;
  std::size_t bits_ = 0;
  std::size_t names_ = 0;
  std::size_t extensions_made_ = 0;
};

const Term* value_term(TermManager& mgr, const Term* c, std::uint64_t x) {
  if (c->type()->is_bool()) return x != 0 ? mgr.true_term() : mgr.false_term();
  return mgr.make_bv_word(x, c->type()->width());
}

// Calls f with the store set to each assignment of the constants that makes
// every assertion true, by the independent evaluator; the number of them.
template <class F>
std::size_t each_model(TermManager& mgr, const std::vector<const Term*>& assertions, F f) {
  const auto constants = constants_of(assertions);
  std::size_t bits = 0;
  for (const Term* c : constants) bits += bits_of(c);
  std::ostringstream log;
  ModelStore store(&mgr, &log);
  std::size_t models = 0;
  for (std::uint64_t code = 0; code < (std::uint64_t{1} << bits); ++code) {
    std::uint64_t rest = code;
    for (const Term* c : constants) {
      store.set_value(c, value_term(mgr, c, rest & mask(bits_of(c))));
      rest >>= bits_of(c);
    }
    bool all = true;
    for (const Term* a : assertions) all = all && evaluate(mgr, store, a) == std::uint64_t{1};
    if (!all) continue;
    ++models;
    f(store, constants);
  }
  return models;
}

std::size_t bit_count(const std::vector<const Term*>& assertions) {
  std::size_t bits = 0;
  for (const Term* c : constants_of(assertions)) bits += bits_of(c);
  return bits;
}

struct Totals {
  std::size_t formulas = 0, skipped = 0, eliminated = 0, sat = 0, models = 0, bad = 0;
  std::size_t conditions = 0, packed = 0;
  std::size_t narrow = 0, inverted = 0, extensions = 0;
};

void check_formula(std::uint64_t seed, Totals& totals, bool extensions = false) {
  TermManager mgr;
  FormulaGenerator generator(mgr, seed, extensions);
  const auto original = generator.make();
  totals.extensions += generator.extensions_made();
  const auto simplified = preprocess::simplify(mgr, original);
  ++totals.formulas;

  EXPECT_TRUE(preprocess::eliminable(mgr, simplified.assertions).empty()) << "seed " << seed;
  if (bit_count(simplified.assertions) > kMaxBits + 4) {
    ++totals.skipped;
    return;
  }
  totals.eliminated += simplified.eliminated;
  for (const auto& [op, n] : simplified.conditions_by_op) totals.conditions += n;
  totals.packed += simplified.packed;
  const std::size_t original_models = each_model(mgr, original, [](ModelStore&, const auto&) {});
  const std::size_t reduced_models = each_model(
      mgr, simplified.assertions, [&](ModelStore& found, const std::vector<const Term*>& cs) {
        std::ostringstream log;
        ModelStore store(&mgr, &log);
        for (const Term* c : cs) store.set_value(c, found.value_of(c));
        const auto stats = preprocess::rebuild(mgr, store, simplified.trail, original);
        totals.narrow += stats.narrow_values;
        totals.inverted += stats.inverter_values;
        bool ok = stats.unsolved == 0 && preprocess::validate(store, original).empty();
        for (const Term* a : original) ok = ok && evaluate(mgr, store, a) == std::uint64_t{1};
        if (!ok && ++totals.bad <= 3) {
          ADD_FAILURE() << "invalid rebuilt model, seed " << seed;
        }
      });
  totals.models += reduced_models;
  totals.sat += original_models > 0 ? 1 : 0;
  EXPECT_EQ(original_models > 0, reduced_models > 0) << "seed " << seed;
}

TEST(RandomFormulas, RebuiltModelsAreValidAndSatisfiabilityIsKept) {
  const std::uint64_t seed = test_seed(0x5eed16);
  Totals totals;
  for (std::uint64_t i = 0; i < 3000; ++i) check_formula(seed + i, totals);
  std::cout << totals.formulas << " formulas (" << totals.skipped << " too wide), "
            << totals.eliminated << " eliminations (" << totals.conditions
            << " equations by their conditions, " << totals.packed << " packed words), "
            << totals.sat << " satisfiable, " << totals.models
            << " reduced models rebuilt, values from the calculators " << totals.narrow
            << ", from the inverter " << totals.inverted << "\n";
  EXPECT_EQ(totals.bad, 0u);
  // The generator must actually exercise the simplifier.
  EXPECT_LT(totals.skipped * 10, totals.formulas);
  EXPECT_GT(totals.eliminated, totals.formulas);
  EXPECT_GT(totals.sat * 4, totals.formulas);
  EXPECT_GT(totals.models, totals.formulas);
  EXPECT_GT(totals.inverted, 0u);
  EXPECT_GT(totals.conditions * 20, totals.formulas);  // the equation rules too
  EXPECT_GT(totals.packed * 100, totals.formulas);     // and packing
}

// The same over formulas that also use the reduction and overflow operators:
// they reach the rules through their definitions.
TEST(RandomFormulas, WithTheExtensionOperators) {
  const std::uint64_t seed = test_seed(0x5eed17);
  Totals totals;
  for (std::uint64_t i = 0; i < 1500; ++i) check_formula(seed + i, totals, true);
  std::cout << totals.formulas << " formulas (" << totals.skipped << " too wide), "
            << totals.extensions << " extension applications, " << totals.eliminated
            << " eliminations, " << totals.sat << " satisfiable, " << totals.models
            << " reduced models rebuilt\n";
  EXPECT_EQ(totals.bad, 0u);
  EXPECT_LT(totals.skipped * 10, totals.formulas);
  EXPECT_GT(totals.extensions, totals.formulas / 2);
  EXPECT_GT(totals.eliminated, totals.formulas);
  EXPECT_GT(totals.sat * 4, totals.formulas);
}

}  // namespace
}  // namespace kora::test
