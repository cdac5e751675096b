// Feeds arbitrary bytes to kora-adhoc's reader and command loop, in process.
// Whatever the bytes, a session must answer or refuse each command: no crash,
// no leak, no sanitizer report, no exception escaping the session, and no
// input slow enough to trip libFuzzer's timeout.
//
// A NUL byte splits the input into two "files" processed by one session, so
// that state carried from one file to the next (declarations, (exit)) is
// exercised as it is on a command line naming several files.

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>

#include "kora-adhoc/session.h"

namespace {

// Discards everything while still making the session format every response
// and log record in full.
class NullBuffer final : public std::streambuf {
 protected:
  int_type overflow(int_type c) override { return traits_type::not_eof(c); }
  std::streamsize xsputn(const char* /*s*/, std::streamsize n) override { return n; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::size_t split = text.find('\0');

  NullBuffer sink;
  std::ostream out(&sink);
  std::ostream err(&sink);
  kora::frontend::Session session(out, err);

  std::istringstream first(text.substr(0, split));
  session.process(first, "first.smt2");
  if (split != std::string::npos && !session.exited()) {
    std::istringstream second(text.substr(split + 1));
    session.process(second, "second.smt2");
  }
  return 0;
}
