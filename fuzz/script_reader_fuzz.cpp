// Feeds arbitrary bytes to the standard SMT-LIB script reader. Whatever the
// bytes, each command must be read or refused with an InputError: no crash,
// leak, sanitizer report or other exception, and no input slow enough to
// trip libFuzzer's timeout. What is read must be well formed: asserted and
// assumed terms are Boolean, declarations are constants, and every name in
// scope stays so until popped.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "kora/smtlib/script.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

void check(const kora::smtlib::Command& c, const kora::TermManager& mgr) {
  using Kind = kora::smtlib::Command::Kind;
  switch (c.kind) {
    case Kind::Assert:
      require(c.term->type() == mgr.bool_type());
      break;
    case Kind::CheckSatAssuming:
      for (const kora::Term* t : c.terms) require(t->type() == mgr.bool_type());
      break;
    case Kind::DeclareConst:
      require(c.term->arity() == 0 && kora::smtlib::name_of(c.term) == c.name);
      break;
    case Kind::GetValue:
      require(c.terms.size() == c.written.size() && !c.terms.empty());
      break;
    default:
      break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  kora::TermManager mgr;
  kora::smtlib::ScriptReader reader(in, &mgr, "fuzz.smt2");
  for (;;) {
    try {
      std::optional<kora::smtlib::Command> c = reader.next();
      if (!c) break;
      check(*c, mgr);
    } catch (const kora::smtlib::InputError& e) {
      require(!reader.message(e).empty());
    }
  }
  for (const kora::Term* t : reader.declared()) require(t->arity() == 0);
  for (const auto& [name, t] : reader.named()) require(t->type() == mgr.bool_type());
  return 0;
}
