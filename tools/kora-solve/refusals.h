#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kora::solve {

// The refused commands that may have left kora with other assertions than
// the script's, for as long as they would be in force. A refused assert
// would be in force until the level open at it is popped; a refused push,
// pop, reset or reset-assertions (or a command whose name could not be
// read) leaves kora's levels out of step with the script's until a reset or
// reset-assertions. Meanwhile no check-sat can answer for the script.
class Refusals {
 public:
  // Whether refusing the command named `command` may change the problem
  // (an empty name: the command could not be read far enough to tell).
  static bool changes_problem(std::string_view command);

  // The command was refused at line, with depth levels open.
  void refused(std::string_view command, std::size_t line, std::size_t depth);
  // Levels were popped: depth remain open.
  void popped(std::size_t depth);
  // reset or reset-assertions: kora and the script agree again.
  void cleared() { in_force_.clear(); }

  // Why a check-sat cannot answer now; empty when nothing refused is in force.
  std::string reason() const;

 private:
  struct Entry {
    std::string command;
    std::size_t line = 0;
    // In force until fewer levels than this are open; 0: until a reset.
    std::size_t depth = 0;
  };
  // Oldest first. Each outlives the ones before it: a refusal that the
  // newest one outlives adds nothing, and pops end the oldest first.
  std::vector<Entry> in_force_;
};

}  // namespace kora::solve
