#include "kora/preprocess/packing.h"

#include <algorithm>
#include <cstdint>
#include <unordered_map>
#include <utility>

namespace kora::preprocess {

namespace {

// width bits of src from bit lo up; zeros where src is null.
struct Part {
  const Term* src = nullptr;
  std::size_t lo = 0;
  std::size_t width = 0;
};

// A term's bits as parts, lowest bits first.
using Layout = std::vector<Part>;

void append(Layout& out, const Part& p) {
  if (p.width == 0) return;
  if (!out.empty()) {
    Part& last = out.back();
    if (last.src == p.src && (p.src == nullptr || last.lo + last.width == p.lo)) {
      last.width += p.width;
      return;
    }
  }
  out.push_back(p);
}

// The parts of bits lo to lo + width - 1 of l.
Layout slice(const Layout& l, std::size_t lo, std::size_t width) {
  Layout out;
  std::size_t at = 0;
  for (const Part& p : l) {
    const std::size_t begin = std::max(at, lo);
    const std::size_t end = std::min(at + p.width, lo + width);
    if (begin < end) {
      append(out, {p.src, p.src == nullptr ? 0 : p.lo + (begin - at), end - begin});
    }
    at += p.width;
  }
  return out;
}

Layout zeros(std::size_t width) {
  return width == 0 ? Layout{} : Layout{{nullptr, 0, width}};
}

Layout joined(Layout low, const Layout& high) {
  for (const Part& p : high) append(low, p);
  return low;
}

// a | b (or a + b) where no bit has a part in both; false when some does.
bool merge(const Layout& a, const Layout& b, Layout* out) {
  std::size_t i = 0;
  std::size_t j = 0;
  std::size_t ai = 0;  // bits of a[i] and b[j] already used
  std::size_t bj = 0;
  while (i < a.size() && j < b.size()) {
    const Part& p = a[i];
    const Part& q = b[j];
    const std::size_t n = std::min(p.width - ai, q.width - bj);
    if (p.src != nullptr && q.src != nullptr) return false;
    const Part& part = p.src != nullptr ? p : q;
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

 private:
  const Layout& layout_of(const Term* t);
  // The layout of t from its arguments' layouts; false when t's bits are
  // not known as parts (its layout is then t itself).
  bool compute(const Term* t, Layout* out);
  const Term* image(const Term* t) const {
    return t->id() < images_.size() && images_[t->id()] != nullptr ? images_[t->id()] : t;
  }
  // t rebuilt over its arguments' images, or as a concatenation.
  const Term* rewrite(const Term* t);
  const Term* concatenation(const Layout& l);

  TermManager& mgr_;
  std::unordered_map<std::uint64_t, Layout> layouts_;
  Layout opaque_;
  std::vector<const Term*> images_;
  std::size_t rewritten_ = 0;
};

const Layout& Packer::layout_of(const Term* t) {
  auto it = layouts_.find(t->id());
  if (it != layouts_.end()) return it->second;
  std::uint64_t word = 0;
  const bool zero = t->op() == Op::BVNumber && t->numeral_word(&word) && word == 0;
  opaque_ = zero ? zeros(t->type()->width()) : Layout{{t, 0, t->type()->width()}};
  return opaque_;
}

bool Packer::compute(const Term* t, Layout* out) {
  const std::size_t w = t->type()->is_bv() ? t->type()->width() : 0;
  std::uint64_t c = 0;
  switch (t->op()) {
    case Op::BVZeroExtend:
      *out = joined(layout_of(t->arg(0)), zeros(t->get_symbol()->param(0)));
      return true;
    case Op::BVConcat: {
      // Copied first: layout_of may hand back its scratch for either one.
      Layout low = layout_of(t->arg(1));
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
      const Layout a = layout_of(t->arg(0));  // copied, as for concat
      return merge(a, layout_of(t->arg(1)), out);
    }
    default:
      return false;
  }
}

const Term* Packer::concatenation(const Layout& l) {
  const Term* word = nullptr;
  for (std::size_t i = l.size(); i-- > 0;) {
    const Part& p = l[i];
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

const Term* Packer::rewrite(const Term* t) {
  Layout l;
  if (t->type()->is_bv() && compute(t, &l)) {
    const bool packing = t->op() == Op::BVOr || t->op() == Op::BVAdd;
    const auto parts =
        std::count_if(l.begin(), l.end(), [](const Part& p) { return p.src != nullptr; });
    if (packing && parts >= 2) {
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

}  // namespace

Packed pack_words(TermManager& mgr, const std::vector<const Term*>& assertions) {
  return Packer(mgr).run(assertions);
}

}  // namespace kora::preprocess
