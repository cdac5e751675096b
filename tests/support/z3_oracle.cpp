#include "support/z3_oracle.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace kora::test {

bool have_z3() {
  static const bool found = std::system("command -v z3 >/dev/null 2>&1") == 0;
  return found;
}

std::string run_z3_file(const std::string& path, unsigned timeout_seconds) {
  // z3's own hard timeout (-T) ends it without a shell wrapper; the path
  // comes from the tests themselves and is quoted for the shell.
  const std::string command =
      "z3 -T:" + std::to_string(timeout_seconds) + " -smt2 '" + path + "' 2>&1";
  std::string answer;
  if (FILE* pipe = ::popen(command.c_str(), "r")) {
    char block[4096];
    std::size_t n = 0;
    while ((n = std::fread(block, 1, sizeof block, pipe)) > 0) answer.append(block, n);
    ::pclose(pipe);
  }
  return answer;
}

std::string run_z3(const std::string& script, unsigned timeout_seconds) {
  char path[] = "/tmp/kora_z3_XXXXXX";
  const int fd = ::mkstemp(path);
  if (fd < 0) return "(cannot create a temporary file)";
  ::close(fd);
  std::ofstream(path) << script;
  std::string answer = run_z3_file(path, timeout_seconds);
  std::remove(path);
  return answer;
}

}  // namespace kora::test
