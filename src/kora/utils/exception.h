#pragma once

#include <exception>
#include <sstream>
#include <string>

namespace kora {

// Library hook called whenever an Exception is built; a debugger breakpoint
// goes here. It does nothing by default.
void dump_msg_and_raise_assertion();

// The library's exception base: the message is kept in a string stream so
// that more can be appended, and what() reads it back.
class Exception : public std::exception {
 public:
  // An exception whose what() is msg.
  explicit Exception(const std::string& msg);
  Exception(const Exception& o);
  Exception& operator=(const Exception& o);
  ~Exception() override;

  // The message; "" if it cannot be read back.
  const char* what() const noexcept override;

 private:
  std::ostringstream stream_;
  mutable std::string cached_;
};

}  // namespace kora
