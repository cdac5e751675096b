#pragma once

// The script reader's state, shared by its command and term halves.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "kora/smtlib/operators.h"
#include "kora/smtlib/script.h"
#include "kora/smtlib/written.h"

namespace kora::smtlib {

// new_name for a standard script, which also refuses a name holding a
// control character: no solver reads one, and no message could show it.
std::string script_name(const Node& n, const char* what);

// A function defined with parameters: its body over placeholder constants,
// one per parameter, that a use replaces by the arguments.
struct Function {
  std::vector<const Term*> params;
  const Term* body = nullptr;
};

// What a name stands for: a term (declared constant, definition without
// parameters, let variable) or a function.
struct Binding {
  const Term* term = nullptr;
  const Function* function = nullptr;
  // For written forms: whether a term name is a declared constant (Plain), a
  // let variable bound by the (NAME VALUE) node numbered `binder` of the
  // current command, or a defined or :named name.
  WrittenTerm::Role role = WrittenTerm::Role::Plain;
  std::size_t binder = 0;
};

// What the reader learnt about one node of an asserted term while it
// elaborated it, by the node's index; valid where stamp is the command's.
struct Note {
  const Term* term = nullptr;
  WrittenTerm::Role role = WrittenTerm::Role::Text;
  std::size_t binder = 0;
  OperatorHead head{};
  std::uint32_t stamp = 0;
};

// Names with shadowing: each name has a stack of bindings, and an undo log
// lets any number of them be taken back in one step. The innermost binding
// lives in the name's entry itself and only shadowed ones in a vector, so
// declaring a name allocates nothing beyond its entry. Looking a name up
// happens once per symbol of the input, in files that declare thousands of
// names: an open-addressing index of (hash, entry) cells finds the entry with
// one probe of a flat array and one visit of the entry, where a node-based
// map visits a bucket and then a chain of nodes.
template <class T>
class ScopedTable {
 public:
  const T* find(const std::string& name) const {
    const Entry* e = lookup(name, std::hash<std::string>{}(name));
    return e == nullptr || e->slot.size == 0 ? nullptr : &e->slot.top;
  }
  void bind(const std::string& name, T value) {
    Slot& slot = entry(name).slot;
    if (slot.size++ > 0) slot.below.push_back(std::move(slot.top));
    slot.top = std::move(value);
    undo_.push_back(&slot);
  }
  std::size_t mark() const noexcept { return undo_.size(); }
  void restore(std::size_t mark) {
    while (undo_.size() > mark) {
      Slot& slot = *undo_.back();
      if (--slot.size > 0) {
        slot.top = std::move(slot.below.back());
        slot.below.pop_back();
      } else {
        slot.top = T{};
      }
      undo_.pop_back();
    }
  }
  void clear() {
    cells_.clear();
    entries_.clear();
    undo_.clear();
  }

 private:
  struct Slot {
    std::size_t size = 0;  // bindings of the name, top included
    T top{};
    std::vector<T> below;  // the shadowed ones, innermost last
  };
  struct Entry {
    std::string name;
    std::size_t hash = 0;
    Slot slot;
  };
  struct Cell {
    std::size_t hash = 0;
    Entry* entry = nullptr;  // null: empty
  };

  Entry* lookup(const std::string& name, std::size_t hash) const {
    if (cells_.empty()) return nullptr;
    const std::size_t mask = cells_.size() - 1;
    for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
      const Cell& c = cells_[i];
      if (c.entry == nullptr) return nullptr;
      if (c.hash == hash && c.entry->name == name) return c.entry;
    }
  }
  Entry& entry(const std::string& name) {
    const std::size_t hash = std::hash<std::string>{}(name);
    // cppcheck-suppress constVariable ; handed back as a mutable reference
    if (Entry* e = lookup(name, hash)) return *e;
    // At most half full, so that probe sequences stay short.
    if (2 * (entries_.size() + 1) > cells_.size()) grow();
    Entry& e = entries_.emplace_back();
    e.name = name;
    e.hash = hash;
    place(&e);
    return e;
  }
  void place(Entry* e) {
    const std::size_t mask = cells_.size() - 1;
    std::size_t i = e->hash & mask;
    while (cells_[i].entry != nullptr) i = (i + 1) & mask;
    cells_[i] = Cell{e->hash, e};
  }
  void grow() {
    cells_.assign(cells_.empty() ? 64 : 2 * cells_.size(), Cell{});
    for (Entry& e : entries_) place(&e);
  }

  std::vector<Cell> cells_;  // a power of two of them
  // A deque never moves its entries, so cells and the undo log can point
  // into it.
  std::deque<Entry> entries_;
  std::vector<Slot*> undo_;
};

class ScriptReader::Impl {
 public:
  Impl(std::istream& in, TermManager* mgr, std::string file_name)
      : reader_(in), mgr_(mgr), file_name_(std::move(file_name)) {}

  std::optional<Command> next();
  std::string message(const InputError& e) const;
  const Node* last_command() const noexcept { return reader_.current(); }

  std::vector<const Term*> declared_;
  std::vector<std::pair<std::string, const Term*>> named_;
  std::size_t depth_ = 0;
  // Whether asserts keep their written forms.
  bool keep_written_ = false;

 private:
  // How far each table reached when a level was opened; count levels were
  // opened at the same point.
  struct Level {
    std::size_t names, sorts, functions, declared, named, count;
  };
  struct Pending {
    std::string name;
    const Term* term;
  };

  // Commands (script.cpp).
  Command command(const Node& cmd);
  void declare(const Node& cmd, Command& out);
  void define_fun(const Node& cmd, Command& out);
  void define_const(const Node& cmd, Command& out);
  void define_sort(const Node& cmd, Command& out);
  void attribute(const Node& cmd, Command& out, bool with_value);
  void terms(const Node& list, Command& out, bool written);
  void push(std::size_t count);
  void pop(std::size_t count);
  std::size_t levels(const Node& cmd) const;
  void reset();
  // An unsupported standard command, or throws for any other.
  void unsupported(const Node& cmd, Command& out);
  std::string new_symbol(const Node& n, const char* what) const;

  // Sorts and terms (script_terms.cpp).
  class Walk;
  const DataType* sort(const Node& n, std::size_t depth = 0);
  const DataType* array_sort(const Node& n, std::size_t depth);
  // A term of the given sort (null: any sort).
  const Term* term(const Node& n, const DataType* expected = nullptr);
  const Term* elaborate(const Node& root);
  const Term* symbol(const Node& n);
  // Refuses a malformed let, or one that binds a name twice.
  void check_let(const Node& n) const;
  const Term* call(const Function& f, const Node& app, const std::vector<const Term*>& args);
  const Term* substitute(const Function& f, const Node& app, const std::vector<const Term*>& args);
  void annotate(const Node& n, const Term* t);
  void commit_named();
  // Written forms (written.cpp): what the walk learnt about node n, while
  // an assert keeping its written form is read.
  void note(const Node& n, const Term* t, WrittenTerm::Role role, std::size_t binder = 0,
            const OperatorHead* head = nullptr);
  std::shared_ptr<const WrittenTerm> written_form(const Node& root);

  Reader reader_;
  TermManager* mgr_;
  std::string file_name_;
  ScopedTable<Binding> names_;
  ScopedTable<const DataType*> sorts_;
  std::deque<Function> functions_;
  std::vector<Level> levels_;
  // :named terms of the command being read, bound once it is read whole.
  std::vector<Pending> pending_;
  // Inside the body of a function with parameters, where a name could only
  // stand for a term over the placeholders.
  bool in_function_ = false;
  // Whether array sorts are read: every logic but QF_BV has them.
  bool arrays_ = true;
  // Terms visited by expansions in the current command.
  std::size_t expansion_steps_ = 0;
  // The notes of the assert being read, by node index, while noting_.
  bool noting_ = false;
  std::vector<Note> notes_;
  std::uint32_t note_stamp_ = 0;
  // substitute's memo by term identifier, valid where stamps_ holds stamp_.
  std::vector<const Term*> memo_;
  std::vector<std::uint32_t> stamps_;
  std::uint32_t stamp_ = 0;
};

}  // namespace kora::smtlib
