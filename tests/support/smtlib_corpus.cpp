#include "support/smtlib_corpus.h"

#include <algorithm>
#include <fstream>
#include <optional>
#include <sstream>

#include "kora/smtlib/printer.h"
#include "kora/smtlib/script.h"

namespace kora::test {

namespace fs = std::filesystem;

std::vector<fs::path> smt2_files(const fs::path& dir) {
  std::vector<fs::path> files;
  for (const fs::directory_entry& e : fs::directory_iterator(dir)) {
    if (e.path().extension() == ".smt2") files.push_back(e.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

namespace {

ReadScript read_stream(std::istream& in, TermManager* mgr, const std::string& name) {
  smtlib::ScriptReader reader(in, mgr, name);
  ReadScript out;
  for (;;) {
    try {
      std::optional<smtlib::Command> c = reader.next();
      if (!c) break;
      if (c->kind == smtlib::Command::Kind::Assert) out.assertions.push_back(c->term);
      if (c->kind == smtlib::Command::Kind::CheckSat) ++out.check_sats;
    } catch (const smtlib::InputError& e) {
      out.errors.push_back(reader.message(e));
    }
  }
  return out;
}

}  // namespace

ReadScript read_script_text(const std::string& text, TermManager* mgr, const std::string& name) {
  std::istringstream in(text);
  return read_stream(in, mgr, name);
}

ReadScript read_script_file(const fs::path& path, TermManager* mgr) {
  std::ifstream in(path, std::ios::binary);
  return read_stream(in, mgr, path.filename().string());
}

std::string printed_script(const TermManager& mgr, const std::vector<const Term*>& assertions) {
  std::ostringstream os;
  smtlib::print_script(os, mgr, assertions);
  return os.str();
}

}  // namespace kora::test
