// kora-adhoc: drives the term layer, the model store and the calculators
// from SMT-LIB 2 scripts. Everything but the process boundary lives in the
// kora_frontend library, so that tests and fuzzers run it in process.
#include <unistd.h>

#include <exception>
#include <iostream>
#include <istream>
#include <ostream>
#include <string>
#include <vector>

#include "kora-adhoc/file_io.h"
#include "kora-adhoc/session.h"

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  // The standard streams would take a read error for the end of the input
  // and lose a failed write without a word; these report both.
  kora::frontend::InputFileBuffer stdin_buffer(STDIN_FILENO, false);
  kora::frontend::OutputFileBuffer stdout_buffer(STDOUT_FILENO);
  std::istream in(&stdin_buffer);
  std::ostream out(&stdout_buffer);
  try {
    return kora::frontend::run_command_line(args, in, out, std::cerr);
  } catch (const std::exception& e) {
    // Only a bug gets here: every malformed input is answered in the session.
    out.flush();
    std::cerr << "kora-adhoc: internal error: " << e.what() << '\n';
    return 3;
  }
}
