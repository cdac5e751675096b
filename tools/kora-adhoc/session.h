#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "kora-adhoc/inverter.h"

namespace kora::frontend {

struct Options {
  // The logger's verbosity limit; level 2 shows every recorded value.
  int verbosity = 0;
  // Supplies the inverter of `invert`; empty: `invert` is refused.
  InverterFactory make_inverter = builtin_inverter();
};

// One kora-adhoc session: the term manager, model store, free-term predicate
// and calculators that the commands act on. Inputs given to process() in
// turn form one session, as the files of one command line do.
//
// Responses go to `out`, one line each; log records go to `err`. No input,
// however malformed, makes it crash, hang or leak: malformed commands are
// answered with (error "FILE:LINE:COLUMN: ...") and skipped.
class Session {
 public:
  Session(std::ostream& out, std::ostream& err, Options options = {});
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session();

  // Runs the commands of `in` until its end, (exit), or a response that
  // `out` fails to take; `file_name` names it in error positions. Returns
  // false when some command of it was malformed. What reading `in` throws
  // (such as ReadError) passes through.
  bool process(std::istream& in, const std::string& file_name);
  // Whether (exit) was read: later inputs are not to be processed.
  bool exited() const noexcept;
  // Whether every command so far was well formed.
  bool ok() const noexcept;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

// One whole session over one input: the exit status, 0 when every command
// was well formed, 1 otherwise.
int run(std::istream& in, const std::string& file_name, std::ostream& out, std::ostream& err,
        Options options = {});

// The command line of kora-adhoc (args without the program name): options,
// then the files, `-` or none for `in`. Returns the exit status: 0, 1 when a
// command was malformed, 2 for a usage error, an input that cannot be opened
// or read, or responses that cannot be written to `out` (the reason goes to
// `err`). When `in` reads through an InputFileBuffer, standard input that is
// a directory is refused and a failed read is reported; when `out` writes
// through an OutputFileBuffer, a failed write names its cause.
int run_command_line(const std::vector<std::string>& args, std::istream& in, std::ostream& out,
                     std::ostream& err, InverterFactory make_inverter = builtin_inverter());

// Text of --help and --version.
std::string help_text();
std::string version_text();

}  // namespace kora::frontend
