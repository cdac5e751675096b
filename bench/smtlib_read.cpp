// Reads one SMT-LIB script with ScriptReader and reports, as one JSON line,
// its size, the commands and assertions read, the errors, and the time the
// reading took inside the process and its peak memory, from an ifstream as the tools read
// (the harness reads the file first, so it comes from the page cache).
// bench/read_bench.py runs it once per file, each in its own process, for a
// peak memory per file.
//
//   kora-smtlib-read FILE

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>

#include "kora/smtlib/script.h"

namespace {

struct Counts {
  std::size_t commands = 0;
  std::size_t assertions = 0;
  std::size_t errors = 0;
};

Counts read_all(std::istream& in, kora::TermManager* mgr, const std::string& name) {
  kora::smtlib::ScriptReader reader(in, mgr, name);
  Counts c;
  for (;;) {
    try {
      std::optional<kora::smtlib::Command> cmd = reader.next();
      if (!cmd) break;
      ++c.commands;
      if (cmd->kind == kora::smtlib::Command::Kind::Assert) ++c.assertions;
    } catch (const kora::smtlib::InputError& e) {
      if (c.errors++ == 0) std::cerr << reader.message(e) << '\n';
    }
  }
  return c;
}

// The peak resident set size of this process in KiB (VmHWM), or 0 where
// /proc does not tell. A harness cannot take it from wait4: a child spawned
// by a Python interpreter counts the interpreter's pages as its own.
std::size_t peak_kib() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stoul(line.substr(6));
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: kora-smtlib-read FILE\n";
    return 2;
  }
  std::ifstream file(argv[1], std::ios::binary);
  if (!file) {
    std::cerr << argv[1] << ": cannot open\n";
    return 2;
  }
  const std::uintmax_t bytes = std::filesystem::file_size(argv[1]);
  kora::TermManager mgr;
  const auto start = std::chrono::steady_clock::now();
  const Counts c = read_all(file, &mgr, argv[1]);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  std::printf(
      "{\"bytes\": %zu, \"commands\": %zu, \"assertions\": %zu, \"errors\": %zu, "
      "\"seconds\": %.6f, \"peak_kib\": %zu}\n",
      static_cast<std::size_t>(bytes), c.commands, c.assertions, c.errors, took.count(),
      peak_kib());
  return c.errors == 0 ? 0 : 1;
}
