#pragma once

// z3 as an oracle: tests hand it a script (or a file) and compare its answer
// with what kora claims. Tests that need it skip when z3 is not installed.

#include <string>

namespace kora::test {

// Whether a z3 executable is on PATH (looked up once).
bool have_z3();

// z3's whole answer (standard output and error) to the script in the file at
// path, z3 being stopped after timeout_seconds ("timeout" then).
std::string run_z3_file(const std::string& path, unsigned timeout_seconds = 60);

// The same for a script given as text (written to a temporary file).
std::string run_z3(const std::string& script, unsigned timeout_seconds = 60);

}  // namespace kora::test

#define KORA_REQUIRE_Z3() \
  if (!::kora::test::have_z3()) GTEST_SKIP() << "z3 is not on PATH"
