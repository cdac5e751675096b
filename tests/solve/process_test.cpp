#include "kora-solve/process.h"

#include <gtest/gtest.h>

#include <istream>
#include <stdexcept>
#include <string>

#include "solve/children.h"

namespace kora::solve {
namespace {

using testing::children_of_self;
using testing::gone;
using testing::reaped;

std::vector<std::string> sh(const std::string& snippet) {
  return {"/bin/sh", "-c", snippet};
}

Deadline soon() {
  return deadline_after(10.0);
}

TEST(ProcessTest, ExchangesInputAndOutput) {
  Process p(sh("read line; echo \"got $line\"; read again; echo \"and $again\""));
  ASSERT_EQ(p.write("one\ntwo\n", soon()), IoStatus::Ok);
  p.close_input();
  std::string out;
  ASSERT_EQ(p.read_all(out, soon()), IoStatus::Ok);
  EXPECT_EQ(out, "got one\nand two\n");
  auto status = p.wait(soon());
  ASSERT_TRUE(status.has_value());
  EXPECT_TRUE(status->success());
  EXPECT_EQ(status->describe(), "exited with status 0");
}

TEST(ProcessTest, ReportsExitStatusAndSignal) {
  Process exits(sh("exit 7"));
  auto status = exits.wait(soon());
  ASSERT_TRUE(status.has_value());
  EXPECT_FALSE(status->success());
  EXPECT_EQ(status->code, 7);
  EXPECT_EQ(status->describe(), "exited with status 7");

  Process dies(sh("kill -SEGV $$"));
  status = dies.wait(soon());
  ASSERT_TRUE(status.has_value());
  EXPECT_TRUE(status->signaled);
  EXPECT_EQ(status->code, SIGSEGV);
  EXPECT_NE(status->describe().find("killed by signal 11"), std::string::npos);
}

TEST(ProcessTest, PassesArgumentsWithoutAShell) {
  Process p({"/bin/echo", "a b", "$HOME", "*"});
  std::string out;
  ASSERT_EQ(p.read_all(out, soon()), IoStatus::Ok);
  EXPECT_EQ(out, "a b $HOME *\n");
}

TEST(ProcessTest, MissingProgramIsASpawnError) {
  try {
    Process p({"kora-no-such-program-anywhere"});
    FAIL() << "started a program that does not exist";
  } catch (const SpawnError& e) {
    EXPECT_TRUE(e.missing());
    EXPECT_NE(std::string(e.what()).find("kora-no-such-program-anywhere"), std::string::npos);
  }
  EXPECT_THROW(Process p(std::vector<std::string>{}), SpawnError);
  EXPECT_TRUE(children_of_self().empty());
}

// Writes far more than a pipe holds, so that the write must meet the closed
// pipe (as Closed, not SIGPIPE), then reads what the child said.
std::string write_past_closed_input(Process& p) {
  std::string big(4 << 20, 'x');
  EXPECT_EQ(p.write(big, soon()), IoStatus::Closed);
  std::string out;
  EXPECT_EQ(p.read_all(out, soon()), IoStatus::Ok);
  return out;
}

TEST(ProcessTest, ChildThatExitsEarlyGivesClosedNotSigpipe) {
  Process p(sh("echo bye; exit 0"));
  ASSERT_TRUE(p.wait(soon()).has_value());
  EXPECT_EQ(write_past_closed_input(p), "bye\n");
}

TEST(ProcessTest, ChildThatClosesItsInputStillAnswers) {
  Process p(sh("exec 0<&-; sleep 0.1; echo ok"));
  EXPECT_EQ(write_past_closed_input(p), "ok\n");
}

TEST(ProcessTest, WritingWhileTheChildAnswersDoesNotDeadlock) {
  // cat answers as it reads: both pipes fill unless the write also reads.
  Process p({"cat"});
  std::string big(8 << 20, 'y');
  ASSERT_EQ(p.write(big, soon()), IoStatus::Ok);
  p.close_input();
  std::string out;
  ASSERT_EQ(p.read_all(out, soon()), IoStatus::Ok);
  EXPECT_EQ(out, big);
}

TEST(ProcessTest, HangingChildTimesOutAndIsKilled) {
  pid_t pid = -1;
  {
    Process p({"sleep", "1000"});
    pid = p.pid();
    std::string out;
    EXPECT_EQ(p.read(out, deadline_after(0.2)), IoStatus::TimedOut);
    EXPECT_FALSE(p.wait(deadline_after(0.1)).has_value());
    EXPECT_EQ(p.write("x", deadline_after(0.0)), IoStatus::Ok);
  }
  EXPECT_TRUE(reaped(pid));
}

TEST(ProcessTest, KillReachesTheChildsOwnChildren) {
  pid_t grandchild = -1;
  pid_t pid = -1;
  {
    Process p(sh("sleep 1000 & echo $!; wait"));
    pid = p.pid();
    std::string out;
    while (out.find('\n') == std::string::npos) {
      ASSERT_EQ(p.read(out, soon()), IoStatus::Ok);
    }
    grandchild = static_cast<pid_t>(std::stol(out));
    ExitStatus s = p.kill();
    EXPECT_TRUE(s.signaled);
    EXPECT_EQ(s.code, SIGKILL);
  }
  EXPECT_TRUE(reaped(pid));
  EXPECT_TRUE(gone(grandchild));
}

TEST(ProcessTest, ExitingChildLeavesNothingBehind) {
  Process p(sh("sleep 1000 & echo $!"));
  std::string out;
  while (out.find('\n') == std::string::npos) {
    ASSERT_EQ(p.read(out, soon()), IoStatus::Ok);
  }
  auto grandchild = static_cast<pid_t>(std::stol(out));
  auto status = p.wait(soon());
  ASSERT_TRUE(status.has_value());
  EXPECT_TRUE(status->success());
  EXPECT_TRUE(reaped(p.pid()));
  EXPECT_TRUE(children_of_self().empty());
  EXPECT_TRUE(gone(grandchild));
}

TEST(ProcessTest, ExceptionUnwindingKillsTheChild) {
  pid_t pid = -1;
  try {
    Process p({"sleep", "1000"});
    pid = p.pid();
    throw std::runtime_error("unwind");
  } catch (const std::runtime_error&) {
  }
  ASSERT_GT(pid, 0);
  EXPECT_TRUE(reaped(pid));
  EXPECT_TRUE(children_of_self().empty());
}

TEST(ProcessTest, StandardErrorIsKeptUpToItsBound) {
  Process::Limits limits;
  limits.max_error_output = 1000;
  Process p(sh("echo first words >&2; head -c 5000000 /dev/zero >&2; echo done"), limits);
  std::string out;
  ASSERT_EQ(p.read_all(out, soon()), IoStatus::Ok);
  EXPECT_EQ(out, "done\n");
  ASSERT_TRUE(p.wait(soon()).has_value());
  EXPECT_EQ(p.error_output().size(), 1000U);
  EXPECT_EQ(p.error_output().substr(0, 12), "first words\n");
  EXPECT_EQ(p.error_bytes_dropped(), 12U + 5000000U - 1000U);
}

TEST(ProcessTest, OutputBeyondTheLimitIsAnOverflow) {
  Process::Limits limits;
  limits.max_output = 100000;
  Process p(sh("head -c 1000000 /dev/zero"), limits);
  std::string out;
  EXPECT_EQ(p.read_all(out, soon()), IoStatus::Overflow);
  EXPECT_LE(out.size(), 100000U);
}

TEST(ProcessTest, BinaryGarbagePassesThroughUnchanged) {
  Process p(sh("printf 'a\\000b\\377\\n'"));
  std::string out;
  ASSERT_EQ(p.read_all(out, soon()), IoStatus::Ok);
  EXPECT_EQ(out, std::string("a\0b\xff\n", 5));
}

TEST(ProcessTest, OutputBufferStreamsLinesAndStopsAtTheDeadline) {
  Process p(sh("echo one; echo two; sleep 1000"));
  OutputBuffer buffer(p, deadline_after(0.5));
  std::istream in(&buffer);
  std::string line;
  ASSERT_TRUE(std::getline(in, line));
  EXPECT_EQ(line, "one");
  ASSERT_TRUE(std::getline(in, line));
  EXPECT_EQ(line, "two");
  EXPECT_FALSE(std::getline(in, line));
  EXPECT_EQ(buffer.status(), IoStatus::TimedOut);
}

TEST(ProcessTest, DeadlineAfter) {
  EXPECT_EQ(deadline_after(std::nullopt), Deadline::max());
  EXPECT_EQ(deadline_after(1e300), Deadline::max());
  Deadline before = Clock::now();
  Deadline d = deadline_after(2.5);
  EXPECT_GE(d - before, std::chrono::milliseconds(2500));
  EXPECT_LT(d - before, std::chrono::seconds(60));
  Deadline past = deadline_after(-1.0);
  EXPECT_LE(past, Clock::now());
}

TEST(ProcessTest, TerminationSignalKillsTheChildren) {
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  pid_t program = ::fork();
  ASSERT_GE(program, 0);
  if (program == 0) {
    // Stands for a kora-solve killed while its solver runs.
    ::close(fds[0]);
    kill_children_on_termination();
    Process solver({"sleep", "1000"});
    pid_t pid = solver.pid();
    if (::write(fds[1], &pid, sizeof pid) != sizeof pid) ::_exit(1);
    for (;;) ::pause();
  }
  ::close(fds[1]);
  pid_t solver = 0;
  ASSERT_EQ(::read(fds[0], &solver, sizeof solver), static_cast<ssize_t>(sizeof solver));
  ::close(fds[0]);
  ASSERT_EQ(::kill(program, SIGTERM), 0);
  int raw = 0;
  ASSERT_EQ(::waitpid(program, &raw, 0), program);
  EXPECT_TRUE(WIFSIGNALED(raw));
  EXPECT_EQ(WTERMSIG(raw), SIGTERM);
  EXPECT_TRUE(gone(solver));
}

}  // namespace
}  // namespace kora::solve
