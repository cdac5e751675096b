#pragma once

#include <istream>
#include <ostream>
#include <string>
#include <vector>

namespace kora::solve {

// kora-solve's whole run for the arguments after the program name: reads
// the script (FILE, or in when absent or '-'), answers on out, reports
// statistics, logs and usage errors on err. Returns the exit status.
int run_command_line(const std::vector<std::string>& args, std::istream& in, std::ostream& out,
                     std::ostream& err);

}  // namespace kora::solve
