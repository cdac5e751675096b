#pragma once

// Real SMT-LIB benchmark files for the tests of the SMT-LIB layer: the few
// vendored under tests/smtlib/inputs/ and the shared corpus beside the
// project, when present.

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"

namespace kora::test {

// The .smt2 files of dir, sorted by name.
std::vector<std::filesystem::path> smt2_files(const std::filesystem::path& dir);

// What reading one script gave.
struct ReadScript {
  std::vector<const Term*> assertions;  // in order
  std::vector<std::string> errors;      // "FILE:LINE:COLUMN: message"
  std::size_t check_sats = 0;
};

// Reads the script in text with ScriptReader into mgr, going on after errors.
ReadScript read_script_text(const std::string& text, TermManager* mgr, const std::string& name);

// The same for a file.
ReadScript read_script_file(const std::filesystem::path& path, TermManager* mgr);

// The assertions as print_script writes them.
std::string printed_script(const TermManager& mgr, const std::vector<const Term*>& assertions);

}  // namespace kora::test
