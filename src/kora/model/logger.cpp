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

void Logger::write_text(const char* text) {
  write(text, std::strlen(text));
}

void Logger::write_term(const Term* t) {
  const std::string text = t->to_shallow_str();
  write(text.data(), text.size());
}

void Logger::end_record() {
  if (out_ == nullptr) return;
  out_->put('\n');
  out_->flush();
}

}  // namespace kora
