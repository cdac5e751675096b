#include "kora-solve/refusals.h"

#include <algorithm>

namespace kora::solve {

bool Refusals::changes_problem(std::string_view command) {
  return command.empty() || command == "assert" || command == "push" || command == "pop" ||
         command == "reset" || command == "reset-assertions";
}

void Refusals::refused(std::string_view command, std::size_t line, std::size_t depth) {
  // Only a refused assert ends with its level; anything else desynchronises
  // the levels themselves.
  const std::size_t until = command == "assert" ? depth : 0;
  if (!in_force_.empty() && in_force_.back().depth <= until) return;
  in_force_.push_back(
      {command.empty() ? std::string("command") : std::string(command), line, until});
}

void Refusals::popped(std::size_t depth) {
  auto ended = std::find_if(in_force_.begin(), in_force_.end(),
                            [depth](const Entry& e) { return e.depth <= depth; });
  in_force_.erase(in_force_.begin(), ended);
}

std::string Refusals::reason() const {
  if (in_force_.empty()) return {};
  const Entry& e = in_force_.front();
  return "the " + e.command + " at line " + std::to_string(e.line) +
         " was refused: the assertions in force are not those of the script";
}

}  // namespace kora::solve
