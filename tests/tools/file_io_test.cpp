#include "kora-adhoc/file_io.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <istream>
#include <iterator>
#include <ostream>
#include <string>

namespace kora::frontend {
namespace {

std::string read_all(InputFileBuffer& buffer) {
  std::istream in(&buffer);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TEST(InputFileBuffer, ReadsAFileToItsEnd) {
  const std::string path = ::testing::TempDir() + "kora_file_io_input.smt2";
  // More than one buffer's worth, so that reading refills it.
  std::string text;
  for (int i = 0; i < 20000; ++i) text += "(echo \"" + std::to_string(i) + "\")\n";
  std::ofstream(path) << text;
  int error = -1;
  auto buffer = InputFileBuffer::open(path, &error);
  ASSERT_NE(buffer, nullptr);
  EXPECT_FALSE(buffer->is_directory());
  EXPECT_EQ(read_all(*buffer), text);
  std::remove(path.c_str());
}

TEST(InputFileBuffer, OpenSaysWhyItFailed) {
  int error = 0;
  EXPECT_EQ(InputFileBuffer::open("/nonexistent/kora/x.smt2", &error), nullptr);
  EXPECT_EQ(error, ENOENT);
  EXPECT_EQ(InputFileBuffer::open(::testing::TempDir(), &error), nullptr);
  EXPECT_EQ(error, EISDIR);
}

TEST(InputFileBuffer, AFailedReadThrowsItsReason) {
  // Address 0 of the process is never mapped: reading it fails with EIO.
  InputFileBuffer mem(::open("/proc/self/mem", O_RDONLY | O_CLOEXEC), true);
  try {
    read_all(mem);
    FAIL() << "a read at an unmapped address succeeded";
  } catch (const ReadError& e) {
    EXPECT_EQ(e.code(), EIO);
    EXPECT_STREQ(e.what(), "Input/output error");
  }
  // A descriptor open only for writing cannot be read either.
  const std::string path = ::testing::TempDir() + "kora_file_io_write_only";
  InputFileBuffer write_only(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600), true);
  EXPECT_THROW(read_all(write_only), ReadError);
  std::remove(path.c_str());
}

TEST(InputFileBuffer, KnowsADirectory) {
  InputFileBuffer dir(::open(::testing::TempDir().c_str(), O_RDONLY | O_CLOEXEC), true);
  EXPECT_TRUE(dir.is_directory());
}

TEST(OutputFileBuffer, WritesEverythingOnFlush) {
  const std::string path = ::testing::TempDir() + "kora_file_io_output";
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  ASSERT_GE(fd, 0);
  std::string text;
  for (int i = 0; i < 30000; ++i) text += std::to_string(i) + '\n';
  {
    OutputFileBuffer buffer(fd);
    std::ostream out(&buffer);
    out << text << std::flush;
    EXPECT_TRUE(out);
    EXPECT_EQ(buffer.error(), 0);
  }
  ::close(fd);
  std::ifstream in(path);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()),
            text);
  std::remove(path.c_str());
}

TEST(OutputFileBuffer, AFailedWriteFailsTheStreamAndKeepsItsReason) {
  const int fd = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  {
    OutputFileBuffer buffer(fd);
    std::ostream out(&buffer);
    out << "lost\n";
    EXPECT_TRUE(out);  // still buffered
    out.flush();
    EXPECT_FALSE(out);
    EXPECT_EQ(buffer.error(), ENOSPC);
  }
  ::close(fd);
}

}  // namespace
}  // namespace kora::frontend
