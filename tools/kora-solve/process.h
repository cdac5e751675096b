#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kora::solve {

using Clock = std::chrono::steady_clock;
// Every blocking call takes an absolute deadline; Deadline::max() waits for ever.
using Deadline = Clock::time_point;

// Makes a deadline `seconds` from now (none when absent).
Deadline deadline_after(std::optional<double> seconds);

// The program could not be started. `missing()` tells a program that is not
// installed (or not executable) apart from other failures.
class SpawnError : public std::runtime_error {
 public:
  SpawnError(const std::string& message, int error) : std::runtime_error(message), error_(error) {}
  int error() const noexcept { return error_; }
  bool missing() const noexcept;

 private:
  int error_;
};

enum class IoStatus : unsigned char {
  Ok,        // data moved
  Closed,    // the other end is closed (end of output, or the child stopped reading)
  TimedOut,  // the deadline passed first
  Overflow,  // the child wrote more than the output limit
};

// How a child ended, as waitpid reported it.
struct ExitStatus {
  bool signaled = false;
  int code = 0;  // exit status, or the signal number
  bool success() const noexcept { return !signaled && code == 0; }
  std::string describe() const;  // "exited with status 1", "was killed by signal 11 (...)"
};

// A child process with pipes on its standard input, output and error.
//
// The arguments are passed as a vector (no shell). The child runs in its own
// process group so that killing it also kills anything it started. It is
// killed and reaped on every way out of the owner's scope, exceptions
// included, so no child outlives this object and none is left a zombie.
// Standard error is collected in the background of every call, up to a
// bound, so that a child that floods it can neither block nor exhaust memory.
class Process {
 public:
  struct Limits {
    std::size_t max_error_output = std::size_t{64} << 10;
    std::size_t max_output = std::size_t{1} << 30;
  };

  // Throws SpawnError when the program cannot be started.
  explicit Process(const std::vector<std::string>& argv, Limits limits);
  explicit Process(const std::vector<std::string>& argv) : Process(argv, Limits{}) {}
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t pid() const noexcept { return pid_; }

  // Writes all of data. Output that arrives meanwhile is buffered, so a child
  // that answers before it has read everything cannot deadlock us. A child
  // that closed its input gives Closed, never SIGPIPE.
  IoStatus write(std::string_view data, Deadline deadline);
  // Signals the end of the input.
  void close_input() noexcept;
  // Appends at least one byte of standard output to out (Ok), or reports the
  // end of the output or the deadline.
  IoStatus read(std::string& out, Deadline deadline);
  // Reads standard output until the child closes it.
  IoStatus read_all(std::string& out, Deadline deadline);

  // Standard error as far as it was collected (the first max_error_output
  // bytes; later bytes are counted, not kept).
  const std::string& error_output() const noexcept { return error_output_; }
  std::size_t error_bytes_dropped() const noexcept { return error_dropped_; }
  // Drains what standard error holds now, without waiting.
  void collect_error_output();

  // Waits for the child to exit on its own until the deadline, then reaps it;
  // nullopt when it is still running at the deadline.
  std::optional<ExitStatus> wait(Deadline deadline);
  // Kills the child's process group and reaps the child (idempotent).
  ExitStatus kill() noexcept;
  // The status once reaped.
  const std::optional<ExitStatus>& exit_status() const noexcept { return status_; }

 private:
  IoStatus pump(Deadline deadline, bool want_output, std::string* out);
  void drain_error() noexcept;
  ExitStatus reap() noexcept;
  void close_all() noexcept;

  pid_t pid_ = -1;
  int in_ = -1;
  int out_ = -1;
  int err_ = -1;
  Limits limits_;
  std::size_t output_bytes_ = 0;
  std::string pending_output_;  // read while writing, handed out by read()
  std::string error_output_;
  std::size_t error_dropped_ = 0;
  std::optional<ExitStatus> status_;
};

// Children run in process groups of their own, so the signals of a Ctrl-C
// or a kill of this program do not reach them. This installs handlers for
// SIGINT, SIGTERM, SIGHUP and SIGQUIT (unless ignored) that kill the group of
// every live Process and then end the program by the same signal. For main().
void kill_children_on_termination();

// A child's standard output as a stream buffer, so that a stream parser
// reads the answers as they arrive. At the deadline, at the end of the output
// or past the output limit it reports the end of the stream; status() tells
// which.
class OutputBuffer : public std::streambuf {
 public:
  OutputBuffer(Process& process, Deadline deadline) : process_(process), deadline_(deadline) {}
  IoStatus status() const noexcept { return status_; }
  // Reads from now on end at this deadline instead.
  void set_deadline(Deadline deadline) noexcept { deadline_ = deadline; }

 protected:
  int_type underflow() override;

 private:
  Process& process_;
  Deadline deadline_;
  IoStatus status_ = IoStatus::Ok;
  std::string chunk_;
};

}  // namespace kora::solve
