#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "kora-adhoc/file_io.h"
#include "kora-adhoc/session.h"

namespace kora::frontend {
namespace {

struct Result {
  std::string out;
  std::string err;
  int status = 0;
};

Result run_args_on(const std::vector<std::string>& args, std::istream& in) {
  std::ostringstream out;
  std::ostringstream err;
  Result r;
  r.status = run_command_line(args, in, out, err);
  r.out = out.str();
  r.err = err.str();
  return r;
}

Result run_args(const std::vector<std::string>& args, const std::string& stdin_text = "") {
  std::istringstream in(stdin_text);
  return run_args_on(args, in);
}

// A script file that lives as long as the test.
class ScriptFile {
 public:
  ScriptFile(const std::string& name, const std::string& text)
      : path_(::testing::TempDir() + name) {
    std::ofstream(path_) << text;
  }
  ~ScriptFile() { std::remove(path_.c_str()); }
  ScriptFile(const ScriptFile&) = delete;
  ScriptFile& operator=(const ScriptFile&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

TEST(CommandLine, HelpAndVersion) {
  Result r = run_args({"--help"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, help_text());
  EXPECT_EQ(r.out.rfind("usage: kora-adhoc [-v N | --verbosity N] [FILE ...]\n", 0), 0U);
  r = run_args({"--version", "ignored.smt2"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, version_text());
  EXPECT_EQ(r.out.rfind("kora-adhoc ", 0), 0U);
}

TEST(CommandLine, ReadsStandardInputByDefaultAndForADash) {
  Result r = run_args({}, "(echo \"in\")(bad)");
  EXPECT_EQ(r.out, "in\n(error \"<stdin>:1:13: unknown command 'bad'\")\n");
  EXPECT_EQ(r.status, 1);
  r = run_args({"-"}, "(echo \"in\")");
  EXPECT_EQ(r.out, "in\n");
  EXPECT_EQ(r.status, 0);
}

TEST(CommandLine, FilesFormOneSession) {
  ScriptFile first("kora_cli_first.smt2", "(declare-const a Bool)\n(set-free a)\n");
  ScriptFile second("kora_cli_second.smt2", "(calculate (not a) true)\n(nope)\n");
  Result r = run_args({"-v", "2", first.path(), "-", second.path()}, "(echo \"middle\")");
  EXPECT_EQ(r.out, "middle\n((= a false))\n(error \"" + second.path() +
                       ":2:2: unknown command 'nope'\")\n");
  EXPECT_EQ(r.err, "calculated adhoc a := false ..\n");
  EXPECT_EQ(r.status, 1);
}

TEST(CommandLine, VerbosityForms) {
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"-v", "2"}, {"-v2"}, {"--verbosity", "2"}, {"--verbosity=2"}}) {
    Result r = run_args(args, "(declare-const a Bool)(set-free a)(calculate (not a) true)");
    EXPECT_EQ(r.err, "calculated adhoc a := false ..\n") << args[0];
    EXPECT_EQ(r.status, 0);
  }
  Result r = run_args({"-v", "-1"}, "(declare-const a Bool)(set-free a)(calculate (not a) true)");
  EXPECT_EQ(r.err, "");
}

TEST(CommandLine, UsageErrorsExitWithTwo) {
  for (const std::vector<std::string>& args : {std::vector<std::string>{"--bogus"},
                                               {"-v"},
                                               {"-v", "x"},
                                               {"--verbosity=1x"},
                                               {"-x"},
                                               {"/nonexistent/kora/script.smt2"},
                                               {"-", ::testing::TempDir()}}) {
    Result r = run_args(args, "(echo \"not read\")");
    EXPECT_EQ(r.status, 2) << args[0];
    EXPECT_EQ(r.out, "") << args[0];
    EXPECT_EQ(r.err.rfind("kora-adhoc: ", 0), 0U) << r.err;
  }
  EXPECT_EQ(run_args({"--bogus"}).err,
            "kora-adhoc: unknown option '--bogus'\n"
            "usage: kora-adhoc [-v N | --verbosity N] [FILE ...]\n"
            "Try 'kora-adhoc --help' for more information.\n");
  EXPECT_EQ(run_args({"/nonexistent/kora/script.smt2"}).err,
            "kora-adhoc: cannot read '/nonexistent/kora/script.smt2': No such file or "
            "directory\n");
}

TEST(CommandLine, DoubleDashEndsOptions) {
  Result r = run_args({"--", "--bogus"});
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, "kora-adhoc: cannot read '--bogus': No such file or directory\n");
}

TEST(CommandLine, AReadErrorEndsTheRunNamingTheFile) {
  ScriptFile first("kora_cli_before_error.smt2", "(echo \"answered\")");
  Result r = run_args({first.path(), "/proc/self/mem", first.path()});
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.out, "answered\n");
  EXPECT_EQ(r.err, "kora-adhoc: cannot read '/proc/self/mem': Input/output error\n");
}

// Standard input as the real program has it: a descriptor, read through
// InputFileBuffer.
Result run_with_stdin_fd(const std::vector<std::string>& args, int fd) {
  InputFileBuffer buffer(fd, true);
  std::istream in(&buffer);
  return run_args_on(args, in);
}

int open_directory() {
  return ::open(::testing::TempDir().c_str(), O_RDONLY | O_CLOEXEC);
}

TEST(CommandLine, StandardInputThatIsADirectoryIsRefused) {
  ScriptFile script("kora_cli_stdin_dir.smt2", "(echo \"read\")");
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{}, {"-"}, {script.path(), "-"}}) {
    Result r = run_with_stdin_fd(args, open_directory());
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "kora-adhoc: cannot read standard input: it is a directory\n");
  }
  // Standard input that is not read does not matter.
  Result r = run_with_stdin_fd({script.path()}, open_directory());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "read\n");
}

TEST(CommandLine, AReadErrorOnStandardInputNamesIt) {
  const std::string path = ::testing::TempDir() + "kora_cli_write_only";
  Result r = run_with_stdin_fd({}, ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  std::remove(path.c_str());
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, "kora-adhoc: cannot read standard input: Bad file descriptor\n");
}

// Takes `room` bytes, then fails every write.
class FailingBuffer final : public std::streambuf {
 public:
  explicit FailingBuffer(std::size_t room) : room_(room) {}
  std::string taken;

 protected:
  int_type overflow(int_type c) override {
    if (taken.size() >= room_) return traits_type::eof();
    taken += traits_type::to_char_type(c);
    return c;
  }
  int sync() override { return taken.size() >= room_ ? -1 : 0; }

 private:
  std::size_t room_;
};

TEST(CommandLine, AFailedWriteEndsTheRunWithTwo) {
  // Log records show which commands ran: none after the failed response.
  const std::string script =
      "(declare-const a Bool)(set-free a)(calculate (not a) true)\n"
      "(declare-const b Bool)(set-free b)(calculate (not b) true)\n";
  for (std::size_t room : {0, 5, 1000}) {
    FailingBuffer buffer(room);
    std::ostream out(&buffer);
    std::istringstream in(script);
    std::ostringstream err;
    int status = run_command_line({"-v", "2"}, in, out, err);
    if (room == 1000) {
      EXPECT_EQ(status, 0);
      EXPECT_EQ(buffer.taken, "((= a false))\n((= b false))\n");
      continue;
    }
    EXPECT_EQ(status, 2) << room;
    EXPECT_EQ(err.str(),
              "calculated adhoc a := false ..\n"
              "kora-adhoc: cannot write to standard output: the output stream failed\n")
        << room;
  }
}

TEST(CommandLine, AFailedWriteSaysWhy) {
  const int fd = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{}, {"--help"}, {"--version"}}) {
    OutputFileBuffer buffer(fd);
    std::ostream out(&buffer);
    std::istringstream in("(echo \"lost\")");
    std::ostringstream err;
    EXPECT_EQ(run_command_line(args, in, out, err), 2);
    EXPECT_EQ(err.str(), "kora-adhoc: cannot write to standard output: No space left on device\n");
  }
  ::close(fd);
}

TEST(CommandLine, NothingToWriteIsNoFailure) {
  const int fd = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  OutputFileBuffer buffer(fd);
  std::ostream out(&buffer);
  std::istringstream in("(declare-const a Bool)");
  std::ostringstream err;
  EXPECT_EQ(run_command_line({}, in, out, err), 0);
  EXPECT_EQ(err.str(), "");
  ::close(fd);
}

}  // namespace
}  // namespace kora::frontend
