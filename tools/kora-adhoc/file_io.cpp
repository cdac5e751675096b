#include "kora-adhoc/file_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace kora::frontend {

namespace {

// Large enough that a script of a million commands takes few system calls;
// an interactive read returns as soon as a line is typed whatever the size.
constexpr std::size_t kBufferSize = std::size_t{64} * 1024;

}  // namespace

ReadError::ReadError(int code) : std::runtime_error(std::strerror(code)), code_(code) {}

InputFileBuffer::~InputFileBuffer() {
  if (owned_ && fd_ >= 0) ::close(fd_);
}

std::unique_ptr<InputFileBuffer> InputFileBuffer::open(const std::string& path, int* error) {
  // Made before the descriptor exists, so that a failed allocation leaks
  // nothing.
  auto buffer = std::make_unique<InputFileBuffer>(-1, true);
  buffer->fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (buffer->fd_ < 0) {
    *error = errno;
    return nullptr;
  }
  if (buffer->is_directory()) {
    *error = EISDIR;
    return nullptr;
  }
  return buffer;
}

bool InputFileBuffer::is_directory() const noexcept {
  struct stat st {};
  return ::fstat(fd_, &st) == 0 && S_ISDIR(st.st_mode);
}

InputFileBuffer::int_type InputFileBuffer::underflow() {
  if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
  if (buffer_.empty()) buffer_.resize(kBufferSize);
  for (;;) {
    const ssize_t n = ::read(fd_, buffer_.data(), buffer_.size());
    if (n > 0) {
      setg(buffer_.data(), buffer_.data(), buffer_.data() + n);
      return traits_type::to_int_type(*gptr());
    }
    if (n == 0) return traits_type::eof();
    if (errno != EINTR) throw ReadError(errno);
  }
}

OutputFileBuffer::OutputFileBuffer(int fd) : fd_(fd), buffer_(kBufferSize) {
  setp(buffer_.data(), buffer_.data() + buffer_.size());
}

OutputFileBuffer::~OutputFileBuffer() {
  drain();
}

bool OutputFileBuffer::drain() {
  const char* p = pbase();
  while (error_ == 0 && p < pptr()) {
    const ssize_t n = ::write(fd_, p, static_cast<std::size_t>(pptr() - p));
    if (n > 0) {
      p += n;
    } else if (n == 0) {
      error_ = EIO;  // no progress and no reason: give up rather than spin
    } else if (errno != EINTR) {
      error_ = errno;
    }
  }
  // After a failure the rest is dropped: keeping it would only grow.
  setp(buffer_.data(), buffer_.data() + buffer_.size());
  return error_ == 0;
}

OutputFileBuffer::int_type OutputFileBuffer::overflow(int_type c) {
  if (!drain()) return traits_type::eof();
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  *pptr() = traits_type::to_char_type(c);
  pbump(1);
  return c;
}

int OutputFileBuffer::sync() {
  return drain() ? 0 : -1;
}

}  // namespace kora::frontend
