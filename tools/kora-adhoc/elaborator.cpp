#include "kora-adhoc/elaborator.h"

#include <limits>
#include <string_view>
#include <utility>
#include <vector>

namespace kora::frontend {

namespace {

using smtlib::atom;
using smtlib::bv_sort;
using smtlib::const_array_operator;
using smtlib::find_indexed_operator;
using smtlib::find_operator;
using smtlib::indexed_constant;
using smtlib::indexed_head;
using smtlib::is_numeral_text;
using smtlib::quote;
using smtlib::unknown_constant;

constexpr Dialect kDialect = Dialect::Native;

}  // namespace

// --- Sorts -------------------------------------------------------------------

const DataType* Elaborator::sort(const Node& n, std::size_t depth) {
  if (depth > kMaxSortDepth) {
    throw InputError(n.pos, "sorts nested deeper than " + std::to_string(kMaxSortDepth) +
                                " levels are not supported");
  }
  if (n.is_symbol()) {
    if (n.text == "Bool") return mgr_->bool_type();
    auto it = sorts_.find(n.text);
    if (it != sorts_.end()) return it->second;
    if (n.text == "BitVec") {
      throw InputError(n.pos, "BitVec needs a width: write (_ BitVec W)");
    }
    if (n.text == "Array") {
      throw InputError(n.pos, "Array needs an index and an element sort: write (Array S1 S2)");
    }
    throw InputError(n.pos, "unknown sort " + quote(n));
  }
  if (!n.is_list()) throw InputError(n.pos, "expected a sort, got " + quote(n));
  if (n.children.empty()) throw InputError(n.pos, "expected a sort, got '()'");
  if (const DataType* bv = bv_sort(*mgr_, n)) return bv;
  const Node& h = *n.children[0];
  if (h.is_reserved("Array")) {
    if (n.children.size() != 3) {
      throw InputError(n.pos, "Array expects 2 sorts (index and element), got " +
                                  std::to_string(n.children.size() - 1));
    }
    const DataType* index = sort(*n.children[1], depth + 1);
    const DataType* element = sort(*n.children[2], depth + 1);
    return mgr_->array_type(index, element);
  }
  throw InputError(n.pos, "unknown sort " + quote(n));
}

// --- Declarations --------------------------------------------------------------

std::string Elaborator::new_name(const Node& n, const char* what) const {
  return smtlib::new_name(n, what, kDialect);
}

void Elaborator::declare_constant(const Node& name_node, const Node& sort_node) {
  std::string name = new_name(name_node, "constant");
  if (constants_.contains(name)) {
    throw InputError(name_node.pos, "constant " + quote(name_node) + " is already declared");
  }
  const DataType* type = sort(sort_node);
  constants_.emplace(name, mgr_->make_constant(name, type));
}

void Elaborator::declare_sort(const Node& name_node) {
  std::string name = new_name(name_node, "sort");
  if (name == "Bool" || name == "BitVec" || name == "Array") {
    throw InputError(name_node.pos,
                     "cannot declare " + quote(name_node) + ": it is a built-in sort");
  }
  if (sorts_.contains(name)) {
    throw InputError(name_node.pos, "sort " + quote(name_node) + " is already declared");
  }
  sorts_.emplace(name, mgr_->sort_type(name));
}

const Term* Elaborator::constant(const Node& n) const {
  if (!n.is_symbol()) throw InputError(n.pos, "expected a constant name, got " + quote(n));
  auto it = constants_.find(n.text);
  if (it == constants_.end()) throw InputError(n.pos, "unknown constant " + quote(n));
  return it->second;
}

// --- Terms ---------------------------------------------------------------------

const Term* Elaborator::term(const Node& root) {
  struct Frame {
    const Node* node;
    bool expanded;
    OperatorHead head;
    std::size_t base;  // where this application's arguments start in results
  };
  std::vector<Frame> stack;
  std::vector<const Term*> results;
  stack.push_back({&root, false, {}, 0});
  while (!stack.empty()) {
    Frame& f = stack.back();
    if (f.expanded) {
      std::vector<const Term*> args(results.begin() + static_cast<std::ptrdiff_t>(f.base),
                                    results.end());
      const Term* t = apply_operator(*mgr_, f.head, *f.node, args);
      results.resize(f.base);
      results.push_back(t);
      stack.pop_back();
      continue;
    }
    const Node* n = f.node;
    if (const Term* t = leaf(*n)) {
      results.push_back(t);
      stack.pop_back();
      continue;
    }
    // The operator is checked before its arguments, as it is read first.
    f.head = head(*n);
    f.expanded = true;
    f.base = results.size();
    // Pushed last to first so that arguments are built (and their errors
    // found) left to right.
    for (std::size_t k = n->children.size(); k-- > 1;)
      stack.push_back({n->children[k], false, {}, 0});
  }
  return results.back();
}

const Term* Elaborator::leaf(const Node& n) {
  switch (n.kind) {
    case Node::Kind::Symbol: {
      if (n.text == "true") return mgr_->true_term();
      if (n.text == "false") return mgr_->false_term();
      auto it = constants_.find(n.text);
      if (it != constants_.end()) return it->second;
      unknown_constant(n, kDialect);
    }
    case Node::Kind::List:
      break;
    default:
      return atom(*mgr_, n);
  }
  if (n.children.empty()) throw InputError(n.pos, "expected a term, got '()'");
  const Node& h = *n.children[0];
  if (h.is_reserved("_")) return indexed_constant(*mgr_, n, kDialect);
  if (h.is_reserved("as")) return abstract_value(n);
  return nullptr;
}

const Term* Elaborator::abstract_value(const Node& n) {
  const std::vector<const Node*>& c = n.children;
  if (c.size() == 3 && c[1]->is_reserved("const")) {
    throw InputError(n.pos, quote(n) + " needs a value: write (" + describe(n) + " VALUE)");
  }
  if (c.size() != 3 || !c[1]->is_symbol() || c[1]->text.empty() || c[1]->text[0] != '@') {
    throw InputError(n.pos,
                     "expected an abstract value (as @K SORT) or a constant array "
                     "((as const (Array S1 S2)) VALUE), got " +
                         quote(n));
  }
  const Node& id = *c[1];
  std::string digits = id.text.substr(1);
  if (!is_numeral_text(digits)) {
    throw InputError(
        id.pos, "invalid abstract value " + quote(id) + ": expected '@' followed by a numeral");
  }
  std::size_t k = saturated_value(digits);
  if (k == std::numeric_limits<std::size_t>::max()) {
    throw InputError(id.pos, "abstract value index " + quote(id) + " is too large");
  }
  const DataType* s = sort(*c[2]);
  if (!s->is_sort()) {
    throw InputError(
        c[2]->pos, "abstract values exist only in declared sorts, got " + shorten(s->to_string()));
  }
  return mgr_->make_abstract_value(k, s);
}

OperatorHead Elaborator::head(const Node& app) {
  const Node& h = *app.children[0];
  OperatorHead head;
  head.node = &h;
  if (h.is_symbol()) {
    head.info = find_operator(h.text, kDialect);
    if (head.info != nullptr) return head;
    if (constants_.contains(h.text) || h.text == "true" || h.text == "false") {
      throw InputError(h.pos, quote(h) + " is a constant, not an operator");
    }
    if (find_indexed_operator(h.text, kDialect) != nullptr) {
      throw InputError(h.pos,
                       quote(h) + " is an indexed operator: write ((_ " + h.text + " ...) TERM)");
    }
    throw InputError(h.pos, "unknown operator " + quote(h));
  }
  if (!h.is_list()) throw InputError(h.pos, "expected an operator, got " + quote(h));

  const std::vector<const Node*>& c = h.children;
  if (c.size() == 3 && c[0]->is_reserved("as") && c[1]->is_reserved("const")) {
    head.info = const_array_operator();
    head.array = sort(*c[2]);
    if (!head.array->is_array()) {
      throw InputError(c[2]->pos, "(as const SORT) needs an Array sort, got " +
                                      shorten(head.array->to_string()));
    }
    return head;
  }
  return indexed_head(h, kDialect);
}

}  // namespace kora::frontend
