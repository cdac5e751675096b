#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace kora {

// Fixed-size block allocator for hash-table nodes.
//
// Memory is taken from the C allocator in chunks: one link word followed by
// k blocks of BlockSize bytes. The link word chains every chunk to the one
// allocated before it, so the destructor can release them all without
// tracking blocks; blocks themselves are never returned to the system one by
// one. A free block holds the address of the next free block in its first
// word, which is why a block must be at least a pointer wide and a multiple of
// a pointer's alignment (the blocks follow the link word back to back).
//
// Each new chunk is `growth` times larger than the previous one, up to
// `max_chunk_blocks` (0: no bound), so a table that keeps growing pays for a
// logarithmic number of allocations.
//
// Flag separates families of pools at the type level; the pool attaches no
// behaviour to it.
template <std::size_t BlockSize, bool Flag>
class MemoryPool {
  static_assert(BlockSize >= sizeof(void*), "a free block must hold the free-list link");
  static_assert(BlockSize % alignof(void*) == 0, "blocks follow each other back to back");

 public:
  static constexpr std::size_t block_size = BlockSize;
  // Blocks start right after the pointer-sized link word of a chunk, so this
  // is all the alignment that they are guaranteed.
  static constexpr std::size_t block_alignment = alignof(void*);

  explicit MemoryPool(std::uint64_t first_chunk_blocks = 64, float growth = 2.0f,
                      std::uint64_t max_chunk_blocks = 65536) noexcept
      : next_chunk_blocks_(first_chunk_blocks),
        growth_(growth),
        max_chunk_blocks_(max_chunk_blocks) {}

  MemoryPool(const MemoryPool&) = delete;
  MemoryPool& operator=(const MemoryPool&) = delete;

  ~MemoryPool() {
    void* chunk = chunks_;
    while (chunk != nullptr) {
      void* previous = link_of(chunk);
      std::free(chunk);
      chunk = previous;
    }
  }

  // Allocates one chunk of next_chunk_blocks() blocks, links its blocks in
  // address order and returns the first (null when the chunk holds no block).
  // The blocks are handed to the caller and are not put on the free list.
  void* grow_pool() {
    const std::uint64_t k = next_chunk_blocks_;
    if (k > (std::numeric_limits<std::size_t>::max() - kLinkBytes) / BlockSize) {
      throw std::bad_alloc();
    }
    const std::size_t bytes = kLinkBytes + BlockSize * static_cast<std::size_t>(k);
    // Never zero bytes: the link to the previous chunk always comes first.
    auto* chunk = static_cast<unsigned char*>(std::malloc(bytes));
    if (chunk == nullptr) throw std::bad_alloc();

    link_of(chunk) = chunks_;
    chunks_ = chunk;
    ++chunk_count_;

    next_chunk_blocks_ = scaled_block_count(k, growth_);
    if (max_chunk_blocks_ != 0 && next_chunk_blocks_ > max_chunk_blocks_) {
      next_chunk_blocks_ = max_chunk_blocks_;
    }

    if (k == 0) return nullptr;
    unsigned char* first = chunk + kLinkBytes;
    unsigned char* block = first;
    for (std::uint64_t i = 1; i < k; ++i) {
      link_of(block) = block + BlockSize;
      block += BlockSize;
    }
    link_of(block) = nullptr;
    return first;
  }

  // Returns an uninitialised block of BlockSize bytes.
  void* allocate() {
    if (free_list_ == nullptr) {
      free_list_ = grow_pool();
      // A pool configured down to zero-block chunks can never produce a
      // block; report it as exhaustion rather than hand out a null block.
      if (free_list_ == nullptr) throw std::bad_alloc();
    }
    void* block = free_list_;
    free_list_ = link_of(block);
    return block;
  }

  // Makes a block from allocate() available again. Most recently returned
  // blocks are reused first, which keeps a failed construction from costing
  // any memory.
  void deallocate(void* block) noexcept {
    link_of(block) = free_list_;
    free_list_ = block;
  }

  std::uint64_t next_chunk_blocks() const noexcept { return next_chunk_blocks_; }
  float growth() const noexcept { return growth_; }
  std::uint64_t max_chunk_blocks() const noexcept { return max_chunk_blocks_; }
  std::size_t chunk_count() const noexcept { return chunk_count_; }

 private:
  static constexpr std::size_t kLinkBytes = sizeof(void*);

  static void*& link_of(void* p) noexcept { return *static_cast<void**>(p); }

  // k * growth as the pool has always computed it: in single precision, then
  // truncated toward zero. Products that have no unsigned 64-bit value (NaN,
  // negative, too large) saturate instead of invoking undefined conversions.
  static std::uint64_t scaled_block_count(std::uint64_t k, float growth) noexcept {
    const float scaled = static_cast<float>(k) * growth;
    if (!(scaled >= 0.0f)) return 0;
    if (scaled >= 18446744073709551616.0f) return std::numeric_limits<std::uint64_t>::max();
    return static_cast<std::uint64_t>(scaled);
  }

  std::uint64_t next_chunk_blocks_;
  float growth_;
  std::uint64_t max_chunk_blocks_;
  void* chunks_ = nullptr;
  void* free_list_ = nullptr;
  std::size_t chunk_count_ = 0;
};

namespace hsh {

// Hash functors produce an unsigned 64-bit number; a table reduces it modulo
// its bucket count. Only pointer keys are hashed generically. A key type with
// a better hash than its address (a term, which carries its own identifier)
// supplies a full specialisation next to its definition; that specialisation
// must be visible before the first table keyed by that type is used.
template <class T>
struct hash;

// Hash-consed objects are unique per value, so their address identifies them.
template <class T>
struct hash<T*> {
  std::uint64_t operator()(T* p) const noexcept {
    return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(p));
  }
};

// Key extraction for tables that store (key, mapped) pairs.
template <class A, class B>
struct GetKey_pair {
  const A& operator()(const std::pair<A, B>& p) const noexcept { return p.first; }
};

// Bucket counts: primes, each about twice the one before, so that the
// remainder spreads sequential identifiers and growth stays geometric.
inline constexpr std::array<std::uint64_t, 28> primes = {
    31ULL,        73ULL,         151ULL,        313ULL,       643ULL,       1291ULL,
    2593ULL,      5233ULL,       10501ULL,      21013ULL,     42073ULL,     84181ULL,
    168451ULL,    337219ULL,     674701ULL,     1349473ULL,   2699299ULL,   5398891ULL,
    10798093ULL,  21596719ULL,   43193641ULL,   86387383ULL,  172775299ULL, 345550609ULL,
    691101253ULL, 1382202559ULL, 2764405229ULL, 4294867387ULL};

static_assert(sizeof(std::size_t) >= sizeof(std::uint64_t),
              "bucket counts from the prime table exceed 32 bits");

// The smallest entry of `primes` not below n; beyond the table, its last
// entry. A full table at the top therefore rebuilds at the same size.
inline std::size_t prime_bucket_count(std::size_t n) noexcept {
  const auto* it = std::lower_bound(primes.begin(), primes.end(), std::uint64_t{n});
  return static_cast<std::size_t>(it == primes.end() ? primes.back() : *it);
}

inline constexpr double max_load_factor = 0.7;

// The load is computed in single precision and only then widened, so very
// large tables grow exactly where they always have, not where an exact
// quotient would put the threshold.
inline bool exceeds_max_load(std::uint64_t size, std::uint64_t bucket_count) noexcept {
  const float load = static_cast<float>(size) / static_cast<float>(bucket_count);
  return static_cast<double>(load) > max_load_factor;
}

// Chained hash table whose nodes come from a MemoryPool.
//
// Value is the stored type; GetKey extracts the key (of type Key) from a
// value; Hash and KeyEqual are stateless functors, default-constructed at each
// use so that they cost no space. Hash must not throw: a rehash relinks nodes
// in place and could not be undone halfway.
//
// Nodes never move: growth relinks them into a new bucket array, so pointers
// to nodes and values stay valid until the entry is cleared or the table is
// destroyed. Iterators, which also carry a bucket index, are invalidated by
// any growth.
//
// Values are reachable mutably through nodes and iterators because callers
// update the mapped part in place; changing the key part that way corrupts
// the table.
template <class Value, class GetKey, class Key, class Hash, class KeyEqual>
class Hashtable {
 public:
  struct Bucket {
    Bucket* next;
    Value value;
  };

  using value_type = Value;
  using key_type = Key;
  using size_type = std::size_t;
  using pool_type = MemoryPool<sizeof(Bucket), false>;

  static_assert(alignof(Bucket) <= pool_type::block_alignment,
                "pool blocks are only pointer-aligned");

 private:
  template <bool IsConst>
  class Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = Value;
    using difference_type = std::ptrdiff_t;
    using pointer = std::conditional_t<IsConst, const Value*, Value*>;
    using reference = std::conditional_t<IsConst, const Value&, Value&>;
    using node_pointer = std::conditional_t<IsConst, const Bucket*, Bucket*>;

    Iterator() noexcept = default;
    // Every iterator converts to its const counterpart. A template, so that
    // it never stands in for the copy constructor.
    template <bool C = IsConst, std::enable_if_t<C, int> = 0>
    // cppcheck-suppress noExplicitConstructor
    Iterator(const Iterator<false>& other) noexcept  // NOLINT(google-explicit-constructor)
        : table_(other.table_), node_(other.node_), bucket_(other.bucket_) {}

    reference operator*() const noexcept { return node_->value; }
    pointer operator->() const noexcept { return &node_->value; }

    Iterator& operator++() noexcept {
      node_ = node_->next;
      if (node_ == nullptr) {
        const std::vector<Bucket*>& heads = table_->buckets_;
        for (++bucket_; bucket_ < heads.size(); ++bucket_) {
          if (heads[bucket_] != nullptr) {
            node_ = heads[bucket_];
            break;
          }
        }
      }
      return *this;
    }
    Iterator operator++(int) noexcept {
      Iterator old = *this;
      ++*this;
      return old;
    }

    // Positions are identified by their node; every end position is the null
    // node, whatever its bucket index.
    friend bool operator==(const Iterator& a, const Iterator& b) noexcept {
      return a.node_ == b.node_;
    }

    node_pointer node() const noexcept { return node_; }
    std::size_t bucket() const noexcept { return bucket_; }

   private:
    friend class Hashtable;
    friend class Iterator<true>;

    Iterator(const Hashtable* table, Bucket* node, std::size_t bucket) noexcept
        : table_(table), node_(node), bucket_(bucket) {}

    const Hashtable* table_ = nullptr;
    Bucket* node_ = nullptr;
    std::size_t bucket_ = 0;
  };

 public:
  using iterator = Iterator<false>;
  using const_iterator = Iterator<true>;

  Hashtable() : Hashtable(31) {}

  // A bucket count of 0 is taken as 1: insertion divides by the count.
  explicit Hashtable(std::size_t initial_buckets, std::uint64_t first_chunk_blocks = 64,
                     float growth = 2.0f, std::uint64_t max_chunk_blocks = 65536)
      : pool_(first_chunk_blocks, growth, max_chunk_blocks),
        buckets_(initial_buckets == 0 ? 1 : initial_buckets, nullptr) {}

  Hashtable(const Hashtable&) = delete;
  Hashtable& operator=(const Hashtable&) = delete;

  // The pool releases the blocks wholesale; only the values need their
  // destructors run.
  ~Hashtable() {
    if constexpr (!std::is_trivially_destructible_v<Bucket>) {
      for (Bucket* head : buckets_) {
        for (Bucket* p = head; p != nullptr;) {
          Bucket* next = p->next;
          std::destroy_at(p);
          p = next;
        }
      }
    }
  }

  // Inserts v unless its key is present. *bucket receives the key's bucket
  // (after any growth) and *node the node holding the key; the result says
  // whether that node is new. A present key keeps its value, so callers that
  // want to overwrite do so through *node.
  bool do_insert(const value_type& v, std::size_t* bucket, Bucket** node) {
    // The check precedes the lookup so that it sees the size before this
    // insertion, even when the key turns out to be present.
    if (exceeds_max_load(size_, buckets_.size())) rehash(buckets_.size() + 1);

    const Key& key = GetKey{}(v);
    const std::size_t b = bucket_of(key, buckets_.size());
    *bucket = b;
    for (Bucket* p = buckets_[b]; p != nullptr; p = p->next) {
      if (KeyEqual{}(GetKey{}(p->value), key)) {
        *node = p;
        return false;
      }
    }

    void* block = pool_.allocate();
    Bucket* fresh = nullptr;
    try {
      fresh = ::new (block) Bucket{nullptr, v};
    } catch (...) {
      pool_.deallocate(block);
      throw;
    }
    fresh->next = buckets_[b];
    buckets_[b] = fresh;
    *node = fresh;
    ++size_;
    return true;
  }

  std::pair<iterator, bool> insert(const value_type& v) {
    std::size_t b;
    Bucket* n;
    const bool inserted = do_insert(v, &b, &n);
    return {iterator(this, n, b), inserted};
  }

  // Makes the bucket count at least n (or the largest prime of the table).
  // The new array is allocated before the old one is touched, so a failed
  // allocation leaves the table as it was.
  void rehash(std::size_t n) {
    if (buckets_.size() >= n) return;
    const std::size_t count = prime_bucket_count(n);
    std::vector<Bucket*> fresh(count, nullptr);
    for (Bucket* head : buckets_) {
      for (Bucket* p = head; p != nullptr;) {
        Bucket* next = p->next;
        const std::size_t b = bucket_of(GetKey{}(p->value), count);
        p->next = fresh[b];
        fresh[b] = p;
        p = next;
      }
    }
    buckets_.swap(fresh);
  }

  iterator find(const Key& key) noexcept {
    const auto [node, b] = locate(key);
    return iterator(this, node, b);
  }
  const_iterator find(const Key& key) const noexcept {
    const auto [node, b] = locate(key);
    return const_iterator(this, node, b);
  }

  iterator begin() noexcept {
    const auto [node, b] = first();
    return iterator(this, node, b);
  }
  const_iterator begin() const noexcept {
    const auto [node, b] = first();
    return const_iterator(this, node, b);
  }
  const_iterator cbegin() const noexcept { return begin(); }
  iterator end() noexcept { return iterator(this, nullptr, buckets_.size()); }
  const_iterator end() const noexcept { return const_iterator(this, nullptr, buckets_.size()); }
  const_iterator cend() const noexcept { return end(); }

  // Destroys every value and returns its block to the pool; the bucket count
  // and the pool's chunks stay, ready for refilling.
  void clear() noexcept {
    for (Bucket*& head : buckets_) {
      for (Bucket* p = head; p != nullptr;) {
        Bucket* next = p->next;
        std::destroy_at(p);
        pool_.deallocate(p);
        p = next;
      }
      head = nullptr;
    }
    size_ = 0;
  }

  std::size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }
  std::size_t bucket_count() const noexcept { return buckets_.size(); }
  const pool_type& pool() const noexcept { return pool_; }

 private:
  static std::size_t bucket_of(const Key& key, std::size_t count) noexcept {
    return static_cast<std::size_t>(static_cast<std::uint64_t>(Hash{}(key)) %
                                    static_cast<std::uint64_t>(count));
  }

  std::pair<Bucket*, std::size_t> locate(const Key& key) const noexcept {
    // An empty table answers without hashing.
    if (size_ == 0) return {nullptr, buckets_.size()};
    const std::size_t b = bucket_of(key, buckets_.size());
    for (Bucket* p = buckets_[b]; p != nullptr; p = p->next) {
      if (KeyEqual{}(GetKey{}(p->value), key)) return {p, b};
    }
    return {nullptr, buckets_.size()};
  }

  std::pair<Bucket*, std::size_t> first() const noexcept {
    if (size_ != 0) {
      for (std::size_t b = 0; b < buckets_.size(); ++b) {
        if (buckets_[b] != nullptr) return {buckets_[b], b};
      }
    }
    return {nullptr, buckets_.size()};
  }

  // The pool comes first so that the table and its pool share an address.
  pool_type pool_;
  std::vector<Bucket*> buckets_;
  std::size_t size_ = 0;
};

// Tables of pointer pairs (term to term) use exactly 24-byte nodes.
static_assert(std::is_same_v<
              Hashtable<std::pair<const void*, const void*>, GetKey_pair<const void*, const void*>,
                        const void*, hash<const void*>, std::equal_to<const void*>>::pool_type,
              MemoryPool<24, false>>);

}  // namespace hsh
}  // namespace kora
