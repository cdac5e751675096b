// Written forms of asserted terms, and the back-end script printed from them.
#include "kora/smtlib/written.h"

#include <algorithm>
#include <limits>
#include <sstream>
#include <unordered_set>
#include <utility>

#include "kora/smtlib/printer.h"
#include "kora/smtlib/script_internal.h"

namespace kora::smtlib {

using Role = WrittenTerm::Role;

std::string WrittenTerm::atom(std::size_t i) const {
  const Node& n = nodes[i];
  std::string t = text.substr(n.text, n.length);
  // As the declarations print the name: a solver may take |x| and x for two
  // names (Boolector 1.5 does).
  if (n.kind == smtlib::Node::Kind::Symbol && n.quoted) return quote_symbol(t);
  if (n.kind != smtlib::Node::Kind::String) return t;
  std::string out = "\"";
  for (char c : t) {
    out += c;
    if (c == '"') out += '"';
  }
  return out + "\"";
}

// --- Keeping the written form ---------------------------------------------------

void ScriptReader::Impl::note(const Node& n, const Term* t, Role role, std::size_t binder,
                              const OperatorHead* head) {
  if (n.index >= notes_.size()) notes_.resize(std::max(n.index + 1, 2 * notes_.size()));
  Note& note = notes_[n.index];
  note.term = t;
  note.role = role;
  note.binder = binder;
  note.head = head != nullptr ? *head : OperatorHead{};
  note.stamp = note_stamp_;
}

std::shared_ptr<const WrittenTerm> ScriptReader::Impl::written_form(const Node& root) {
  auto form = std::make_shared<WrittenTerm>();
  std::vector<WrittenTerm::Node>& out = form->nodes;
  // Each entry is a node to copy, or null where the list opened at
  // `opened.back()` closes.
  std::vector<const Node*> stack{&root};
  std::vector<std::size_t> opened;
  while (!stack.empty()) {
    const Node* n = stack.back();
    stack.pop_back();
    if (n == nullptr) {
      out[opened.back()].size = static_cast<std::uint32_t>(out.size() - opened.back());
      opened.pop_back();
      continue;
    }
    // Nodes are numbered in pre-order; anything else is no form to trust.
    if (n->index != root.index + out.size() ||
        out.size() >= std::numeric_limits<std::uint32_t>::max()) {
      return nullptr;
    }
    WrittenTerm::Node& w = out.emplace_back();
    w.kind = n->kind;
    w.quoted = n->quoted;
    if (n->index < notes_.size() && notes_[n->index].stamp == note_stamp_) {
      const Note& kept = notes_[n->index];
      w.term = kept.term;
      w.role = kept.role;
      w.op = kept.head.info;
      w.i = kept.head.i;
      w.j = kept.head.j;
      if (w.role == Role::Variable) {
        // A variable bound outside the assert (impossible, but cheap to
        // refuse) could not be printed by its name.
        if (kept.binder < root.index || kept.binder >= n->index) w.role = Role::Defined;
        w.binder = static_cast<std::uint32_t>(kept.binder - root.index);
      }
    }
    if (!n->is_list()) {
      w.text = static_cast<std::uint32_t>(form->text.size());
      w.length = static_cast<std::uint32_t>(n->text.size());
      form->text += n->text;
      if (form->text.size() >= std::numeric_limits<std::uint32_t>::max()) return nullptr;
      continue;
    }
    opened.push_back(out.size() - 1);
    stack.push_back(nullptr);
    for (std::size_t k = n->children.size(); k-- > 0;) stack.push_back(n->children[k]);
  }
  out.shrink_to_fit();
  form->text.shrink_to_fit();
  return form;
}

// --- Printing -------------------------------------------------------------------

namespace {

constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();

// The left-associative operators that a solver reading binary applications
// only must get nested.
bool is_chain(std::string_view op) {
  static constexpr std::string_view kChains[] = {"bvand", "bvor",  "bvxor",
                                                 "bvadd", "bvmul", "concat"};
  return std::find(std::begin(kChains), std::end(kChains), op) != std::end(kChains);
}

// Prints the assertions of one script from their written forms.
class WrittenPrinter {
 public:
  WrittenPrinter(TermManager& mgr, const ImageOf& image, std::ostream& script, bool binary_chains)
      : mgr_(mgr), image_(image), script_(script), binary_chains_(binary_chains) {}

  // The assertion as its written form says it, reading to the image of its
  // term; false, with nothing printed, when the form is not one to trust.
  bool assertion(const WrittenTerm& form);
  // The assertion printed whole by the term printer.
  void whole(const Term* t);
  // The terms given to the term printer so far: the fresh constants that the
  // script declares are theirs.
  const std::vector<const Term*>& printed() const { return printed_; }

 private:
  // Per node: whether its text may be copied as written where its term is
  // unchanged (no defined name, no annotation, no variable bound outside it
  // to a changed term).
  void mark_copyable();
  bool copyable(std::size_t i) const { return first_changed_[i] > i; }
  bool sendable(std::size_t i) const;
  void copy(std::size_t i);
  // Schedules node i (a term) to be printed so that it reads to its image.
  void node(std::size_t i);
  void application(std::size_t i, const Term* image);
  void let(std::size_t i);
  void term(const Term* t) {
    print_term(out_, mgr_, t);
    printed_.push_back(t);
  }
  // Whether op over the images of the arguments of node i is `image`.
  bool rebuilds(std::size_t i, const Term* image);
  std::vector<std::size_t> children(std::size_t i) const;

  TermManager& mgr_;
  const ImageOf& image_;
  std::ostream& script_;
  const bool binary_chains_;
  std::ostringstream out_;  // the assertion being printed
  bool failed_ = false;
  const WrittenTerm* form_ = nullptr;
  // Per node: the smallest binder of a changed variable referred to in its
  // subtree (a binder before the node is outside it), 0 when the subtree
  // holds a defined name or an annotation, kNone when neither.
  std::vector<std::uint32_t> first_changed_;
  // What is left to print: a node, or (node = kNone) a piece of text, or
  // (copy) a node that is not a term, as written.
  struct Task {
    std::size_t node;
    const char* text;
    bool copy = false;
  };
  std::vector<Task> tasks_;
  std::vector<const Term*> printed_;
};

std::vector<std::size_t> WrittenPrinter::children(std::size_t i) const {
  std::vector<std::size_t> out;
  const auto& nodes = form_->nodes;
  for (std::size_t c = i + 1; c < i + nodes[i].size; c += nodes[c].size) out.push_back(c);
  return out;
}

void WrittenPrinter::mark_copyable() {
  const auto& nodes = form_->nodes;
  first_changed_.assign(nodes.size(), kNone);
  for (std::size_t i = nodes.size(); i-- > 0;) {
    const WrittenTerm::Node& n = nodes[i];
    std::uint32_t own = kNone;
    if (n.role == Role::Defined || n.role == Role::Annotated || !sendable(i)) {
      own = 0;
    } else if (n.role == Role::Variable) {
      const Term* value = nodes[n.binder + 2].term;
      if (value == nullptr || image_(value) != value) own = n.binder;
    }
    for (std::size_t c = i + 1; c < i + n.size; c += nodes[c].size) {
      own = std::min(own, first_changed_[c]);
    }
    first_changed_[i] = own;
  }
}

void WrittenPrinter::copy(std::size_t i) {
  const auto& nodes = form_->nodes;
  std::vector<std::size_t> ends;
  bool open = true;  // just after '(' or at the start: no space needed
  for (std::size_t k = i; k < i + nodes[i].size; ++k) {
    while (!ends.empty() && ends.back() == k) {
      out_ << ')';
      ends.pop_back();
      open = false;
    }
    if (!open) out_ << ' ';
    if (nodes[k].kind == smtlib::Node::Kind::List) {
      out_ << '(';
      ends.push_back(k + nodes[k].size);
      open = true;
    } else {
      out_ << form_->atom(k);
      open = false;
    }
  }
  for (std::size_t e = ends.size(); e-- > 0;) out_ << ')';
}

bool WrittenPrinter::assertion(const WrittenTerm& form) {
  form_ = &form;
  failed_ = false;
  out_.str("");
  mark_copyable();
  out_ << "(assert ";
  tasks_.push_back({kNone, ")\n"});
  tasks_.push_back({0, nullptr});
  while (!tasks_.empty() && !failed_) {
    const Task t = tasks_.back();
    tasks_.pop_back();
    if (t.node == kNone) {
      out_ << t.text;
    } else if (t.copy) {
      copy(t.node);
    } else {
      node(t.node);
    }
  }
  tasks_.clear();
  if (!failed_) script_ << out_.view();
  return !failed_;
}

void WrittenPrinter::node(std::size_t i) {
  const WrittenTerm::Node& n = form_->nodes[i];
  // Every term of the written form has its term; one without can only be a
  // form the reader did not note whole.
  if (n.term == nullptr) {
    failed_ = true;
    return;
  }
  const Term* image = image_(n.term);
  if (image == n.term && copyable(i)) return copy(i);
  switch (n.role) {
    case Role::Variable:  // its binding was printed to read to the image
      out_ << form_->atom(i);
      return;
    case Role::Annotated:  // (! TERM ...) and (as TERM SORT) read to TERM
    case Role::Qualified:
      tasks_.push_back({i + 2, nullptr});
      return;
    case Role::Let:
      return let(i);
    case Role::Application:
      return application(i, image);
    default:
      term(image);
      return;
  }
}

// Whether node i may reach the back end as written: not a qualified term,
// not an application of an operator that back ends do not all read, nor
// and/or with one argument, nor an n-ary chain for a solver that reads
// binary ones only.
bool WrittenPrinter::sendable(std::size_t i) const {
  const WrittenTerm::Node& n = form_->nodes[i];
  if (n.role == Role::Qualified) return false;
  if (n.role != Role::Application || n.op == nullptr) return true;
  if (!is_sendable_as_written(*n.op)) return false;
  if (binary_chains_ && is_chain(n.op->name) && children(i).size() > 3) return false;
  if (n.op->shape != Shape::Connective) return true;
  const auto& nodes = form_->nodes;
  const std::size_t first = i + 1 + nodes[i + 1].size;  // past the operator
  return first + nodes[first].size < i + n.size;        // a second argument
}

void WrittenPrinter::application(std::size_t i, const Term* image) {
  if (!sendable(i) || !rebuilds(i, image)) return term(image);
  const std::vector<std::size_t> c = children(i);
  out_ << '(';
  copy(c[0]);
  tasks_.push_back({kNone, ")"});
  for (std::size_t k = c.size(); k-- > 1;) {
    tasks_.push_back({c[k], nullptr});
    tasks_.push_back({kNone, " "});
  }
}

// (let ((NAME VALUE) ...) BODY): each value and the body printed to read to
// their images, so that each variable reads to the image of its value.
void WrittenPrinter::let(std::size_t i) {
  const std::vector<std::size_t> c = children(i);
  const std::vector<std::size_t> bindings = children(c[1]);
  out_ << "(let (";
  tasks_.push_back({kNone, ")"});
  tasks_.push_back({c[2], nullptr});
  tasks_.push_back({kNone, ") "});
  for (std::size_t k = bindings.size(); k-- > 0;) {
    const std::size_t b = bindings[k];
    tasks_.push_back({kNone, ")"});
    tasks_.push_back({b + 2, nullptr});
    tasks_.push_back({kNone, " "});
    tasks_.push_back({b + 1, nullptr, true});  // the name
    tasks_.push_back({kNone, k > 0 ? " (" : "("});
  }
}

void WrittenPrinter::whole(const Term* t) {
  out_.str("");
  out_ << "(assert ";
  term(t);
  out_ << ")\n";
  script_ << out_.view();
}

bool WrittenPrinter::rebuilds(std::size_t i, const Term* image) {
  const WrittenTerm::Node& n = form_->nodes[i];
  if (n.op == nullptr) return false;
  const std::vector<std::size_t> c = children(i);
  std::vector<const Term*> args;
  args.reserve(c.size() - 1);
  for (std::size_t k = 1; k < c.size(); ++k) {
    const Term* arg = form_->nodes[c[k]].term;
    if (arg == nullptr) return false;
    args.push_back(image_(arg));
  }
  // apply_operator names the operator and the arguments in its errors; an
  // error only means the rebuilt term is not the image.
  smtlib::Node head;
  head.kind = smtlib::Node::Kind::Symbol;
  head.text = std::string(n.op->name);
  smtlib::Node app;
  app.children.assign(c.size(), &head);
  OperatorHead h;
  h.info = n.op;
  h.node = &head;
  h.i = n.i;
  h.j = n.j;
  try {
    return apply_operator(mgr_, h, app, args) == image;
  } catch (const InputError&) {
    return false;
  }
}

}  // namespace

namespace {

// Whether the names of the constants are distinct and no let of a written
// form binds one of them: a term printed with print_term inside that let
// would read the variable instead of the constant.
bool names_are_safe(const std::vector<const Term*>& constants,
                    const std::vector<WrittenAssertion>& assertions) {
  std::unordered_set<std::string> names;
  for (const Term* c : constants) {
    if (!names.insert(constant_name(c)).second) return false;
  }
  for (const WrittenAssertion& a : assertions) {
    if (a.form == nullptr) continue;
    const auto& nodes = a.form->nodes;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
      if (nodes[i].role != Role::Let) continue;
      const std::size_t list = i + 2;  // after '(' comes `let`, then the bindings
      for (std::size_t b = list + 1; b < list + nodes[list].size; b += nodes[b].size) {
        const WrittenTerm::Node& name = nodes[b + 1];
        if (names.contains(a.form->text.substr(name.text, name.length))) return false;
      }
    }
  }
  return true;
}

// Adds the constants of the terms that are not seen yet, in the order a
// depth-first walk meets them.
void add_constants(const std::vector<const Term*>& terms, std::unordered_set<const Term*>& seen,
                   std::vector<const Term*>& constants) {
  std::vector<const Term*> stack(terms.rbegin(), terms.rend());
  std::unordered_set<const Term*> visited;
  while (!stack.empty()) {
    const Term* t = stack.back();
    stack.pop_back();
    if (!visited.insert(t).second) continue;
    if (t->get_symbol()->op() == Op::Constant && seen.insert(t).second) constants.push_back(t);
    stack.insert(stack.end(), t->args().rbegin(), t->args().rend());
  }
}

// Whether the form is one to print the assertion from.
bool usable(const WrittenAssertion& a, const ImageOf& image) {
  return a.form != nullptr && !a.form->nodes.empty() && a.form->nodes[0].term == a.term &&
         image(a.term) == a.reduced;
}

}  // namespace

std::optional<std::string> print_written_script(TermManager& mgr,
                                                const std::vector<const Term*>& declared,
                                                const std::vector<const Term*>& more,
                                                const std::vector<WrittenAssertion>& assertions,
                                                const ImageOf& image, bool binary_chains) {
  std::vector<const Term*> constants = declared;
  std::unordered_set<const Term*> seen(declared.begin(), declared.end());
  for (const Term* c : more) {
    if (seen.insert(c).second) constants.push_back(c);
  }
  std::ostringstream body;
  WrittenPrinter printer(mgr, image, body, binary_chains);
  for (const WrittenAssertion& a : assertions) {
    if (!usable(a, image) || !printer.assertion(*a.form)) printer.whole(a.reduced);
  }
  // A printed let binding may hold a fresh constant that the reduced
  // assertions no longer have.
  add_constants(printer.printed(), seen, constants);
  if (!names_are_safe(constants, assertions)) return std::nullopt;
  std::ostringstream out;
  std::vector<const Term*> terms = constants;
  for (const WrittenAssertion& a : assertions) {
    terms.push_back(a.term);
    terms.push_back(a.reduced);
  }
  out << "(set-logic " << logic_of(terms) << ")\n";
  for (const Term* c : constants) {
    out << "(declare-fun " << quote_symbol(constant_name(c)) << " () ";
    print_sort(out, mgr, c->type());
    out << ")\n";
  }
  out << body.view();
  return out.str();
}

}  // namespace kora::smtlib
