#include "kora/smtlib/printer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>
#include <ostream>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace kora::smtlib {

namespace {

// --- Symbols -------------------------------------------------------------------

// Names that a simple symbol may not take without bars: reserved words,
// command names (reserved in scripts too), and the function names of the
// Core, FixedSizeBitVectors and ArraysEx theories and their QF_BV
// extensions, so that a constant never reads as an operator.
constexpr std::string_view kReserved[] = {
    // Reserved words.
    "!", "_", "as", "BINARY", "DECIMAL", "exists", "HEXADECIMAL", "forall", "let", "match",
    "NUMERAL", "par", "STRING",
    // Commands.
    "assert", "check-sat", "check-sat-assuming", "declare-const", "declare-datatype",
    "declare-datatypes", "declare-fun", "declare-sort", "define-fun", "define-fun-rec",
    "define-funs-rec", "define-sort", "echo", "exit", "get-assertions", "get-assignment",
    "get-info", "get-model", "get-option", "get-proof", "get-unsat-assumptions", "get-unsat-core",
    "get-value", "pop", "push", "reset", "reset-assertions", "set-info", "set-logic", "set-option",
    "define-const", "get-interpolant",
    // Core.
    "true", "false", "not", "=>", "and", "or", "xor", "=", "distinct", "ite",
    // Bit-vectors and the QF_BV extensions.
    "concat", "extract", "bvnot", "bvand", "bvor", "bvneg", "bvadd", "bvmul", "bvudiv", "bvurem",
    "bvshl", "bvlshr", "bvult", "bvnand", "bvnor", "bvxor", "bvxnor", "bvcomp", "bvsub", "bvsdiv",
    "bvsrem", "bvsmod", "bvashr", "repeat", "zero_extend", "sign_extend", "rotate_left",
    "rotate_right", "bvule", "bvugt", "bvuge", "bvslt", "bvsle", "bvsgt", "bvsge",
    // Their extensions.
    "bvredor", "bvredand", "bvredxor", "bvnego", "bvuaddo", "bvsaddo", "bvumulo", "bvsmulo",
    "bvusubo", "bvssubo", "bvsdivo",
    // Arrays.
    "select", "store", "const"};

bool is_simple_char(char c) {
  const bool alnum = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
  return alnum || (c != '\0' && std::strchr("~!@$%^&*_-+=<>.?/", c) != nullptr);
}

bool is_reserved(std::string_view name) {
  return std::find(std::begin(kReserved), std::end(kReserved), name) != std::end(kReserved);
}

// Symbols starting with '.' are the solvers' own (internal names): a user's
// name of that shape goes between bars. Names starting with '@' are printed
// as scripts declare them (model checkers write @def0 ...); a back end is
// never sent one (kora-solve renames them).
bool is_simple_symbol(std::string_view name) {
  if (name.empty() || (name[0] >= '0' && name[0] <= '9')) return false;
  if (name[0] == '.') return false;
  return std::all_of(name.begin(), name.end(), is_simple_char) && !is_reserved(name);
}

void check_quotable(std::string_view name) {
  for (char c : name) {
    const auto u = static_cast<unsigned char>(c);
    const bool control = (u < 32 && c != ' ' && c != '\t' && c != '\n' && c != '\r') || u == 127;
    if (c == '|' || c == '\\' || control) {
      throw std::invalid_argument(
          "the name \"" + std::string(name) +
          "\" cannot be written as an SMT-LIB symbol: it contains " +
          (control ? std::string("a control character") : "'" + std::string(1, c) + "'"));
    }
  }
}

// The operators' SMT-LIB names with their lengths, looked up once per
// application instead of a call and a strlen.
std::string_view op_text(Op op) {
  static const auto table = [] {
    std::array<std::string_view, kOpCount> names{};
    for (std::size_t i = 0; i < kOpCount; ++i) names[i] = op_name(static_cast<Op>(i));
    return names;
  }();
  return table[static_cast<std::size_t>(op)];
}

// --- Output ----------------------------------------------------------------------

// Collects text and hands it to the stream in large blocks: one virtual
// stream call per block instead of one per token.
class Writer {
 public:
  explicit Writer(std::ostream& os) : os_(os) { buf_.reserve(kBlock + 4096); }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  void put(char c) {
    buf_.push_back(c);
    if (buf_.size() >= kBlock) drain();
  }
  void put(std::string_view s) {
    buf_.append(s);
    if (buf_.size() >= kBlock) drain();
  }
  void number(std::size_t n) {
    char digits[24];
    auto* const end = std::to_chars(digits, digits + sizeof digits, n).ptr;
    buf_.append(digits, end);
  }
  // Writes what is buffered; the printers call it once at the end.
  void drain() {
    os_.write(buf_.data(), static_cast<std::streamsize>(buf_.size()));
    buf_.clear();
  }

 private:
  static constexpr std::size_t kBlock = std::size_t{1} << 16;
  std::ostream& os_;
  std::string buf_;
};

// Sort text, built once per sort: sorts repeat on every declaration and
// constant array.
class SortNames {
 public:
  const std::string& of(const DataType* sort) {
    auto it = cache_.find(sort);
    if (it == cache_.end()) it = cache_.emplace(sort, build(sort)).first;
    return it->second;
  }

 private:
  // Iterative: array sorts nest as deep as a caller makes them.
  static std::string build(const DataType* sort) {
    std::string out;
    // A frame is a sort to write, or (null sort) a literal.
    std::vector<std::pair<const DataType*, const char*>> stack{{sort, nullptr}};
    while (!stack.empty()) {
      auto [t, text] = stack.back();
      stack.pop_back();
      if (t == nullptr) {
        out += text;
      } else if (t->is_bool()) {
        out += "Bool";
      } else if (t->is_bv()) {
        out += "(_ BitVec " + std::to_string(t->width()) + ")";
      } else if (t->is_array()) {
        out += "(Array ";
        stack.insert(
            stack.end(),
            {{nullptr, ")"}, {t->element(), nullptr}, {nullptr, " "}, {t->index(), nullptr}});
      } else {
        out += quote_symbol(t->name());
      }
    }
    return out;
  }

  std::unordered_map<const DataType*, std::string> cache_;
};

// --- The term graph being printed -------------------------------------------

// Term identifiers to node indexes. Hashed while the graph is small next
// to the largest identifier: open addressing over a power-of-two array
// (identifiers are at least 1, so 0 marks a free slot), sized by what is
// printed, so that printing one small term of a huge manager stays cheap.
// Once the graph holds more than 1/16 of the identifiers up to the largest,
// an array indexed by identifier: one load, and a quarter of the memory
// traffic on large graphs. The switch costs no more than the nodes so far.
class IdMap {
 public:
  static constexpr std::uint32_t kAbsent = UINT32_MAX;

  // Every identifier asked for is at most max_id.
  explicit IdMap(std::uint64_t max_id) : max_id_(max_id) {}

  std::uint32_t find(std::uint64_t id) const {
    if (!dense_.empty()) return dense_[id] - 1;  // 0 (absent) wraps to kAbsent
    if (slots_.empty()) return kAbsent;
    for (std::size_t i = start(id);; i = (i + 1) & (slots_.size() - 1)) {
      if (slots_[i].id == id) return slots_[i].index;
      if (slots_[i].id == 0) return kAbsent;
    }
  }
  // Records index for an identifier that is absent.
  void insert(std::uint64_t id, std::uint32_t index) {
    if (dense_.empty() && (size_ + 1) * 16 > max_id_) go_dense();
    if (!dense_.empty()) {
      dense_[id] = index + 1;
      return;
    }
    if ((size_ + 1) * 2 > slots_.size()) grow();
    std::size_t i = start(id);
    while (slots_[i].id != 0) i = (i + 1) & (slots_.size() - 1);
    slots_[i] = Slot{id, index};
    ++size_;
  }

 private:
  struct Slot {
    std::uint64_t id = 0;
    std::uint32_t index = 0;
  };
  std::size_t start(std::uint64_t id) const {
    return static_cast<std::size_t>((id * 0x9e3779b97f4a7c15ULL) >> 20) & (slots_.size() - 1);
  }
  void grow() {
    std::vector<Slot> old(std::max<std::size_t>(64, slots_.size() * 2));
    old.swap(slots_);
    size_ = 0;
    for (const Slot& s : old) {
      if (s.id != 0) insert(s.id, s.index);
    }
  }
  void go_dense() {
    dense_.assign(max_id_ + 1, 0);
    for (const Slot& s : slots_) {
      if (s.id != 0) dense_[s.id] = s.index + 1;
    }
    std::vector<Slot>().swap(slots_);
  }

  std::uint64_t max_id_;
  std::vector<std::uint32_t> dense_;  // index + 1, 0 when absent
  std::vector<Slot> slots_;
  std::size_t size_ = 0;
};

struct Node {
  const Term* term;
  std::uint32_t refs = 0;   // parents' argument slots plus root occurrences
  std::uint32_t kids = 0;   // first of its arity entries in Dag::kids
  std::uint32_t name = 0;   // number of its invented name; 0: written in full
  std::uint32_t depth = 0;  // let nesting it needs (Printer::name_shared)
};

// Every distinct term below a set of roots, numbered in the order first
// reached, with reference counts, the nodes of each term's arguments, and
// a post-order of the nodes (arguments before the terms made of them).
class Dag {
 public:
  // max_id: see IdMap; every term below a root has a smaller identifier
  // than the root (arguments exist before the terms made of them).
  Dag(bool allow_abstract, std::uint64_t max_id)
      : allow_abstract_(allow_abstract), index_(max_id) {}

  // Adds root and what lies below it; new nodes are appended to order().
  std::uint32_t add(const Term* root) {
    const std::uint32_t r = discover(root);
    while (!stack_.empty()) {
      Frame& f = stack_.back();
      const Term* t = nodes_[f.node].term;
      if (f.next == t->arity()) {
        order_.push_back(f.node);
        stack_.pop_back();
        continue;
      }
      const std::size_t slot = nodes_[f.node].kids + f.next;
      const Term* arg = t->arg(f.next++);
      // discover may grow stack_ and kids_: f is not used past this point.
      const std::uint32_t kid = discover(arg);
      kids_[slot] = kid;
    }
    return r;
  }

  std::vector<Node>& nodes() { return nodes_; }
  const std::vector<std::uint32_t>& order() const { return order_; }
  const std::uint32_t* kids_of(const Node& n) const { return kids_.data() + n.kids; }
  // Declared constants and constant arrays, in first-occurrence order.
  const std::vector<const Term*>& constants() const { return constants_; }
  const std::vector<const Term*>& const_arrays() const { return const_arrays_; }

 private:
  struct Frame {
    std::uint32_t node;
    std::size_t next;
  };

  // The node of t, counting one more reference; a new leaf is finished at
  // once, a new application is pushed for its arguments.
  std::uint32_t discover(const Term* t) {
    std::uint32_t i = index_.find(t->id());
    if (i != IdMap::kAbsent) {
      ++nodes_[i].refs;
      return i;
    }
    i = static_cast<std::uint32_t>(nodes_.size());
    index_.insert(t->id(), i);
    nodes_.push_back(Node{t, 1, static_cast<std::uint32_t>(kids_.size())});
    kids_.resize(kids_.size() + t->arity());
    note(t);
    if (t->arity() == 0) {
      order_.push_back(i);
    } else {
      stack_.push_back(Frame{i, 0});
    }
    return i;
  }

  void note(const Term* t) {
    switch (t->get_symbol()->op()) {
      case Op::Constant:
        constants_.push_back(t);
        break;
      case Op::ConstArray:
        const_arrays_.push_back(t);
        break;
      case Op::AbstractValue:
        if (!allow_abstract_) {
          throw std::invalid_argument("the abstract value " + t->get_symbol()->name() +
                                      " has no SMT-LIB syntax outside a model");
        }
        break;
      default:
        break;
    }
  }

  bool allow_abstract_;
  IdMap index_;
  std::vector<Node> nodes_;
  std::vector<std::uint32_t> kids_;
  std::vector<std::uint32_t> order_;
  std::vector<Frame> stack_;
  std::vector<const Term*> constants_;
  std::vector<const Term*> const_arrays_;
};

// Whether a term with several parents gets a name of its own: every
// application does; of the leaves only numerals wider than a machine word,
// whose text outweighs a name.
bool worth_naming(const Term* t) {
  if (t->arity() > 0) return true;
  return t->get_symbol()->op() == Op::BVNumber && t->type()->width() > 64;
}

// The prefix "k!", "k!!", ... of invented names: the shortest that no
// constant's name followed by digits could spell.
std::string name_prefix(const std::vector<const Term*>& constants) {
  std::vector<bool> taken;
  for (const Term* c : constants) {
    const std::string n = constant_name(c);
    if (n.size() < 3 || n[0] != 'k' || n[1] != '!') continue;
    std::size_t bangs = 1;
    while (bangs + 1 < n.size() && n[bangs + 1] == '!') ++bangs;
    const std::string_view digits = std::string_view(n).substr(bangs + 1);
    if (digits.empty() ||
        !std::all_of(digits.begin(), digits.end(), [](char d) { return d >= '0' && d <= '9'; })) {
      continue;
    }
    if (taken.size() <= bangs) taken.resize(bangs + 1, false);
    taken[bangs] = true;
  }
  std::size_t bangs = 1;
  while (bangs < taken.size() && taken[bangs]) ++bangs;
  std::string prefix(1, 'k');
  prefix.append(bangs, '!');
  return prefix;
}

// --- Printing -----------------------------------------------------------------------

class Printer {
 public:
  // Nesting of parentheses past which a term is cut into named pieces: far
  // below the nesting limits of readers (ours takes 10000 levels).
  static constexpr std::uint32_t kMaxNesting = 1000;

  Printer(std::ostream& os, Dag& dag) : out_(os), dag_(dag) {
    for (const Term* c : dag_.constants()) quoted_.emplace(c, quote_symbol(constant_name(c)));
  }

  Writer& out() { return out_; }
  SortNames& sorts() { return sorts_; }

  // Gives invented names to the nodes that have several parents, and to
  // those whose text would nest max_nesting levels deep (so that a long
  // chain, such as a conjunction of many thousand terms, prints as a series
  // of bounded pieces that readers with a nesting limit accept), in
  // post-order, and computes each node's let depth: one more than the
  // deepest named node in its body when it is named itself.
  void name_shared(std::uint32_t first_number, std::uint32_t max_nesting = kMaxNesting) {
    std::vector<Node>& nodes = dag_.nodes();
    std::vector<std::uint32_t> nesting(nodes.size(), 0);  // of the text written in full
    // Some solvers read only a value inside a constant array, not a name:
    // what a constant array holds is written in full.
    std::vector<bool> in_full(nodes.size(), false);
    for (std::uint32_t i : dag_.order()) {
      if (nodes[i].term->op() == Op::ConstArray) in_full[dag_.kids_of(nodes[i])[0]] = true;
    }
    std::uint32_t number = first_number;
    for (std::uint32_t i : dag_.order()) {
      Node& n = nodes[i];
      const std::uint32_t* kids = dag_.kids_of(n);
      std::uint32_t depth = 0;
      std::uint32_t height = 0;
      for (std::size_t k = 0; k < n.term->arity(); ++k) {
        const Node& kid = nodes[kids[k]];
        depth = std::max(depth, kid.depth);
        height = std::max(height, kid.name != 0 ? 0 : nesting[kids[k]]);
      }
      if (n.term->arity() > 0) ++height;
      if (!in_full[i] && ((n.refs > 1 && worth_naming(n.term)) || height >= max_nesting)) {
        n.name = number++;
        ++depth;
      }
      n.depth = depth;
      nesting[i] = height;
    }
  }

  void set_prefix(std::string prefix) { prefix_ = std::move(prefix); }

  void sort(const DataType* t) {
    if (t->is_bool()) {
      out_.put("Bool");
    } else if (t->is_bv()) {
      out_.put("(_ BitVec ");
      out_.number(t->width());
      out_.put(')');
    } else {
      out_.put(sorts_.of(t));
    }
  }

  void name(const Node& n) {
    out_.put(prefix_);
    out_.number(n.name);
  }

  // The node written in full; its arguments by name where they have one.
  void body(std::uint32_t root) {
    const std::vector<Node>& nodes = dag_.nodes();
    stack_.clear();
    open(root);
    while (!stack_.empty()) {
      Frame& f = stack_.back();
      const Node& n = nodes[f.node];
      if (f.next == n.term->arity()) {
        out_.put(')');
        stack_.pop_back();
        continue;
      }
      const std::uint32_t kid = dag_.kids_of(n)[f.next++];
      out_.put(' ');
      if (nodes[kid].name != 0) {
        name(nodes[kid]);
      } else {
        open(kid);
      }
    }
  }

  // The node's name when it has one, otherwise the node in full.
  void reference(std::uint32_t node) {
    if (dag_.nodes()[node].name != 0) {
      name(dag_.nodes()[node]);
    } else {
      body(node);
    }
  }

  void finish() { out_.drain(); }

 private:
  struct Frame {
    std::uint32_t node;
    std::size_t next;
  };

  // Writes a leaf, or the head of an application and pushes it.
  void open(std::uint32_t node) {
    const Term* t = dag_.nodes()[node].term;
    const Symbol* s = t->get_symbol();
    if (t->arity() == 0) {
      leaf(t);
      return;
    }
    out_.put('(');
    head(s);
    stack_.push_back(Frame{node, 0});
  }

  void leaf(const Term* t) {
    const Symbol* s = t->get_symbol();
    switch (s->op()) {
      case Op::Constant:
        out_.put(quoted_.at(t));
        break;
      case Op::AbstractValue:
        out_.put("(as @");
        out_.number(s->param(0));
        out_.put(' ');
        sort(t->type());
        out_.put(')');
        break;
      case Op::BVNumber:  // numerals keep no text; it is made here
        scratch_.clear();
        s->append_text(scratch_);
        out_.put(scratch_);
        break;
      default:  // true and false: the symbol's name is their SMT-LIB text
        out_.put(s->name());
        break;
    }
  }

  void head(const Symbol* s) {
    const Op op = s->op();
    switch (op) {
      case Op::BVExtract:
        indexed("extract", s->param(0), s->param(1), true);
        break;
      case Op::BVZeroExtend:
      case Op::BVSignExtend:
      case Op::BVRotateLeft:
      case Op::BVRotateRight:
        indexed(op_text(op), s->param(0), 0, false);
        break;
      case Op::ConstArray:
        out_.put("(as const ");
        sort(s->get_output_type());
        out_.put(')');
        break;
      default:
        out_.put(op_text(op));
        break;
    }
  }

  void indexed(std::string_view op, std::size_t i, std::size_t j, bool two) {
    out_.put("(_ ");
    out_.put(op);
    out_.put(' ');
    out_.number(i);
    if (two) {
      out_.put(' ');
      out_.number(j);
    }
    out_.put(')');
  }

  Writer out_;
  Dag& dag_;
  SortNames sorts_;
  std::string prefix_ = "k!";
  std::unordered_map<const Term*, std::string> quoted_;  // constants' names, quoted once
  std::vector<Frame> stack_;
  std::string scratch_;  // a numeral's literal while it is written
};

// --- Scripts ---------------------------------------------------------------------

// Declared sorts of the constants and constant arrays, in first-occurrence
// order, and whether any sort involves arrays.
struct SortUse {
  std::vector<const DataType*> declared;
  bool arrays = false;
  bool const_arrays = false;
};

SortUse sorts_used(const Dag& dag) {
  SortUse use;
  std::unordered_set<const DataType*> seen;
  std::vector<const DataType*> stack;
  auto visit = [&](const Term* t) {
    stack.push_back(t->type());
    while (!stack.empty()) {
      const DataType* s = stack.back();
      stack.pop_back();
      if (!seen.insert(s).second) continue;
      if (s->is_sort()) use.declared.push_back(s);
      if (!s->is_array()) continue;
      use.arrays = true;
      stack.push_back(s->element());
      stack.push_back(s->index());
    }
  };
  for (const Term* c : dag.constants()) visit(c);
  for (const Term* a : dag.const_arrays()) visit(a);
  use.const_arrays = !dag.const_arrays().empty();
  return use;
}

// Constant arrays belong to no standard array theory: solvers that know
// them accept them under ALL only.
std::string logic_for(const SortUse& use) {
  if (use.const_arrays) return "ALL";
  if (use.declared.empty()) return use.arrays ? "QF_ABV" : "QF_BV";
  return use.arrays ? "QF_AUFBV" : "QF_UFBV";
}

void check_unique_names(const std::vector<const Term*>& constants) {
  std::unordered_map<std::string, const Term*> by_name;
  for (const Term* c : constants) {
    auto [it, fresh] = by_name.emplace(constant_name(c), c);
    if (fresh) continue;
    throw std::invalid_argument("two constants are named \"" + std::string(it->first) +
                                "\", with sorts " + it->second->type()->to_string() + " and " +
                                c->type()->to_string() + "; a script can declare only one");
  }
}

void declarations(Printer& p, const Dag& dag, const SortUse& use) {
  Writer& out = p.out();
  for (const DataType* s : use.declared) {
    out.put("(declare-sort ");
    out.put(p.sorts().of(s));
    out.put(" 0)\n");
  }
  for (const Term* c : dag.constants()) {
    out.put("(declare-fun ");
    out.put(quote_symbol(constant_name(c)));
    out.put(" () ");
    p.sort(c->type());
    out.put(")\n");
  }
}

// The define-funs of the named nodes among order[from, to), then the
// assertion.
void assertion(Printer& p, Dag& dag, std::size_t from, std::size_t to, std::uint32_t root) {
  Writer& out = p.out();
  for (std::size_t k = from; k < to; ++k) {
    const std::uint32_t i = dag.order()[k];
    const Node& n = dag.nodes()[i];
    if (n.name == 0) continue;
    out.put("(define-fun ");
    p.name(n);
    out.put(" () ");
    p.sort(n.term->type());
    out.put(' ');
    p.body(i);
    out.put(")\n");
  }
  out.put("(assert ");
  p.reference(root);
  out.put(")\n");
}

// The named nodes as nested lets, one per depth: a binding depends only on
// shallower ones, so those of one depth bind in parallel. Within a depth
// the nodes keep their post-order (a counting sort by depth).
void lets(Printer& p, Dag& dag, std::uint32_t levels) {
  const std::vector<Node>& nodes = dag.nodes();
  std::vector<std::size_t> first(levels + 2, 0);
  for (std::uint32_t i : dag.order()) {
    if (nodes[i].name != 0) ++first[nodes[i].depth + 1];
  }
  for (std::size_t d = 1; d < first.size(); ++d) first[d] += first[d - 1];
  std::vector<std::uint32_t> sorted(first.back());
  std::vector<std::size_t> next(first.begin(), first.end() - 1);
  for (std::uint32_t i : dag.order()) {
    if (nodes[i].name != 0) sorted[next[nodes[i].depth]++] = i;
  }
  Writer& out = p.out();
  for (std::uint32_t d = 1; d <= levels; ++d) {
    out.put("(let (");
    for (std::size_t k = first[d]; k < first[d + 1]; ++k) {
      if (k > first[d]) out.put(' ');
      out.put('(');
      p.name(nodes[sorted[k]]);
      out.put(' ');
      p.body(sorted[k]);
      out.put(')');
    }
    out.put(") ");
  }
}

}  // namespace

// --- Public functions ----------------------------------------------------------------

std::string quote_symbol(std::string_view name) {
  check_quotable(name);
  if (is_simple_symbol(name)) return std::string(name);
  std::string quoted;
  quoted.reserve(name.size() + 2);
  quoted += '|';
  quoted += name;
  quoted += '|';
  return quoted;
}

std::string constant_name(const Term* constant) {
  std::string_view n = constant->get_symbol()->name();
  if (n.size() < 2 || n.front() != '|' || n.back() != '|') return std::string(n);
  // The manager escapes line breaks and control characters between the bars
  // so that its own output stays on one line; the name itself holds the bytes.
  n = n.substr(1, n.size() - 2);
  return unquote_smtlib_symbol(n).value_or(std::string(n));
}

void print_sort(std::ostream& os, const TermManager& /*mgr*/, const DataType* sort) {
  Dag dag(true, 0);
  Printer p(os, dag);
  p.sort(sort);
  p.finish();
}

void print_value(std::ostream& os, const TermManager& /*mgr*/, const Term* value) {
  if (!is_model_value(value)) {
    throw std::invalid_argument(value->to_shallow_str() + " is not a model value");
  }
  Dag dag(true, value->id());
  const std::uint32_t root = dag.add(value);
  Printer p(os, dag);
  // A value is written in full wherever it occurs, however deep.
  p.name_shared(1, std::numeric_limits<std::uint32_t>::max());
  p.body(root);
  p.finish();
}

void print_term(std::ostream& os, const TermManager& /*mgr*/, const Term* term) {
  Dag dag(false, term->id());
  const std::uint32_t root = dag.add(term);
  Printer p(os, dag);
  p.set_prefix(name_prefix(dag.constants()));
  p.name_shared(1);
  const std::uint32_t levels = dag.nodes()[root].depth;
  lets(p, dag, levels);
  p.body(root);
  for (std::uint32_t d = 0; d < levels; ++d) p.out().put(')');
  p.finish();
}

void print_script(std::ostream& os, const TermManager& /*mgr*/,
                  const std::vector<const Term*>& assertions, const PrintOptions& options) {
  std::uint64_t max_id = 1;
  for (const Term* a : assertions) max_id = std::max(max_id, a->id());
  Dag dag(false, max_id);
  std::vector<std::uint32_t> roots;
  std::vector<std::size_t> ends;  // where each assertion's new nodes end in order()
  roots.reserve(assertions.size());
  ends.reserve(assertions.size());
  for (const Term* a : assertions) {
    roots.push_back(dag.add(a));
    ends.push_back(dag.order().size());
  }
  check_unique_names(dag.constants());
  const SortUse use = sorts_used(dag);
  Printer p(os, dag);
  p.set_prefix(name_prefix(dag.constants()));
  p.name_shared(1);
  // A sort name no symbol can spell throws here, before anything is written.
  for (const DataType* sort : use.declared) p.sorts().of(sort);
  if (options.set_logic) {
    p.out().put("(set-logic ");
    p.out().put(options.logic.empty() ? logic_for(use) : options.logic);
    p.out().put(")\n");
  }
  declarations(p, dag, use);
  std::size_t from = 0;
  for (std::size_t k = 0; k < roots.size(); ++k) {
    assertion(p, dag, from, ends[k], roots[k]);
    from = ends[k];
  }
  p.finish();
}

void print_model(std::ostream& os, const TermManager& /*mgr*/,
                 const std::vector<const Term*>& constants, ModelStore& store) {
  // Values are trees (constant arrays over a value), so none is named.
  std::vector<const Term*> values;
  values.reserve(constants.size());
  std::uint64_t max_id = 1;
  for (const Term* c : constants) {
    const Term* v = store.value_of(c);
    values.push_back(v != nullptr ? v : store.default_value(c->type()));
    max_id = std::max(max_id, values.back()->id());
  }
  Dag dag(true, max_id);
  std::vector<std::uint32_t> nodes;
  nodes.reserve(values.size());
  for (const Term* v : values) nodes.push_back(dag.add(v));
  Printer p(os, dag);
  Writer& out = p.out();
  out.put("(\n");
  for (std::size_t k = 0; k < constants.size(); ++k) {
    out.put("  (define-fun ");
    out.put(quote_symbol(constant_name(constants[k])));
    out.put(" () ");
    p.sort(constants[k]->type());
    out.put(' ');
    p.body(nodes[k]);
    out.put(")\n");
  }
  out.put(")\n");
  p.finish();
}

std::string logic_of(const std::vector<const Term*>& terms) {
  std::unordered_set<const Term*> seen;
  std::vector<const Term*> stack(terms.begin(), terms.end());
  bool arrays = false;
  while (!stack.empty()) {
    const Term* t = stack.back();
    stack.pop_back();
    if (!seen.insert(t).second) continue;
    if (t->op() == Op::ConstArray) return "ALL";
    arrays = arrays || t->type()->is_array();
    for (const Term* a : t->args()) stack.push_back(a);
  }
  return arrays ? "QF_ABV" : "QF_BV";
}

}  // namespace kora::smtlib
