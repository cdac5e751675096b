// The back end's script printed from written forms, over real benchmark
// files: read back, it asserts exactly the reduced assertions.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "kora/preprocess/simplifier.h"
#include "kora/smtlib/written.h"
#include "support/random_script.h"
#include "support/smtlib_corpus.h"

namespace kora::smtlib {
namespace {

namespace fs = std::filesystem;

std::string contents(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Simplifies the file's assertions, prints the written-form script and reads
// it back in the same manager.
void expect_reads_back(const fs::path& path) {
  SCOPED_TRACE(path.string());
  TermManager mgr;
  const test::KeptScript read = test::read_kept(mgr, contents(path), true);
  ASSERT_TRUE(read.errors.empty()) << read.errors.front();
  const preprocess::Simplified reduced = preprocess::simplify(mgr, read.assertions);
  std::vector<WrittenAssertion> assertions;
  for (std::size_t i = 0; i < read.assertions.size(); ++i) {
    ASSERT_NE(read.forms[i], nullptr);
    assertions.push_back({read.assertions[i], read.forms[i].get(), reduced.assertions[i]});
  }
  auto image = [&reduced](const Term* t) { return preprocess::image_of(reduced, t); };
  std::optional<std::string> script = print_written_script(
      mgr, read.declared, preprocess::constants_of(reduced.assertions), assertions, image);
  ASSERT_TRUE(script);
  const test::KeptScript back = test::read_kept(mgr, *script, false);
  ASSERT_TRUE(back.errors.empty()) << back.errors.front();
  EXPECT_EQ(back.assertions, reduced.assertions);
}

TEST(WrittenCorpus, VendoredFilesReadBackExactly) {
  std::vector<fs::path> files = test::smt2_files(fs::path(KORA_SOURCE_DIR) / "tests/smtlib/inputs");
  const std::vector<fs::path> examples =
      test::smt2_files(fs::path(KORA_SOURCE_DIR) / "examples/brummayerbiere4");
  files.insert(files.end(), examples.begin(), examples.end());
  ASSERT_FALSE(files.empty());
  for (const fs::path& f : files) expect_reads_back(f);
}

// Seconds per file in a debug build: run as the test written_corpus_full.
TEST(WrittenCorpus, DISABLED_FullCorpusReadsBackExactly) {
  const fs::path dir(KORA_QF_BV_BENCHMARKS);
  if (!fs::is_directory(dir)) GTEST_SKIP() << dir << " is absent";
  for (const fs::path& f : test::smt2_files(dir)) expect_reads_back(f);
}

}  // namespace
}  // namespace kora::smtlib
