// kora-solve: unconstrained-term elimination with models in front of an SMT
// solver. Everything but the process boundary lives in the kora_solve
// library, so that tests run it in process.
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "kora-solve/command_line.h"
#include "kora-solve/process.h"

int main(int argc, char** argv) {
  // A Ctrl-C must not leave a solver running: they have process groups of
  // their own.
  kora::solve::kill_children_on_termination();
  std::vector<std::string> args(argv + 1, argv + argc);
  try {
    return kora::solve::run_command_line(args, std::cin, std::cout, std::cerr);
  } catch (const std::exception& e) {
    // Only a bug (or no memory left while reading) gets here: bad input and
    // failing solvers are answered. The run could not be finished, as when
    // the back end cannot start.
    std::cout.flush();
    std::cerr << "kora-solve: internal error: " << e.what() << '\n';
    return 2;
  }
}
