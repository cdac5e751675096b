#include "kora/terms/array_values.h"

#include <algorithm>
#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kora/numbers/qnumber.h"

namespace kora::arrays {

namespace {

using Entry = std::pair<const Term*, const Term*>;  // index numeral, element

// The default and the entries of a store chain, the outermost store winning
// at each index; elements in normal form.
const Term* split(TermManager& mgr, const Term* a, std::vector<Entry>& entries) {
  std::vector<const Term*> seen;
  for (; a->op() == Op::Store; a = a->arg(0)) {
    const Term* i = a->arg(1);
    if (std::find(seen.begin(), seen.end(), i) != seen.end()) continue;
    seen.push_back(i);
    const Term* e = a->arg(2);
    entries.emplace_back(i, e->type()->is_array() ? normal_form(mgr, e) : e);
  }
  const Term* d = a->arg(0);
  return d->type()->is_array() ? normal_form(mgr, d) : d;
}

bool index_less(const TermManager& mgr, const Term* a, const Term* b) {
  return *mgr.find_number(a->get_symbol()) < *mgr.find_number(b->get_symbol());
}

// The default of the normal form: the base default unless the stores cover
// at least half of the indices, which only small index sorts allow; then
// entries is made to list every index, and the default is the element that
// most of them take, ties going to the one of the smallest index.
const Term* majority(TermManager& mgr, const Term* base, std::vector<Entry>& entries,
                     std::size_t width) {
  if (width >= 32 || (std::uint64_t{1} << width) > 2 * entries.size()) return base;
  const std::uint64_t n = std::uint64_t{1} << width;
  std::vector<Entry> all;
  all.reserve(n);
  std::unordered_map<const Term*, std::uint64_t> count;
  for (std::uint64_t k = 0; k < n; ++k) {
    const Term* i = mgr.make_bv_word(k, width);
    auto it =
        std::find_if(entries.begin(), entries.end(), [&](const Entry& e) { return e.first == i; });
    all.emplace_back(i, it != entries.end() ? it->second : base);
    ++count[all.back().second];
  }
  entries = std::move(all);
  const Term* best = entries.front().second;
  for (const Entry& e : entries) {
    if (count[e.second] > count[best]) best = e.second;
  }
  return best;
}

const Term* build(TermManager& mgr, const DataType* type, const Term* base,
                  std::vector<Entry> entries) {
  const Term* d = majority(mgr, base, entries, type->index()->width());
  std::erase_if(entries, [&](const Entry& e) { return e.second == d; });
  std::sort(entries.begin(), entries.end(),
            [&](const Entry& x, const Entry& y) { return index_less(mgr, x.first, y.first); });
  const Term* t = mgr.make_const_array(type, d);
  for (const Entry& e : entries) t = mgr.make_store(t, e.first, e.second);
  return t;
}

}  // namespace

bool is_array_value(const Term* t) {
  return t->type()->is_array() && is_model_value(t);
}

const Term* normal_form(TermManager& mgr, const Term* a) {
  std::vector<Entry> entries;
  const Term* base = split(mgr, a, entries);
  return build(mgr, a->type(), base, std::move(entries));
}

const Term* select_value(const Term* a, const Term* i) {
  for (; a->op() == Op::Store; a = a->arg(0)) {
    if (a->arg(1) == i) return a->arg(2);
  }
  return a->arg(0);
}

const Term* store_value(TermManager& mgr, const Term* a, const Term* i, const Term* e) {
  return normal_form(mgr, mgr.make_store(a, i, e));
}

}  // namespace kora::arrays
