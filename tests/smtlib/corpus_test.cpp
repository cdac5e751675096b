// Reads real SMT-LIB benchmark files: the few vendored under inputs/ always,
// and the shared corpus beside the project when it is there.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "kora/smtlib/script.h"

namespace kora::smtlib {
namespace {

namespace fs = std::filesystem;

struct Outcome {
  std::vector<std::string> errors;
  std::size_t asserts = 0;
  std::size_t check_sats = 0;
};

Outcome read_file(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  TermManager mgr;
  ScriptReader reader(in, &mgr, path.filename().string());
  Outcome out;
  for (;;) {
    try {
      std::optional<Command> c = reader.next();
      if (!c) break;
      if (c->kind == Command::Kind::Assert) {
        EXPECT_TRUE(c->term->type()->is_bool());
        ++out.asserts;
      }
      if (c->kind == Command::Kind::CheckSat) ++out.check_sats;
    } catch (const InputError& e) {
      out.errors.push_back(reader.message(e));
    }
  }
  return out;
}

std::vector<fs::path> smt2_files(const fs::path& dir) {
  std::vector<fs::path> files;
  for (const fs::directory_entry& e : fs::directory_iterator(dir)) {
    if (e.path().extension() == ".smt2") files.push_back(e.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

void expect_clean(const std::vector<fs::path>& files) {
  for (const fs::path& f : files) {
    SCOPED_TRACE(f.string());
    Outcome o = read_file(f);
    EXPECT_TRUE(o.errors.empty()) << o.errors.front();
    EXPECT_GT(o.asserts, 0U);
    EXPECT_EQ(o.check_sats, 1U);
  }
}

TEST(Corpus, VendoredFilesReadWithoutAnError) {
  std::vector<fs::path> files = smt2_files(fs::path(KORA_SOURCE_DIR) / "tests/smtlib/inputs");
  ASSERT_GE(files.size(), 3U);
  expect_clean(files);
}

TEST(Corpus, SharedBenchmarksReadWithoutAnError) {
  fs::path dir = KORA_QF_BV_BENCHMARKS;
  if (!fs::is_directory(dir)) GTEST_SKIP() << dir << " is absent";
  std::vector<fs::path> files = smt2_files(dir);
  ASSERT_FALSE(files.empty());
  expect_clean(files);
}

}  // namespace
}  // namespace kora::smtlib
