// The SMT-LIB printer's output rate, against writing the same number of
// bytes with std::ostream::write in 64 KiB blocks into the same sink.
//
// Two generated inputs of 200000 bit-vector applications over 32-bit
// constants and numerals (every operator of the bit-vector layer, extracts,
// extensions, comparisons), built with a fixed seed:
//   dag   each application takes its arguments at random among the 64 most
//         recent terms, so most terms have several parents: print_script
//         writes a define-fun for each of them; one assertion per 64 terms
//   tree  each application consumes terms no other application uses: a
//         forest printed without any name; print_term of its conjunction
//         (one term, 200000 applications deep in places), beside
//         Term::to_shallow_str, the term layer's own tree printer
// The sink copies every byte into a fixed 64 KiB buffer: a memory write,
// never a system call, so the figures measure the printers and the stream.
// Bytes per second is the printer's output rate (SetBytesProcessed).

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include "bench_util.h"
#include "kora/smtlib/printer.h"
#include "kora/terms/term_manager.h"

namespace kora::bench {
namespace {

constexpr std::size_t kApplications = 200000;
constexpr std::size_t kWidth = 32;

// Copies what it is given into a ring of 64 KiB and counts it.
class SinkBuf final : public std::streambuf {
 public:
  std::size_t bytes() const { return bytes_; }
  void reset() { bytes_ = 0; }

 protected:
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    std::size_t left = static_cast<std::size_t>(n);
    while (left > 0) {
      const std::size_t k = std::min(left, sizeof ring_ - at_);
      std::memcpy(ring_ + at_, s, k);
      at_ = (at_ + k) % sizeof ring_;
      s += k;
      left -= k;
    }
    bytes_ += static_cast<std::size_t>(n);
    return n;
  }
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    const char ch = traits_type::to_char_type(c);
    xsputn(&ch, 1);
    return c;
  }

 private:
  char ring_[1 << 16] = {};
  std::size_t at_ = 0;
  std::size_t bytes_ = 0;
};

struct Input {
  TermManager mgr;
  std::vector<const Term*> assertions;  // dag
  const Term* conjunction = nullptr;    // tree
};

// One random application of width kWidth over a and b, each used once (the
// unary operators apply to a binary one); comparisons come back to 32 bits
// through ite over two numerals.
const Term* apply(TermManager& m, std::mt19937_64& rng, const Term* a, const Term* b) {
  static constexpr Op kBinary[] = {Op::BVAdd,  Op::BVSub,  Op::BVMul,  Op::BVShl,  Op::BVLshr,
                                   Op::BVAshr, Op::BVUdiv, Op::BVSdiv, Op::BVUrem, Op::BVSrem,
                                   Op::BVAnd,  Op::BVOr,   Op::BVXor};
  const std::size_t pick = rng() % 20;
  if (pick < std::size(kBinary))
    return m.make_term(m.make_bv_symbol(kBinary[pick], kWidth), {a, b});
  switch (pick) {
    case 13:
      return m.make_term(m.make_bv_neg_symbol(kWidth),
                         {m.make_term(m.make_bv_add_symbol(kWidth), {a, b})});
    case 14:
      return m.make_term(m.make_bv_not_symbol(kWidth),
                         {m.make_term(m.make_bv_and_symbol(kWidth), {a, b})});
    case 15: {
      const Term* low = m.make_term(m.make_bv_extract_symbol(15, 0, kWidth), {a});
      return m.make_term(
          m.make_bv_sign_extend_symbol(16, 16),
          {m.make_term(m.make_bv_xor_symbol(16),
                       {low, m.make_term(m.make_bv_extract_symbol(31, 16, kWidth), {b})})});
    }
    case 16:
      return m.make_term(m.make_bv_rotate_left_symbol(rng() % kWidth, kWidth),
                         {m.make_term(m.make_bv_or_symbol(kWidth), {a, b})});
    case 17: {
      const Term* high = m.make_term(m.make_bv_extract_symbol(31, 8, kWidth), {a});
      return m.make_term(m.make_bv_concat_symbol(24, 8),
                         {high, m.make_term(m.make_bv_extract_symbol(7, 0, kWidth), {b})});
    }
    default: {
      const Op cmp = pick == 18 ? Op::BVUlt : Op::BVSle;
      return m.make_ite(m.make_term(m.make_bv_symbol(cmp, kWidth), {a, b}),
                        m.make_bv_word(1, kWidth), m.make_bv_word(0, kWidth));
    }
  }
}

std::vector<const Term*> leaves(TermManager& m, std::mt19937_64& rng) {
  std::vector<const Term*> out;
  for (int i = 0; i < 64; ++i) {
    std::string name(1, 'c');
    name += std::to_string(i);
    out.push_back(m.make_constant(name, m.bv_type(kWidth)));
    out.push_back(m.make_bv_word(rng(), kWidth));
  }
  return out;
}

const Input& dag_input() {
  static const std::unique_ptr<Input> input = [] {
    auto in = std::make_unique<Input>();
    TermManager& m = in->mgr;
    std::mt19937_64 rng = make_rng(41);
    std::vector<const Term*> pool = leaves(m, rng);
    for (std::size_t i = 0; i < kApplications; ++i) {
      const Term* a = pool[pool.size() - 1 - rng() % 64];
      const Term* b = pool[pool.size() - 1 - rng() % 64];
      pool.push_back(apply(m, rng, a, b));
      if (i % 64 == 63)
        in->assertions.push_back(m.make_equal(pool.back(), pool[rng() % pool.size()]));
    }
    return in;
  }();
  return *input;
}

const Input& tree_input() {
  static const std::unique_ptr<Input> input = [] {
    auto in = std::make_unique<Input>();
    TermManager& m = in->mgr;
    std::mt19937_64 rng = make_rng(42);
    const std::vector<const Term*> base = leaves(m, rng);
    // Applications not used yet, as a stack: each step applies an operator
    // to the top one or two (or to a leaf), so no application has two
    // parents.
    std::vector<const Term*> open;
    auto take = [&]() {
      if (open.empty()) return base[rng() % base.size()];
      const Term* t = open.back();
      open.pop_back();
      return t;
    };
    for (std::size_t i = 0; i < kApplications; ++i) {
      const Term* a = rng() % 16 == 0 ? base[rng() % base.size()] : take();
      const Term* b = rng() % 2 == 0 ? take() : base[rng() % base.size()];
      open.push_back(apply(m, rng, a, b));
    }
    const Term* all = m.true_term();
    for (const Term* t : open) all = m.make_and(all, m.make_equal(t, base[0]));
    in->conjunction = all;
    return in;
  }();
  return *input;
}

template <class Print>
void print_case(benchmark::State& st, Print print) {
  SinkBuf sink;
  std::ostream os(&sink);
  for (auto _ : st) {
    print(os);
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(static_cast<std::int64_t>(sink.bytes()));
  st.counters["output_MB"] =
      static_cast<double>(sink.bytes()) / 1e6 / static_cast<double>(st.iterations());
}

// The same number of bytes as one print, through std::ostream::write.
void write_case(benchmark::State& st, std::size_t bytes) {
  SinkBuf sink;
  std::ostream os(&sink);
  const std::string block(1 << 16, 'x');
  for (auto _ : st) {
    for (std::size_t left = bytes; left > 0;) {
      const std::size_t k = std::min(left, block.size());
      os.write(block.data(), static_cast<std::streamsize>(k));
      left -= k;
    }
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(static_cast<std::int64_t>(sink.bytes()));
}

std::size_t printed_size(void (*print)(std::ostream&)) {
  std::ostringstream os;
  print(os);
  return os.str().size();
}

void print_dag(std::ostream& os) {
  const Input& in = dag_input();
  smtlib::print_script(os, in.mgr, in.assertions);
}
void print_tree(std::ostream& os) {
  const Input& in = tree_input();
  smtlib::print_term(os, in.mgr, in.conjunction);
}
void shallow_tree(std::ostream& os) {
  os << tree_input().conjunction->to_shallow_str();
}

}  // namespace

void register_printer_benchmarks() {
  benchmark::RegisterBenchmark("printer/script_dag/kora", [](benchmark::State& st) {
    print_case(st, print_dag);
  })->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("printer/script_dag/ostream_write", [](benchmark::State& st) {
    static const std::size_t bytes = printed_size(print_dag);
    write_case(st, bytes);
  })->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("printer/term_tree/kora", [](benchmark::State& st) {
    print_case(st, print_tree);
  })->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("printer/term_tree/to_shallow_str", [](benchmark::State& st) {
    print_case(st, shallow_tree);
  })->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("printer/term_tree/ostream_write", [](benchmark::State& st) {
    static const std::size_t bytes = printed_size(print_tree);
    write_case(st, bytes);
  })->Unit(benchmark::kMillisecond);
}

}  // namespace kora::bench
