#include "kora/model/logger.h"

#include <cstring>
#include <ostream>

#include "kora/terms/term.h"

namespace kora {

void Logger::write(const char* data, std::size_t size) {
  if (!enabled() || out_ == nullptr) return;
  if (cr_pending_) {
    if (is_terminal(*out_)) out_->put('\r');
    cr_pending_ = false;
  }
  out_->write(data, static_cast<std::streamsize>(size));
}

Logger& Logger::operator<<(const char* item) {
  write(item, std::strlen(item));
  return *this;
}

Logger& Logger::operator<<(const std::string& item) {
  write(item.data(), item.size());
  return *this;
}

Logger& Logger::operator<<(const Term* item) {
  if (enabled()) *this << item->to_shallow_str();
  return *this;
}

Logger& Logger::operator<<(EndLog) {
  if (enabled() && out_ != nullptr) {
    out_->put('\n');
    out_->flush();
  }
  level_ = -1;
  return *this;
}

}  // namespace kora
