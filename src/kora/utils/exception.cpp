#include "kora/utils/exception.h"

namespace kora {

void dump_msg_and_raise_assertion() {}

Exception::Exception(const std::string& msg) : stream_(std::ios_base::out) {
  stream_ << msg;
  dump_msg_and_raise_assertion();
}

Exception::Exception(const Exception& o) : std::exception(o), stream_(std::ios_base::out) {
  stream_ << o.stream_.str();
}

Exception& Exception::operator=(const Exception& o) {
  if (this != &o) {
    stream_.str(o.stream_.str());
    stream_.seekp(0, std::ios_base::end);
    cached_.clear();
  }
  return *this;
}

Exception::~Exception() = default;

const char* Exception::what() const noexcept {
  try {
    cached_ = stream_.str();
    return cached_.c_str();
  } catch (...) {
    return "";
  }
}

}  // namespace kora
