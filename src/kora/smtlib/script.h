#pragma once

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kora/smtlib/reader.h"
#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"

namespace kora::smtlib {

struct WrittenTerm;

// Expanding defined functions can make a term graph exponential in the
// script's length (each level calling the last with two different
// arguments), so one command may visit at most this many terms while it
// expands them.
inline constexpr std::size_t kMaxExpansionSteps = std::size_t{1} << 20;

// At most this many levels can be open at once: as many as a solver's
// (push N) accepts, so that every level can be handed on.
inline constexpr std::size_t kMaxLevels = 4294967295;

// One command of a standard SMT-LIB 2 script, elaborated.
struct Command {
  enum class Kind : unsigned char {
    SetLogic,
    SetInfo,
    SetOption,
    DeclareConst,  // also a nullary declare-fun
    DefineFun,     // also define-const
    DefineSort,
    Assert,
    CheckSat,
    CheckSatAssuming,
    GetModel,
    GetValue,
    GetAssignment,
    GetInfo,
    GetOption,
    // A standard command outside what the reader answers (get-proof,
    // get-unsat-core ...): a solver answers `unsupported`.
    Unsupported,
    Push,
    Pop,
    Reset,
    ResetAssertions,
    Echo,
    Exit,
  };

  Kind kind = Kind::Exit;
  Position pos;  // of the command's '('
  // The logic, the keyword (":produce-models"), the echoed text, the
  // declared or defined name, or the unsupported command's name.
  std::string name;
  // The value of set-option or set-info, when present. It belongs to the
  // reader and lives until the next call of next().
  const Node* attribute = nullptr;
  // assert: the elaborated term; declare-const: the new constant;
  // define-fun without parameters: its body.
  const Term* term = nullptr;
  std::vector<const Term*> terms;    // get-value, check-sat-assuming
  std::vector<std::string> written;  // get-value: each term as written, on one line
  std::size_t count = 0;             // push, pop: the number of levels
  // assert, when the reader keeps written forms: the term as written.
  std::shared_ptr<const WrittenTerm> form;
};

// Reads a standard QF_BV script command by command and elaborates its terms
// through a hash-consing term manager. Operators the term layer lacks are
// rewritten by their SMT-LIB definitions, and functions defined with
// parameters are expanded at each use, so every term uses only the term
// layer's operators and shares its subterms.
//
// The reader keeps the scopes of names: push and pop open and close levels
// of declarations and definitions, reset forgets everything, and
// reset-assertions pops every level.
class ScriptReader {
 public:
  ScriptReader(std::istream& in, TermManager* mgr, std::string file_name);
  ~ScriptReader();
  ScriptReader(const ScriptReader&) = delete;
  ScriptReader& operator=(const ScriptReader&) = delete;

  // The next command, or nullopt at the end of the input. A malformed or
  // unsupported command throws InputError once it has been skipped and
  // undone; the caller reports it (see message()) and calls next() again.
  std::optional<Command> next();

  // Whether each assert from now on also gives its written form
  // (Command::form; written.h). Off by default: it costs memory in
  // proportion to the asserted text.
  void keep_written(bool on);

  // Declared constants in scope, in declaration order (for get-model).
  const std::vector<const Term*>& declared() const;
  // Named Boolean terms (:named) in scope, in naming order (for
  // get-assignment).
  const std::vector<std::pair<std::string, const Term*>>& named() const;
  // Levels opened by push and not yet popped.
  std::size_t depth() const;

  // "FILE:LINE:COLUMN: message" for an error thrown by next().
  std::string message(const InputError& e) const;

  // The command that next() returned or refused last: its name (empty when
  // it could not be read) and the position of its '('. nullopt when no
  // command was begun (a stray token).
  struct Head {
    std::string name;
    Position pos;
  };
  std::optional<Head> last_command() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

// The name a declared constant was declared with, without the bars that
// the term layer prints around a name that is not a simple symbol.
std::string name_of(const Term* constant);

}  // namespace kora::smtlib
