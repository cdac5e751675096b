#pragma once

#include <memory>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

namespace kora::frontend {

// A read that failed, with its errno value. A standard file stream would
// either end the input quietly or throw an exception that names no file.
class ReadError : public std::runtime_error {
 public:
  explicit ReadError(int code);
  int code() const noexcept { return code_; }

 private:
  int code_;
};

// Reads a file descriptor. A failed read throws ReadError rather than
// passing for the end of the input, so that a session never answers a
// truncated script as if it were whole.
class InputFileBuffer final : public std::streambuf {
 public:
  // Reads fd, and closes it at the end when `owned`.
  InputFileBuffer(int fd, bool owned) noexcept : fd_(fd), owned_(owned) {}
  InputFileBuffer(const InputFileBuffer&) = delete;
  InputFileBuffer& operator=(const InputFileBuffer&) = delete;
  ~InputFileBuffer() override;

  // path opened for reading; null with *error set to the errno value when
  // it cannot be opened, EISDIR for a directory.
  static std::unique_ptr<InputFileBuffer> open(const std::string& path, int* error);

  // Whether fd is a directory, which opens but cannot be read as a script.
  bool is_directory() const noexcept;

 protected:
  int_type underflow() override;

 private:
  int fd_;
  bool owned_;
  std::vector<char> buffer_;
};

// Writes to a file descriptor through a buffer, and remembers why the first
// failed write failed: the standard streams only say that one did.
class OutputFileBuffer final : public std::streambuf {
 public:
  explicit OutputFileBuffer(int fd);
  OutputFileBuffer(const OutputFileBuffer&) = delete;
  OutputFileBuffer& operator=(const OutputFileBuffer&) = delete;
  // Writes what is left; the descriptor stays open.
  ~OutputFileBuffer() override;

  // The errno value of the failed write, 0 while every write succeeded.
  int error() const noexcept { return error_; }

 protected:
  int_type overflow(int_type c) override;
  int sync() override;

 private:
  // Writes the buffered bytes; false once a write has failed.
  bool drain();

  int fd_;
  int error_ = 0;
  std::vector<char> buffer_;
};

}  // namespace kora::frontend
