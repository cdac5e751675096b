#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "kora-adhoc/session.h"

namespace kora::frontend {
namespace {

struct Result {
  std::string out;
  std::string err;
  int status = 0;
};

Result run_args(const std::vector<std::string>& args, const std::string& stdin_text = "") {
  std::istringstream in(stdin_text);
  std::ostringstream out;
  std::ostringstream err;
  Result r;
  r.status = run_command_line(args, in, out, err);
  r.out = out.str();
  r.err = err.str();
  return r;
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

}  // namespace
}  // namespace kora::frontend
