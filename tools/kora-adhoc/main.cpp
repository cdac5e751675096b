// kora-adhoc: drives the term layer, the model store and the calculators
// from SMT-LIB 2 scripts. Everything but the process boundary lives in the
// kora_frontend library, so that tests and fuzzers run it in process.
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "kora-adhoc/session.h"

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  try {
    return kora::frontend::run_command_line(args, std::cin, std::cout, std::cerr);
  } catch (const std::exception& e) {
    // Only a bug gets here: every malformed input is answered in the session.
    std::cout.flush();
    std::cerr << "kora-adhoc: internal error: " << e.what() << '\n';
    return 3;
  }
}
