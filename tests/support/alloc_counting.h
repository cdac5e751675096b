// Counting replacements of the global operator new/delete and of GMP's memory
// functions, for tests of allocation behaviour. A test executable includes
// this header from exactly one source file: it defines the replacements.
// Every global allocation is counted for the whole binary; GMP's are counted
// while install_gmp_counters() is in force.
#pragma once

#include <gmp.h>

#include <cstddef>
#include <cstdlib>
#include <new>

namespace alloc_counting {

// Plain globals: the counters are touched before main and from operator new
// itself, where nothing may allocate.
inline std::size_t g_new_calls = 0;
inline std::size_t g_new_bytes = 0;
inline std::size_t g_gmp_calls = 0;
inline std::size_t g_gmp_bytes = 0;
// When set, the next operator new fails (and the flag clears).
inline bool g_fail_next_new = false;

inline void* counted_alloc(std::size_t n, std::size_t align, bool nothrow) {
  ++g_new_calls;
  g_new_bytes += n;
  if (g_fail_next_new) {
    g_fail_next_new = false;
    if (nothrow) return nullptr;
    throw std::bad_alloc();
  }
  if (n == 0) n = 1;
  void* p = nullptr;
  if (align <= alignof(std::max_align_t)) {
    p = std::malloc(n);
  } else {
    n = (n + align - 1) / align * align;  // aligned_alloc wants a multiple of the alignment
    p = std::aligned_alloc(align, n);
  }
  if (p == nullptr && !nothrow) throw std::bad_alloc();
  return p;
}

inline void* gmp_alloc(std::size_t n) {
  ++g_gmp_calls;
  g_gmp_bytes += n;
  return std::malloc(n);
}

inline void* gmp_realloc(void* p, std::size_t old_size, std::size_t n) {
  ++g_gmp_calls;
  if (n > old_size) g_gmp_bytes += n - old_size;
  return std::realloc(p, n);
}

inline void gmp_free(void* p, std::size_t) {
  std::free(p);
}

// GMP's default functions also use malloc/free, so memory may cross the
// switch in either direction.
inline void install_gmp_counters() {
  mp_set_memory_functions(gmp_alloc, gmp_realloc, gmp_free);
}
inline void remove_gmp_counters() {
  mp_set_memory_functions(nullptr, nullptr, nullptr);
}

// Bytes requested from either allocator so far (frees are not subtracted).
inline std::size_t bytes_requested() {
  return g_new_bytes + g_gmp_bytes;
}

}  // namespace alloc_counting

void* operator new(std::size_t n) {
  return alloc_counting::counted_alloc(n, 0, false);
}
void* operator new[](std::size_t n) {
  return alloc_counting::counted_alloc(n, 0, false);
}
void* operator new(std::size_t n, const std::nothrow_t&) noexcept {
  return alloc_counting::counted_alloc(n, 0, true);
}
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept {
  return alloc_counting::counted_alloc(n, 0, true);
}
void* operator new(std::size_t n, std::align_val_t a) {
  return alloc_counting::counted_alloc(n, static_cast<std::size_t>(a), false);
}
void* operator new[](std::size_t n, std::align_val_t a) {
  return alloc_counting::counted_alloc(n, static_cast<std::size_t>(a), false);
}
void* operator new(std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept {
  return alloc_counting::counted_alloc(n, static_cast<std::size_t>(a), true);
}
void* operator new[](std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept {
  return alloc_counting::counted_alloc(n, static_cast<std::size_t>(a), true);
}
void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete[](void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
  std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
  std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
  std::free(p);
}
void operator delete(void* p, std::align_val_t) noexcept {
  std::free(p);
}
void operator delete[](void* p, std::align_val_t) noexcept {
  std::free(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept {
  std::free(p);
}
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept {
  std::free(p);
}
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept {
  std::free(p);
}
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept {
  std::free(p);
}
