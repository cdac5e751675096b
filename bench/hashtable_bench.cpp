// hsh::Hashtable against std::unordered_map and absl::flat_hash_map, keyed by
// real terms.
//
// The keys are the first N of 10^6 declared constants of one TermManager
// (N = 10^3, 10^5, 10^6), each mapped to itself: the shape of the model
// store's adhoc_values table. Keys are inserted in one random order and looked
// up in another, so that no table profits from the identifiers being
// sequential in creation order.
//   insert  a table is built from empty with all N keys and destroyed (the
//           destruction is part of the cost: the pool frees chunks, the node
//           maps free every node)
//   find    N successful lookups in a table built beforehand
// hsh::Hashtable hashes a term by its identifier (hsh::hash<const Term*>),
// the other two by the pointer with their default hash.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "bench_util.h"
#include "kora/model/model_store.h"
#include "kora/terms/term_manager.h"

#ifdef KORA_BENCH_HAVE_ABSL
#include <absl/container/flat_hash_map.h>
#endif

namespace kora::bench {
namespace {

constexpr std::size_t kMaxKeys = 1000000;

struct Keys {
  TermManager mgr;
  std::vector<const Term*> terms;  // in creation (identifier) order
};

const Keys& all_keys() {
  static const Keys* keys = [] {
    auto* k = new Keys;  // lives to the end of the process, like the tables' keys
    const DataType* bv = k->mgr.bv_type(32);
    k->terms.reserve(kMaxKeys);
    std::string name;
    for (std::size_t i = 0; i < kMaxKeys; ++i) {
      name.assign(1, 'k');
      name += std::to_string(i);
      k->terms.push_back(k->mgr.make_constant(name, bv));
    }
    return k;
  }();
  return *keys;
}

struct Orders {
  std::vector<const Term*> insert;
  std::vector<const Term*> find;
};

const Orders& orders(std::size_t n) {
  static std::map<std::size_t, Orders> cache;
  auto it = cache.find(n);
  if (it != cache.end()) return it->second;
  const Keys& k = all_keys();
  Orders o;
  o.insert.assign(k.terms.begin(), k.terms.begin() + static_cast<std::ptrdiff_t>(n));
  o.find = o.insert;
  std::mt19937_64 rng = make_rng(n);
  std::shuffle(o.insert.begin(), o.insert.end(), rng);
  std::shuffle(o.find.begin(), o.find.end(), rng);
  return cache.emplace(n, std::move(o)).first->second;
}

// --- The three tables behind one interface -------------------------------------

struct KoraTable {
  ModelStore::AdhocTable table;
  void insert(const Term* k) {
    std::size_t bucket = 0;
    ModelStore::AdhocTable::Bucket* node = nullptr;
    table.do_insert({k, k}, &bucket, &node);
  }
  const Term* find(const Term* k) const {
    auto it = table.find(k);
    return it == table.end() ? nullptr : it->second;
  }
  std::size_t size() const { return table.size(); }
};

struct StdTable {
  std::unordered_map<const Term*, const Term*> table;
  void insert(const Term* k) { table.emplace(k, k); }
  const Term* find(const Term* k) const {
    auto it = table.find(k);
    return it == table.end() ? nullptr : it->second;
  }
  std::size_t size() const { return table.size(); }
};

#ifdef KORA_BENCH_HAVE_ABSL
struct AbslTable {
  absl::flat_hash_map<const Term*, const Term*> table;
  void insert(const Term* k) { table.emplace(k, k); }
  const Term* find(const Term* k) const {
    auto it = table.find(k);
    return it == table.end() ? nullptr : it->second;
  }
  std::size_t size() const { return table.size(); }
};
#endif

template <class Table>
void bench_insert(benchmark::State& state, std::size_t n) {
  const std::vector<const Term*>& keys = orders(n).insert;
  for (auto _ : state) {
    auto table = std::make_unique<Table>();
    for (const Term* k : keys) table->insert(k);
    benchmark::DoNotOptimize(table->size());
    table.reset();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(n));
}

template <class Table>
void bench_find(benchmark::State& state, std::size_t n) {
  const Orders& o = orders(n);
  auto table = std::make_unique<Table>();
  for (const Term* k : o.insert) table->insert(k);
  std::size_t missing = 0;
  for (auto _ : state) {
    for (const Term* k : o.find) {
      const Term* v = table->find(k);
      missing += v == nullptr ? 1 : 0;
      benchmark::DoNotOptimize(v);
    }
  }
  if (missing != 0) state.SkipWithError("a key was not found");
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(n));
}

template <class Table>
void add_table(const char* lib) {
  for (std::size_t n : {std::size_t{1000}, std::size_t{100000}, kMaxKeys}) {
    const std::string size = std::to_string(n);
    benchmark::RegisterBenchmark(("hashtable/insert/" + size + "/" + lib).c_str(),
                                 [n](benchmark::State& st) { bench_insert<Table>(st, n); });
    benchmark::RegisterBenchmark(("hashtable/find/" + size + "/" + lib).c_str(),
                                 [n](benchmark::State& st) { bench_find<Table>(st, n); });
  }
}

}  // namespace

void register_hashtable_benchmarks() {
  add_table<KoraTable>("kora");
  add_table<StdTable>("std");
#ifdef KORA_BENCH_HAVE_ABSL
  add_table<AbslTable>("absl");
#endif
}

}  // namespace kora::bench
