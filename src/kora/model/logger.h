#pragma once

#include <iosfwd>
#include <string>

namespace kora {

class Term;

// Ends a log record.
struct EndLog {};
inline constexpr EndLog endlog{};

// A log stream with a verbosity limit. A record is started at some level;
// its items are written only when the logger is enabled, the level is not
// negative and the level is at most the limit, otherwise they are dropped.
class Logger {
 public:
  // A logger writing to out, with verbosity limit 0.
  explicit Logger(std::ostream* out) : out_(out) {}

  // The highest level that is written.
  void set_verbosity(int limit) noexcept { verbosity_ = limit; }
  int verbosity() const noexcept { return verbosity_; }
  // A disabled logger drops every item.
  void set_disabled(bool disabled) noexcept { disabled_ = disabled; }
  bool disabled() const noexcept { return disabled_; }
  // Asks for a carriage return before the next item, so that a record can
  // overwrite a progress line on a terminal.
  void set_carriage_return_pending() noexcept { cr_pending_ = true; }
  // Redirects the output.
  void set_stream(std::ostream* out) noexcept { out_ = out; }

  // Starts a record at the given level.
  Logger& start(int level) noexcept {
    level_ = level;
    return *this;
  }
  // Whether items of the current record are written.
  bool enabled() const noexcept { return !disabled_ && level_ >= 0 && level_ <= verbosity_; }

  // Writes one item of the current record (a term in SMT-LIB syntax). An
  // item of a record that is not written is dropped here, inline: it costs
  // one test, with no string measured and no term printed.
  Logger& operator<<(const char* item) {
    if (enabled()) write_text(item);
    return *this;
  }
  Logger& operator<<(const std::string& item) {
    if (enabled()) write(item.data(), item.size());
    return *this;
  }
  Logger& operator<<(const Term* item) {
    if (enabled()) write_term(item);
    return *this;
  }
  // Ends the record with a newline.
  Logger& operator<<(EndLog) {
    if (enabled()) end_record();
    level_ = -1;
    return *this;
  }

 private:
  void write(const char* data, std::size_t size);
  void write_text(const char* text);
  void write_term(const Term* t);
  void end_record();

  int verbosity_ = 0;
  int level_ = -1;
  std::ostream* out_;
  bool disabled_ = false;
  bool cr_pending_ = false;
};

}  // namespace kora
