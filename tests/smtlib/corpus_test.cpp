// Reads real SMT-LIB benchmark files: the few vendored under inputs/ always,
// and the shared corpus beside the project when it is there. Each file must
// read without an error and survive a round trip: its assertions printed as
// a script and read again into the same term manager are the very same terms.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/smtlib_corpus.h"

namespace kora::smtlib {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> vendored_files() {
  return test::smt2_files(fs::path(KORA_SOURCE_DIR) / "tests/smtlib/inputs");
}

void expect_clean(const std::vector<fs::path>& files) {
  for (const fs::path& f : files) {
    SCOPED_TRACE(f.string());
    TermManager mgr;
    test::ReadScript s = test::read_script_file(f, &mgr);
    EXPECT_TRUE(s.errors.empty()) << s.errors.front();
    EXPECT_GT(s.assertions.size(), 0U);
    for (const Term* a : s.assertions) EXPECT_TRUE(a->type()->is_bool());
    EXPECT_EQ(s.check_sats, 1U);
  }
}

// Reads each file, prints its assertions and reads the printed script into
// the same manager: hash-consing makes equal terms the same pointer, so the
// second reading must give back exactly the first one's assertions.
void expect_round_trip(const std::vector<fs::path>& files) {
  for (const fs::path& f : files) {
    SCOPED_TRACE(f.string());
    TermManager mgr;
    test::ReadScript original = test::read_script_file(f, &mgr);
    ASSERT_TRUE(original.errors.empty()) << original.errors.front();
    const std::string text = test::printed_script(mgr, original.assertions);
    test::ReadScript again = test::read_script_text(text, &mgr, "printed");
    ASSERT_TRUE(again.errors.empty()) << again.errors.front();
    EXPECT_EQ(again.check_sats, 0U);
    ASSERT_EQ(again.assertions.size(), original.assertions.size());
    for (std::size_t i = 0; i < original.assertions.size(); ++i) {
      EXPECT_EQ(again.assertions[i], original.assertions[i]) << "assertion " << i;
    }
  }
}

std::vector<fs::path> shared_files() {
  const fs::path dir = KORA_QF_BV_BENCHMARKS;
  if (!fs::is_directory(dir)) return {};
  return test::smt2_files(dir);
}

#define KORA_REQUIRE_SHARED_CORPUS(files) \
  if ((files).empty()) GTEST_SKIP() << KORA_QF_BV_BENCHMARKS << " is absent or empty"

TEST(Corpus, VendoredFilesReadWithoutAnError) {
  std::vector<fs::path> files = vendored_files();
  ASSERT_GE(files.size(), 3U);
  expect_clean(files);
}

TEST(Corpus, SharedBenchmarksReadWithoutAnError) {
  std::vector<fs::path> files = shared_files();
  KORA_REQUIRE_SHARED_CORPUS(files);
  expect_clean(files);
}

TEST(Corpus, VendoredFilesRoundTrip) {
  std::vector<fs::path> files = vendored_files();
  ASSERT_GE(files.size(), 3U);
  expect_round_trip(files);
}

TEST(Corpus, SharedBenchmarksRoundTrip) {
  std::vector<fs::path> files = shared_files();
  KORA_REQUIRE_SHARED_CORPUS(files);
  expect_round_trip(files);
}

}  // namespace
}  // namespace kora::smtlib
