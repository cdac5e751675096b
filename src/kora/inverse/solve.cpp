#include "kora/inverse/solve.h"

#include <stdexcept>

#include "kora/inverse/rules.h"
#include "kora/terms/bv_values.h"

namespace kora::inverse {

namespace {

bool in_range(const mpz_class& x, std::size_t width) {
  return x >= 0 && x <= bv::ones(width == 0 ? 1 : width);
}

// The row's candidate for the free position, kept when it satisfies.
std::optional<mpz_class> solve_single(const Rule& rule, const Operator& f, std::size_t pos,
                                      Values a, const mpz_class& v) {
  auto x = rule.inverse(f, pos, a, v);
  if (!x || !in_range(*x, f.arg_width(pos))) return std::nullopt;
  a[pos] = *x;
  if (evaluate(f, a) != v) return std::nullopt;
  return x;
}

// The row of f; widths of zero would make the arithmetic ask for
// 2^(2^64 - 1).
const Rule& checked_rule(const Operator& f) {
  const Rule* rule = rule_of(f.op);
  bool ok = rule != nullptr;
  const bool sized = f.op != Op::Not && f.op != Op::And && f.op != Op::Or && f.op != Op::Iff &&
                     f.op != Op::Equal && f.op != Op::Ite;
  if (ok && sized) {
    ok = f.width >= 1;
    if (f.op == Op::BVConcat) ok = ok && f.index0 >= 1;
    if (f.op == Op::BVExtract) ok = ok && f.index1 <= f.index0 && f.index0 < f.width;
  }
  if (!ok) throw std::invalid_argument("kora::inverse::solve: malformed operator");
  return *rule;
}

void check_sharing(const Operator& f, const Pattern& args, const std::vector<std::size_t>& same) {
  if (args.size() != f.arity() || (!same.empty() && same.size() != f.arity())) {
    throw std::invalid_argument("kora::inverse::solve: wrong number of arguments");
  }
  for (std::size_t i = 0; i < same.size(); ++i) {
    if (!args[i]) {
      const std::size_t j = same[i];
      if (j > i || args[j] || same[j] != j) {
        throw std::invalid_argument("kora::inverse::solve: malformed sharing");
      }
    }
  }
}

// The answer by the number of free positions: none (a check), one (the
// row's inverse), one term at both (its shared candidates), or two distinct
// (the second takes the row's neutral value).
std::optional<Values> solve_by_row(const Rule& rule, const Operator& f, const Pattern& args,
                                   const mpz_class& v, const std::vector<std::size_t>& same) {
  const std::size_t n = args.size();
  if (rule.whole != nullptr) return rule.whole(f, args, v, same);
  std::vector<std::size_t> free;
  Values known(n);
  for (std::size_t i = 0; i < n; ++i) {
    if (args[i]) {
      known[i] = *args[i];
    } else {
      free.push_back(i);
    }
  }
  if (free.empty()) {
    if (evaluate(f, known) == v) return known;
    return std::nullopt;
  }
  if (free.size() == 1) {
    auto x = solve_single(rule, f, free[0], known, v);
    if (!x) return std::nullopt;
    known[free[0]] = *x;
    return known;
  }
  if (!same.empty() && same[1] == 0) {
    for (const mpz_class& x : rule.shared(f, v)) {
      if (in_range(x, f.width) && evaluate(f, {x, x}) == v) return Values{x, x};
    }
    return std::nullopt;
  }
  known = {0, rule.neutral(f, v)};
  auto x = solve_single(rule, f, 0, known, v);
  if (!x) return std::nullopt;
  known[0] = *x;
  return known;
}

}  // namespace

bool invertible(Op op) noexcept {
  return rule_of(op) != nullptr;
}

std::optional<mpz_class> solve(const Operator& f, std::size_t position, const Values& args,
                               const mpz_class& v) {
  const Rule& rule = checked_rule(f);
  if (args.size() != f.arity() || position >= args.size()) {
    throw std::invalid_argument("kora::inverse::solve: wrong number of arguments");
  }
  if (rule.whole != nullptr) {
    Pattern pattern(args.begin(), args.end());
    pattern[position].reset();
    auto done = rule.whole(f, pattern, v, {});
    if (!done) return std::nullopt;
    return (*done)[position];
  }
  return solve_single(rule, f, position, args, v);
}

std::optional<Values> solve(const Operator& f, const Pattern& args, const mpz_class& v,
                            const std::vector<std::size_t>& same) {
  const Rule& rule = checked_rule(f);
  check_sharing(f, args, same);
  auto out = solve_by_row(rule, f, args, v, same);
  // Every answer has been checked on the way; this guards the guarantee that
  // a returned vector satisfies against a slip in the bookkeeping above.
  if (out && evaluate(f, *out) != v) {
    throw std::logic_error("kora::inverse::solve: answer does not satisfy");
  }
  return out;
}

}  // namespace kora::inverse
