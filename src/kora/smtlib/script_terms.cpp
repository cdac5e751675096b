// Sorts and terms of the script reader: let, annotations, qualified
// identifiers and the expansion of defined functions.
#include <algorithm>
#include <cstdint>
#include <limits>
#include <string_view>
#include <unordered_set>

#include "kora/smtlib/script_internal.h"

namespace kora::smtlib {

namespace {

constexpr Dialect kDialect = Dialect::Standard;
// Array sorts nest at most this deep (real scripts use two levels).
constexpr std::size_t kMaxSortDepth = 100;

[[noreturn]] void not_qf_bv(const Node& n, const char* what) {
  throw InputError(n.pos, std::string(what) + " not supported: the logic is QF_BV");
}

// Refuses the heads that belong to other logics by name.
void refuse_foreign_head(const Node& h, bool arrays) {
  if (h.is_reserved("forall") || h.is_reserved("exists")) not_qf_bv(h, "quantifiers are");
  if (h.is_reserved("match")) not_qf_bv(h, "match is");
  if (!arrays && !h.quoted && (h.text == "select" || h.text == "store")) {
    not_qf_bv(h, "arrays are");
  }
}

bool is_const_array_head(const Node& h) {
  return h.is_list() && h.children.size() == 3 && h.children[0]->is_reserved("as") &&
         h.children[1]->is_reserved("const");
}

}  // namespace

const DataType* ScriptReader::Impl::sort(const Node& n, std::size_t depth) {
  if (n.is_symbol()) {
    if (n.is_reserved("Bool")) return mgr_->bool_type();
    if (const DataType* const* s = sorts_.find(n.text)) return *s;
    if (n.is_reserved("BitVec"))
      throw InputError(n.pos, "BitVec needs a width: write (_ BitVec W)");
    if (n.is_reserved("Array")) {
      if (!arrays_) not_qf_bv(n, "arrays are");
      throw InputError(n.pos, "Array needs an index and an element sort: write (Array I E)");
    }
    throw InputError(n.pos, "unknown sort " + quote(n));
  }
  if (!n.is_list() || n.children.empty()) {
    throw InputError(n.pos, "expected a sort, got " + quote(n));
  }
  if (const DataType* bv = bv_sort(*mgr_, n)) return bv;
  if (n.children[0]->is_reserved("Array")) return array_sort(n, depth);
  throw InputError(n.pos, "unknown sort " + quote(n));
}

// (Array I E): bit-vector indices, bit-vector or array elements.
const DataType* ScriptReader::Impl::array_sort(const Node& n, std::size_t depth) {
  if (!arrays_) not_qf_bv(n, "arrays are");
  if (n.children.size() != 3) {
    throw InputError(n.pos, "Array expects 2 sorts (index and element), got " +
                                std::to_string(n.children.size() - 1));
  }
  if (depth >= kMaxSortDepth) {
    throw InputError(n.pos, "sorts nested deeper than " + std::to_string(kMaxSortDepth) +
                                " levels are not supported");
  }
  const DataType* index = sort(*n.children[1], depth + 1);
  if (!index->is_bv()) {
    throw InputError(n.children[1]->pos,
                     "array indices must be bit-vectors, got " + shorten(index->to_string()));
  }
  const DataType* element = sort(*n.children[2], depth + 1);
  if (!element->is_bv() && !element->is_array()) {
    throw InputError(n.children[2]->pos, "array elements must be bit-vectors or arrays, got " +
                                             shorten(element->to_string()));
  }
  return mgr_->array_type(index, element);
}

const Term* ScriptReader::Impl::term(const Node& n, const DataType* expected) {
  const Term* t = elaborate(n);
  if (expected != nullptr && t->type() != expected) {
    throw InputError(n.pos, "expected a term of sort " + shorten(expected->to_string()) +
                                ", got one of sort " + sort_text(t));
  }
  return t;
}

const Term* ScriptReader::Impl::symbol(const Node& n) {
  if (const Binding* b = names_.find(n.text)) {
    if (b->term != nullptr) return b->term;
    throw InputError(n.pos,
                     quote(n) + " is a function: write (" + printed_symbol(n.text) + " ARGUMENTS)");
  }
  if (n.is_reserved("true")) return mgr_->true_term();
  if (n.is_reserved("false")) return mgr_->false_term();
  unknown_constant(n, kDialect);
}

// The walk over one term: a stack of frames instead of recursion, and the
// values computed so far.
class ScriptReader::Impl::Walk {
 public:
  Walk(Impl& impl, const Node& root) : impl_(impl) { stack_.push_back({Step::Eval, &root}); }

  const Term* run() {
    while (!stack_.empty()) {
      Frame f = stack_.back();
      stack_.pop_back();
      if (f.step == Step::Eval) {
        eval(*f.node);
      } else {
        resume(f);
      }
    }
    return results_.back();
  }

 private:
  enum class Step : unsigned char { Eval, Apply, Call, Bind, Unbind, Annotate, Check };
  struct Frame {
    Step step;
    const Node* node;
    std::size_t base = 0;  // where this frame's values start in results_
    OperatorHead head{};
    const Function* function = nullptr;
  };

  std::vector<const Term*> values(std::size_t base) const {
    return {results_.begin() + static_cast<std::ptrdiff_t>(base), results_.end()};
  }
  void finish(std::size_t base, const Term* t) {
    results_.resize(base);
    results_.push_back(t);
  }
  // Schedules the children of n from `first` on, evaluated left to right.
  void eval_children(const Node& n, std::size_t first) {
    for (std::size_t k = n.children.size(); k-- > first;) {
      stack_.push_back({Step::Eval, n.children[k]});
    }
  }

  void eval(const Node& n);
  bool special_form(const Node& n);
  void application(const Node& n);
  void resume(const Frame& f);
  void bind(const Frame& f);

  Impl& impl_;
  std::vector<Frame> stack_;
  std::vector<const Term*> results_;
};

const Term* ScriptReader::Impl::elaborate(const Node& root) {
  return Walk(*this, root).run();
}

void ScriptReader::Impl::Walk::eval(const Node& n) {
  if (n.is_symbol()) {
    results_.push_back(impl_.symbol(n));
    if (impl_.noting_) {
      const Binding* b = impl_.names_.find(n.text);
      impl_.note(n, results_.back(), b != nullptr ? b->role : WrittenTerm::Role::Plain,
                 b != nullptr ? b->binder : 0);
    }
  } else if (!n.is_list()) {
    results_.push_back(atom(*impl_.mgr_, n));
    if (impl_.noting_) impl_.note(n, results_.back(), WrittenTerm::Role::Plain);
  } else if (n.children.empty()) {
    throw InputError(n.pos, "expected a term, got '()'");
  } else if (!special_form(n)) {
    application(n);
  }
}

// (_ bvN W), (as NAME SORT), let and !.
bool ScriptReader::Impl::Walk::special_form(const Node& n) {
  const Node& h = *n.children[0];
  if (h.is_reserved("_")) {
    results_.push_back(indexed_constant(*impl_.mgr_, n, kDialect));
    if (impl_.noting_) impl_.note(n, results_.back(), WrittenTerm::Role::Plain);
  } else if (h.is_reserved("as")) {
    if (n.children.size() != 3) {
      throw InputError(n.pos, "expected a qualified identifier (as NAME SORT), got " + quote(n));
    }
    stack_.push_back({Step::Check, &n});
    stack_.push_back({Step::Eval, n.children[1]});
  } else if (h.is_reserved("let")) {
    impl_.check_let(n);
    const std::vector<const Node*>& bindings = n.children[1]->children;
    stack_.push_back({Step::Bind, &n, results_.size()});
    for (std::size_t k = bindings.size(); k-- > 0;) {
      stack_.push_back({Step::Eval, bindings[k]->children[1]});
    }
  } else if (h.is_reserved("!")) {
    if (n.children.size() < 3) {
      throw InputError(n.pos, "expected (! TERM :KEYWORD VALUE ...), got " + quote(n));
    }
    stack_.push_back({Step::Annotate, &n});
    stack_.push_back({Step::Eval, n.children[1]});
  } else {
    return false;
  }
  return true;
}

// An operator or a defined function over arguments.
void ScriptReader::Impl::Walk::application(const Node& n) {
  const Node& h = *n.children[0];
  Frame next{Step::Apply, &n, results_.size()};
  if (h.is_symbol()) {
    refuse_foreign_head(h, impl_.arrays_);
    // No declared name is an operator's (new_name refuses them), so the
    // operators come first: most heads are operators, and the table of
    // names, large in industrial scripts, is then looked up only for calls.
    const Binding* b = nullptr;
    if ((next.head.info = find_operator(h.text, kDialect)) != nullptr) {
      next.head.node = &h;
    } else if ((b = impl_.names_.find(h.text)) != nullptr && b->function != nullptr) {
      next.step = Step::Call;
      next.function = b->function;
    } else if (b != nullptr) {
      throw InputError(h.pos, quote(h) + " is a constant, not a function");
    } else if (h.is_reserved("true") || h.is_reserved("false")) {
      throw InputError(h.pos, quote(h) + " is a constant, not an operator");
    } else if (find_indexed_operator(h.text, kDialect) != nullptr) {
      throw InputError(h.pos,
                       quote(h) + " is an indexed operator: write ((_ " + h.text + " ...) TERM)");
    } else {
      throw InputError(h.pos, "unknown function or operator " + quote(h));
    }
  } else if (is_const_array_head(h)) {
    next.head.info = const_array_operator();
    next.head.node = &h;
    next.head.array = impl_.sort(*h.children[2]);
    if (!next.head.array->is_array()) {
      throw InputError(h.children[2]->pos, "(as const SORT) needs an Array sort, got " +
                                               shorten(next.head.array->to_string()));
    }
  } else if (h.is_list() && !h.children.empty() && h.children[0]->is_reserved("as")) {
    throw InputError(h.pos, "qualified function symbols are not supported, got " + quote(h));
  } else if (h.is_list()) {
    next.head = indexed_head(h, kDialect);
  } else {
    throw InputError(h.pos, "expected an operator, got " + quote(h));
  }
  stack_.push_back(next);
  eval_children(n, 1);
}

void ScriptReader::Impl::Walk::resume(const Frame& f) {
  const Node& n = *f.node;
  switch (f.step) {
    case Step::Apply:
      finish(f.base, apply_operator(*impl_.mgr_, f.head, n, values(f.base)));
      if (impl_.noting_) {
        impl_.note(n, results_.back(), WrittenTerm::Role::Application, 0, &f.head);
      }
      break;
    case Step::Call:
      finish(f.base, impl_.call(*f.function, n, values(f.base)));
      if (impl_.noting_) impl_.note(n, results_.back(), WrittenTerm::Role::Defined);
      break;
    case Step::Bind:
      bind(f);
      break;
    case Step::Unbind:
      impl_.names_.restore(f.base);
      if (impl_.noting_) impl_.note(n, results_.back(), WrittenTerm::Role::Let);
      break;
    case Step::Annotate:
      impl_.annotate(n, results_.back());
      if (impl_.noting_) impl_.note(n, results_.back(), WrittenTerm::Role::Annotated);
      break;
    case Step::Check: {
      const DataType* s = impl_.sort(*n.children[2]);
      if (results_.back()->type() != s) {
        throw InputError(n.pos, quote(*n.children[1]) + " has sort " + sort_text(results_.back()) +
                                    ", not " + shorten(s->to_string()));
      }
      if (impl_.noting_) impl_.note(n, results_.back(), WrittenTerm::Role::Qualified);
      break;
    }
    case Step::Eval:
      break;
  }
}

// Every value is computed before any variable is bound: let is parallel.
void ScriptReader::Impl::Walk::bind(const Frame& f) {
  const Node& n = *f.node;
  std::vector<const Term*> bound = values(f.base);
  results_.resize(f.base);
  stack_.push_back({Step::Unbind, &n, impl_.names_.mark()});
  for (std::size_t k = 0; k < bound.size(); ++k) {
    const Node& binding = *n.children[1]->children[k];
    impl_.names_.bind(binding.children[0]->text,
                      {bound[k], nullptr, WrittenTerm::Role::Variable, binding.index});
  }
  stack_.push_back({Step::Eval, n.children[2]});
}

void ScriptReader::Impl::check_let(const Node& n) const {
  if (n.children.size() != 3 || !n.children[1]->is_list() || n.children[1]->children.empty()) {
    throw InputError(n.pos, "expected (let ((NAME TERM) ...) TERM), got " + quote(n));
  }
  std::unordered_set<std::string_view> seen;
  for (const Node* b : n.children[1]->children) {
    if (!b->is_list() || b->children.size() != 2) {
      throw InputError(b->pos, "expected a binding (NAME TERM), got " + quote(*b));
    }
    script_name(*b->children[0], "variable");
    if (!seen.insert(b->children[0]->text).second) {
      throw InputError(b->pos, quote(*b->children[0]) + " is bound twice in one let");
    }
  }
}

const Term* ScriptReader::Impl::call(const Function& f, const Node& app,
                                     const std::vector<const Term*>& args) {
  const Node& h = *app.children[0];
  if (args.size() != f.params.size()) {
    std::string msg = describe(h) + " expects " + plural(f.params.size(), "argument") + ", got " +
                      std::to_string(args.size());
    throw InputError(
        args.size() < f.params.size() ? app.end : app.children[f.params.size() + 1]->pos, msg);
  }
  for (std::size_t k = 0; k < args.size(); ++k) {
    if (args[k]->type() != f.params[k]->type()) {
      throw InputError(app.children[k + 1]->pos, describe(h) + " expects argument " +
                                                     std::to_string(k + 1) + " of sort " +
                                                     shorten(f.params[k]->type()->to_string()) +
                                                     ", got " + sort_text(args[k]));
    }
  }
  return substitute(f, app, args);
}

// The body with each placeholder replaced by its argument, rebuilt bottom
// up over the DAG: every distinct subterm is visited once, and the manager
// shares what the rebuilt terms have in common. The memo is indexed by the
// dense term identifiers and stamped per call, so it is never cleared.
const Term* ScriptReader::Impl::substitute(const Function& f, const Node& app,
                                           const std::vector<const Term*>& args) {
  const std::size_t size = mgr_->term_count() + 1;
  if (memo_.size() < size) {
    memo_.resize(size);
    stamps_.resize(size, 0);
  }
  if (stamp_ == std::numeric_limits<std::uint32_t>::max()) {  // forget every old entry
    std::fill(stamps_.begin(), stamps_.end(), 0);
    stamp_ = 0;
  }
  ++stamp_;
  auto done = [&](const Term* t) { return stamps_[t->id()] == stamp_; };
  auto set = [&](const Term* t, const Term* value) {
    stamps_[t->id()] = stamp_;
    memo_[t->id()] = value;
  };
  for (std::size_t k = 0; k < args.size(); ++k) set(f.params[k], args[k]);
  std::vector<std::pair<const Term*, bool>> stack{{f.body, false}};
  std::vector<const Term*> rebuilt;
  while (!stack.empty()) {
    auto [t, expanded] = stack.back();
    stack.pop_back();
    if (done(t)) continue;
    if (++expansion_steps_ > kMaxExpansionSteps) {
      throw InputError(app.pos, "expanding the defined functions of this command takes more than " +
                                    std::to_string(kMaxExpansionSteps) + " steps");
    }
    if (t->arity() == 0) {
      set(t, t);
      continue;
    }
    if (!expanded) {
      stack.emplace_back(t, true);
      for (const Term* a : t->args()) {
        if (!done(a)) stack.emplace_back(a, false);
      }
      continue;
    }
    rebuilt.clear();
    bool same = true;
    for (const Term* a : t->args()) {
      rebuilt.push_back(memo_[a->id()]);
      same = same && rebuilt.back() == a;
    }
    set(t, same ? t : mgr_->make_term(t->get_symbol(), rebuilt));
  }
  return memo_[f.body->id()];
}

void ScriptReader::Impl::annotate(const Node& n, const Term* t) {
  const std::vector<const Node*>& c = n.children;
  for (std::size_t k = 2; k < c.size(); ++k) {
    const Node& key = *c[k];
    if (key.kind != Node::Kind::Keyword) {
      throw InputError(key.pos, "expected an attribute keyword, got " + quote(key));
    }
    const bool has_value = k + 1 < c.size() && c[k + 1]->kind != Node::Kind::Keyword;
    if (key.text != ":named") {
      k += has_value ? 1 : 0;
      continue;
    }
    if (!has_value || !c[k + 1]->is_symbol()) {
      throw InputError(key.pos, ":named expects a name");
    }
    const Node& name = *c[++k];
    if (in_function_) {
      throw InputError(key.pos, ":named is not supported inside a function with parameters");
    }
    new_symbol(name, "term");
    for (const Pending& p : pending_) {
      if (p.name == name.text) throw InputError(name.pos, quote(name) + " is already declared");
    }
    pending_.push_back({name.text, t});
  }
}

void ScriptReader::Impl::commit_named() {
  for (Pending& p : pending_) {
    names_.bind(p.name, {p.term, nullptr, WrittenTerm::Role::Defined});
    if (p.term->type()->is_bool()) named_.emplace_back(std::move(p.name), p.term);
  }
  pending_.clear();
}

}  // namespace kora::smtlib
