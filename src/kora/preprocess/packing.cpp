#include "kora/preprocess/packing.h"

#include <algorithm>
#include <cstdint>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace kora::preprocess {

// width bits of src from bit lo up; zeros where src is null.
struct WordPart {
  const Term* src = nullptr;
  std::size_t lo = 0;
  std::size_t width = 0;
};

// A term's bits as parts, lowest bits first.
using WordLayout = std::vector<WordPart>;

static void append(WordLayout& out, const WordPart& p) {
  if (p.width == 0) return;
  if (!out.empty()) {
    WordPart& last = out.back();
    if (last.src == p.src && (p.src == nullptr || last.lo + last.width == p.lo)) {
      last.width += p.width;
      return;
    }
  }
  out.push_back(p);
}

// The parts of bits lo to lo + width - 1 of l.
static WordLayout slice(const WordLayout& l, std::size_t lo, std::size_t width) {
  WordLayout out;
  std::size_t at = 0;
  for (const WordPart& p : l) {
    const std::size_t begin = std::max(at, lo);
    const std::size_t end = std::min(at + p.width, lo + width);
    if (begin < end) {
      append(out, {p.src, p.src == nullptr ? 0 : p.lo + (begin - at), end - begin});
    }
    at += p.width;
  }
  return out;
}

static WordLayout zeros(std::size_t width) {
  return width == 0 ? WordLayout{} : WordLayout{{nullptr, 0, width}};
}

static WordLayout joined(WordLayout low, const WordLayout& high) {
  for (const WordPart& p : high) append(low, p);
  return low;
}

// a | b (or a + b) where no bit has a part in both; false when some does.
static bool merge(const WordLayout& a, const WordLayout& b, WordLayout* out) {
  std::size_t i = 0;
  std::size_t j = 0;
  std::size_t ai = 0;  // bits of a[i] and b[j] already used
  std::size_t bj = 0;
  while (i < a.size() && j < b.size()) {
    const WordPart& p = a[i];
    const WordPart& q = b[j];
    const std::size_t n = std::min(p.width - ai, q.width - bj);
    if (p.src != nullptr && q.src != nullptr) return false;
    const WordPart& part = p.src != nullptr ? p : q;
    const std::size_t used = p.src != nullptr ? ai : bj;
    append(*out, {part.src, part.src == nullptr ? 0 : part.lo + used, n});
    ai += n;
    bj += n;
    if (ai == p.width) ++i, ai = 0;
    if (bj == q.width) ++j, bj = 0;
  }
  return true;
}

class Packer {
 public:
  explicit Packer(TermManager& mgr) : mgr_(mgr) {}

  Packed run(const std::vector<const Term*>& assertions);
  bool packs(const Term* t);

 private:
  const WordLayout& layout_of(const Term* t);
  bool worth_a_layout(const Term* t) const;
  // Whether t's layout is more than t itself.
  bool structured(const Term* t) const {
    std::uint64_t word = 0;
    return layouts_.contains(t->id()) ||
           (t->op() == Op::BVNumber && t->numeral_word(&word) && word == 0);
  }
  // The layout of t from its arguments' layouts; false when t's bits are
  // not known as parts (its layout is then t itself).
  bool compute(const Term* t, WordLayout* out);
  const Term* image(const Term* t) const {
    return t->id() < images_.size() && images_[t->id()] != nullptr ? images_[t->id()] : t;
  }
  // t rebuilt over its arguments' images, or as a concatenation.
  const Term* rewrite(const Term* t);
  const Term* concatenation(const WordLayout& l);
  // Whether l, a bvor's or bvadd's, is a packed word.
  static bool is_word(const WordLayout& l) {
    return std::count_if(l.begin(), l.end(), [](const WordPart& p) { return p.src != nullptr; }) >=
           2;
  }
  // Works out the layouts of the terms below t and of t, without rewriting.
  void lay_out(const Term* t);

  TermManager& mgr_;
  std::unordered_map<std::uint64_t, WordLayout> layouts_;
  // The terms lay_out has been through.
  std::unordered_set<std::uint64_t> tried_;
  WordLayout opaque_;
  std::vector<const Term*> images_;
  std::size_t rewritten_ = 0;
};

const WordLayout& Packer::layout_of(const Term* t) {
  auto it = layouts_.find(t->id());
  if (it != layouts_.end()) return it->second;
  std::uint64_t word = 0;
  const bool zero = t->op() == Op::BVNumber && t->numeral_word(&word) && word == 0;
  opaque_ = zero ? zeros(t->type()->width()) : WordLayout{{t, 0, t->type()->width()}};
  return opaque_;
}

bool Packer::compute(const Term* t, WordLayout* out) {
  const std::size_t w = t->type()->is_bv() ? t->type()->width() : 0;
  std::uint64_t c = 0;
  switch (t->op()) {
    case Op::BVZeroExtend:
      *out = joined(layout_of(t->arg(0)), zeros(t->get_symbol()->param(0)));
      return true;
    case Op::BVConcat: {
      // Copied first: layout_of may hand back its scratch for either one.
      WordLayout low = layout_of(t->arg(1));
      *out = joined(std::move(low), layout_of(t->arg(0)));
      return true;
    }
    case Op::BVExtract: {
      const std::size_t lo = t->get_symbol()->param(1);
      *out = slice(layout_of(t->arg(0)), lo, w);
      return true;
    }
    case Op::BVShl:
    case Op::BVLshr: {
      if (!t->arg(1)->numeral_word(&c)) return false;
      if (c >= w) {
        *out = zeros(w);
      } else if (t->op() == Op::BVShl) {
        *out = joined(zeros(c), slice(layout_of(t->arg(0)), 0, w - c));
      } else {
        *out = joined(slice(layout_of(t->arg(0)), c, w - c), zeros(c));
      }
      return true;
    }
    case Op::BVOr:
    case Op::BVAdd: {
      // A term seen whole covers every bit: nothing merges with it.
      if (!structured(t->arg(0)) || !structured(t->arg(1))) return false;
      const WordLayout a = layout_of(t->arg(0));  // copied, as for concat
      return merge(a, layout_of(t->arg(1)), out);
    }
    default:
      return false;
  }
}

const Term* Packer::concatenation(const WordLayout& l) {
  const Term* word = nullptr;
  for (std::size_t i = l.size(); i-- > 0;) {
    const WordPart& p = l[i];
    const Term* piece = nullptr;
    if (p.src == nullptr) {
      piece = mgr_.make_bv_number(0, p.width);
    } else if (p.lo == 0 && p.width == p.src->type()->width()) {
      piece = image(p.src);
    } else {
      const std::size_t w = p.src->type()->width();
      piece =
          mgr_.make_term(mgr_.make_bv_extract_symbol(p.lo + p.width - 1, p.lo, w), {image(p.src)});
    }
    if (word == nullptr) {
      word = piece;
    } else {
      const std::size_t high = word->type()->width();
      word = mgr_.make_term(mgr_.make_bv_concat_symbol(high, p.width), {word, piece});
    }
  }
  return word;
}

// Whether t's layout is worth keeping: some argument has one, or t is a
// zero extension. A term over opaque arguments alone (an extraction, a
// concatenation or a shift of whole terms) is seldom part of a packed word,
// and graphs have many of them.
bool Packer::worth_a_layout(const Term* t) const {
  if (t->op() == Op::BVZeroExtend) return true;
  return std::any_of(t->args().begin(), t->args().end(),
                     [this](const Term* a) { return structured(a); });
}

const Term* Packer::rewrite(const Term* t) {
  WordLayout l;
  if (t->type()->is_bv() && worth_a_layout(t) && compute(t, &l)) {
    const bool packing = t->op() == Op::BVOr || t->op() == Op::BVAdd;
    if (packing && is_word(l)) {
      ++rewritten_;
      const Term* word = concatenation(l);
      layouts_.emplace(t->id(), std::move(l));
      return word;
    }
    layouts_.emplace(t->id(), std::move(l));
  }
  std::vector<const Term*> args;
  args.reserve(t->arity());
  bool changed = false;
  for (const Term* a : t->args()) {
    args.push_back(image(a));
    changed = changed || args.back() != a;
  }
  return changed ? mgr_.make_term(t->get_symbol(), args) : t;
}

Packed Packer::run(const std::vector<const Term*>& assertions) {
  std::vector<bool> seen;
  std::vector<std::pair<const Term*, std::size_t>> stack;
  auto first_visit = [&seen](const Term* t) {
    if (t->id() >= seen.size()) seen.resize(std::max<std::size_t>(t->id() + 1, seen.size() * 2));
    if (seen[t->id()]) return false;
    seen[t->id()] = true;
    return true;
  };
  for (const Term* a : assertions) {
    if (first_visit(a)) stack.emplace_back(a, 0);
    while (!stack.empty()) {
      auto& [t, next] = stack.back();
      if (next < t->arity()) {
        const Term* child = t->arg(next++);
        if (first_visit(child)) stack.emplace_back(child, 0);
        continue;
      }
      const Term* done = t;
      stack.pop_back();
      if (done->arity() == 0) continue;
      const Term* cur = rewrite(done);
      if (cur == done) continue;
      if (done->id() >= images_.size()) images_.resize(done->id() + 1, nullptr);
      images_[done->id()] = cur;
    }
  }
  Packed out;
  for (const Term* a : assertions) out.assertions.push_back(image(a));
  out.images = std::move(images_);
  out.rewritten = rewritten_;
  return out;
}

static bool is_structural(Op op) {
  switch (op) {
    case Op::BVZeroExtend:
    case Op::BVConcat:
    case Op::BVExtract:
    case Op::BVShl:
    case Op::BVLshr:
    case Op::BVOr:
    case Op::BVAdd:
      return true;
    default:
      return false;
  }
}

void Packer::lay_out(const Term* t) {
  std::vector<std::pair<const Term*, std::size_t>> stack{{t, 0}};
  while (!stack.empty()) {
    auto& [n, next] = stack.back();
    if (next < n->arity()) {
      const Term* a = n->arg(next++);
      if (is_structural(a->op()) && tried_.insert(a->id()).second) stack.emplace_back(a, 0);
      continue;
    }
    const Term* done = n;
    stack.pop_back();
    WordLayout l;
    if (worth_a_layout(done) && compute(done, &l)) layouts_.emplace(done->id(), std::move(l));
  }
}

bool Packer::packs(const Term* t) {
  if (!t->type()->is_bv() || (t->op() != Op::BVOr && t->op() != Op::BVAdd)) return false;
  if (tried_.insert(t->id()).second) lay_out(t);
  auto it = layouts_.find(t->id());
  return it != layouts_.end() && is_word(it->second);
}

Packed pack_words(TermManager& mgr, const std::vector<const Term*>& assertions) {
  return Packer(mgr).run(assertions);
}

WordTest::WordTest(TermManager& mgr) : packer_(std::make_unique<Packer>(mgr)) {}
WordTest::~WordTest() = default;
bool WordTest::packs(const Term* t) {
  return packer_->packs(t);
}

}  // namespace kora::preprocess
