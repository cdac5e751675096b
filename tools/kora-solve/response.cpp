#include "kora-solve/response.h"

#include <gmpxx.h>

#include <algorithm>
#include <stdexcept>
#include <string_view>

#include "kora/smtlib/reader.h"

namespace kora::solve {

namespace sx = kora::smtlib;

namespace {

constexpr int kEof = std::char_traits<char>::eof();

// The most a response other than get-value's may take: an error message
// quoting a long input is the largest that solvers write.
constexpr std::size_t kMaxResponse = std::size_t{1} << 20;
// Blanks allowed before a token of a get-value answer.
constexpr std::size_t kMaxBlanks = 4096;
// Tokens allowed in one (TERM VALUE) pair: a term is a name, a value at most
// (_ bvN W).
constexpr std::size_t kMaxPairTokens = 64;
// An array's value is a store chain: four tokens and its index and element
// per store.
constexpr std::size_t kMaxArrayTokens = std::size_t{1} << 22;

bool is_bare(const sx::Token& t, std::string_view word) {
  return t.kind == sx::TokenKind::Symbol && !t.quoted && t.text == word;
}

bool is_blank(int c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

std::string hex_to_bits(std::string_view digits) {
  std::string bits;
  bits.reserve(digits.size() * 4);
  for (char c : digits) {
    int d = c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
    for (int b = 3; b >= 0; --b) bits += ((d >> b) & 1) != 0 ? '1' : '0';
  }
  return bits;
}

// (_ bvN W) from its tokens: N in binary, padded to W bits; nullopt when it
// is not one.
std::optional<std::string> indexed_to_bits(const std::vector<sx::Token>& t) {
  if (t.size() != 5 || t[0].kind != sx::TokenKind::LParen || !is_bare(t[1], "_") ||
      t[4].kind != sx::TokenKind::RParen) {
    return std::nullopt;
  }
  const sx::Token& name = t[2];
  const sx::Token& width = t[3];
  if (name.kind != sx::TokenKind::Symbol || name.quoted || name.text.size() < 3 ||
      name.text.compare(0, 2, "bv") != 0 ||
      name.text.find_first_not_of("0123456789", 2) != std::string::npos ||
      width.kind != sx::TokenKind::Numeral || width.text.size() > 9) {
    return std::nullopt;
  }
  mpz_class value(name.text.substr(2), 10);
  auto w = std::stoul(width.text);
  if (w == 0 || mpz_sizeinbase(value.get_mpz_t(), 2) > w) return std::nullopt;
  std::string bits = value == 0 ? std::string() : value.get_str(2);
  return std::string(w - bits.size(), '0') + bits;
}

// A value from its tokens (one, or a whole list).
std::optional<Value> to_value(const std::vector<sx::Token>& t) {
  if (t.size() != 1) {
    if (auto bits = indexed_to_bits(t)) return Value::bitvector(std::move(*bits));
    return std::nullopt;
  }
  switch (t[0].kind) {
    case sx::TokenKind::Binary:
      return Value::bitvector(t[0].text.substr(2));
    case sx::TokenKind::Hex:
      return Value::bitvector(hex_to_bits(std::string_view(t[0].text).substr(2)));
    case sx::TokenKind::Symbol:
      if (is_bare(t[0], "true")) return Value::boolean(true);
      if (is_bare(t[0], "false")) return Value::boolean(false);
      return std::nullopt;
    default:
      return std::nullopt;
  }
}

// The message of (error "..."), nullopt for any other response.
std::optional<std::string> error_message(const sx::Node& n) {
  if (n.children.size() == 2 && n.children[0]->is_reserved("error") &&
      n.children[1]->kind == sx::Node::Kind::String) {
    return n.children[1]->text;
  }
  return std::nullopt;
}

bool fits(const Value& v, const ValueRequest& r) {
  if (!r.sort.empty() || !v.array.empty()) return !r.sort.empty() && !v.array.empty();
  return r.width == 0 ? v.is_bool : !v.is_bool && v.width() == r.width;
}

std::string sort_name(const ValueRequest& r) {
  if (!r.sort.empty()) return r.sort;
  return r.width == 0 ? "Bool" : "(_ BitVec " + std::to_string(r.width) + ")";
}

// Passes a stream's bytes on, at most an allowance at a time, so that a
// solver that writes more than any answer could need is cut off there
// instead of being read into memory.
class LimitedBuffer : public std::streambuf {
 public:
  explicit LimitedBuffer(std::streambuf* source) : source_(source) {}
  // From now on at most n more bytes, besides those already taken in.
  void allow(std::size_t n) {
    left_ = n;
    cut_ = false;
  }
  // Whether a read asked for more than the allowance.
  bool cut() const noexcept { return cut_; }

 protected:
  int_type underflow() override {
    if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
    if (left_ == 0) {
      cut_ = true;
      return traits_type::eof();
    }
    if (traits_type::eq_int_type(source_->sgetc(), traits_type::eof())) return traits_type::eof();
    // Only what the source holds already: asking for more would wait for
    // output that an interactive solver has not written.
    const std::streamsize ready = std::max<std::streamsize>(source_->in_avail(), 1);
    const std::streamsize want =
        std::min<std::streamsize>({ready, static_cast<std::streamsize>(sizeof buf_),
                                   static_cast<std::streamsize>(std::min(left_, sizeof buf_))});
    const auto n = static_cast<std::size_t>(source_->sgetn(buf_, want));
    left_ -= n;
    setg(buf_, buf_, buf_ + n);
    return n == 0 ? traits_type::eof() : traits_type::to_int_type(*gptr());
  }

 private:
  std::streambuf* source_;
  std::size_t left_ = kMaxResponse;
  bool cut_ = false;
  char buf_[4096] = {};
};

// A token as it was written, for messages.
std::string written(const sx::Token& t) {
  if (t.kind == sx::TokenKind::Symbol && t.quoted) return "|" + t.text + "|";
  if (t.kind == sx::TokenKind::String) return "\"" + t.text + "\"";
  return t.text;
}

// Tokens as they were written, whole.
std::string joined(const std::vector<sx::Token>& tokens) {
  std::string out;
  for (const sx::Token& t : tokens) {
    if (!out.empty() && out.back() != '(' && t.kind != sx::TokenKind::RParen) out += ' ';
    out += written(t);
  }
  return out;
}

std::string written(const std::vector<sx::Token>& tokens) {
  return sx::shorten(joined(tokens));
}

}  // namespace

struct ResponseReader::State {
  LimitedBuffer limited;
  std::istream in;
  sx::Lexer words;
  sx::Reader lists;

  explicit State(std::istream& s) : limited(s.rdbuf()), in(&limited), words(in), lists(in) {}

  // The next response as a list, or as a reply when it is not a list.
  const sx::Node* read(Reply& reply) {
    limited.allow(kMaxResponse);
    std::streambuf* buf = in.rdbuf();
    int c = buf->sgetc();
    while (is_blank(c)) c = buf->snextc();
    if (c == kEof && !limited.cut()) return nullptr;
    const sx::Node* list = nullptr;
    try {
      if (c == '(') {
        if (auto l = lists.next()) list = *l;
      } else if (c != kEof) {
        sx::Token t = words.next();
        reply.kind =
            t.kind == sx::TokenKind::Symbol && !t.quoted ? Reply::Kind::Word : Reply::Kind::Other;
        reply.text = sx::shorten(t.text);
        if (t.kind == sx::TokenKind::End) reply.kind = Reply::Kind::End;
      }
    } catch (const sx::InputError& e) {
      reply = Reply{Reply::Kind::Other, e.what()};
    }
    if (!limited.cut()) return list;
    reply = Reply{Reply::Kind::Other,
                  "a response of more than " + std::to_string(kMaxResponse) + " bytes"};
    return nullptr;
  }

  // The next token of a get-value answer, at most limit bytes long.
  sx::Token token(std::size_t limit) {
    limited.allow(limit + kMaxBlanks);
    sx::Token t = words.next();
    if (limited.cut()) {
      throw std::runtime_error("wrote a token longer than any value it was asked for (" +
                               std::to_string(limit) + " bytes) in its answer to get-value");
    }
    if (t.kind == sx::TokenKind::Error) {
      throw std::runtime_error("gave an unexpected answer to get-value: " + t.text);
    }
    if (t.kind == sx::TokenKind::End)
      throw std::runtime_error("did not finish its get-value answer");
    return t;
  }

  // The rest of a list whose '(' is open, appended to tokens: at most
  // max_tokens in all.
  void rest_of_list(std::vector<sx::Token>& tokens, std::size_t limit,
                    std::size_t max_tokens = kMaxPairTokens) {
    std::size_t depth = 1;
    while (depth > 0) {
      if (tokens.size() >= max_tokens) {
        throw std::runtime_error("gave an unexpected answer to get-value: " + written(tokens));
      }
      tokens.push_back(token(limit));
      if (tokens.back().kind == sx::TokenKind::LParen) ++depth;
      if (tokens.back().kind == sx::TokenKind::RParen) --depth;
    }
  }
};

ResponseReader::ResponseReader(std::istream& in) : state_(std::make_unique<State>(in)) {}

ResponseReader::~ResponseReader() = default;

Reply ResponseReader::next() {
  Reply reply;
  const sx::Node* n = state_->read(reply);
  if (n == nullptr) return reply;
  if (auto error = error_message(*n)) return Reply{Reply::Kind::Error, *error};
  return Reply{Reply::Kind::Other, sx::describe(*n)};
}

Reply ResponseReader::next_answer() {
  for (;;) {
    Reply r = next();
    if (r.kind != Reply::Kind::Word || (r.text != "success" && r.text != "unsupported")) return r;
  }
}

// Read token by token, so that nothing beyond the values asked for is ever
// held: an entry more than requested, or a token longer than the longest
// value or term, is refused as soon as it starts or passes that length.
std::vector<Value> ResponseReader::values(const std::vector<ValueRequest>& requests) {
  State& s = *state_;
  std::size_t longest = 16;
  for (const ValueRequest& r : requests) longest = std::max({longest, r.term.size(), r.width + 2});
  s.limited.allow(kMaxResponse);
  int c = s.in.rdbuf()->sgetc();
  while (is_blank(c)) c = s.in.rdbuf()->snextc();
  if (c != '(') {
    Reply reply;
    s.read(reply);
    if (reply.kind == Reply::Kind::End) throw std::runtime_error("gave no answer to get-value");
    throw std::runtime_error("gave an unexpected answer to get-value: " + reply.text);
  }
  s.token(longest);
  std::vector<Value> values;
  values.reserve(requests.size());
  for (;;) {
    sx::Token open = s.token(longest);
    if (open.kind == sx::TokenKind::RParen) break;
    if (values.empty() && is_bare(open, "error")) {
      sx::Token message = s.token(kMaxResponse);
      throw std::runtime_error("answered (error \"" + message.text + "\") to get-value");
    }
    if (values.size() == requests.size()) {
      throw std::runtime_error("gave more values than the " + std::to_string(requests.size()) +
                               " it was asked for in its answer to get-value");
    }
    const ValueRequest& r = requests[values.size()];
    std::vector<sx::Token> pair{std::move(open)};
    if (pair[0].kind == sx::TokenKind::LParen) {
      s.rest_of_list(pair, longest, r.sort.empty() ? kMaxPairTokens : kMaxArrayTokens);
    }
    // (TERM VALUE): the term is one token or a list; the value is the rest.
    std::size_t value_at = 2;
    if (pair.size() > 1 && pair[1].kind == sx::TokenKind::LParen) {
      std::size_t depth = 0;
      for (value_at = 1; value_at < pair.size(); ++value_at) {
        if (pair[value_at].kind == sx::TokenKind::LParen) ++depth;
        if (pair[value_at].kind == sx::TokenKind::RParen && --depth == 0) break;
      }
      ++value_at;
    }
    std::optional<Value> v;
    if (!r.sort.empty() && value_at + 1 < pair.size()) {
      v = Value::array_text(joined(std::vector<sx::Token>(
          pair.begin() + static_cast<std::ptrdiff_t>(value_at), pair.end() - 1)));
    } else if (value_at + 1 < pair.size()) {
      v = to_value(std::vector<sx::Token>(pair.begin() + static_cast<std::ptrdiff_t>(value_at),
                                          pair.end() - 1));
    }
    if (!v || !fits(*v, r)) {
      throw std::runtime_error("gave an unexpected value for " + r.term + " of sort " +
                               sort_name(r) + ": " + written(pair));
    }
    values.push_back(std::move(*v));
  }
  if (values.size() != requests.size()) {
    throw std::runtime_error(
        "gave an unexpected answer to get-value: " + std::to_string(values.size()) +
        " values for " + std::to_string(requests.size()) + " terms");
  }
  return values;
}

std::string ResponseReader::reason_unknown() {
  Reply reply;
  const sx::Node* n = state_->read(reply);
  if (n == nullptr || n->children.size() != 2 || n->children[0]->kind != sx::Node::Kind::Keyword ||
      n->children[0]->text != ":reason-unknown") {
    return {};
  }
  const sx::Node& why = *n->children[1];
  return why.kind == sx::Node::Kind::String ? why.text : sx::describe(why);
}

}  // namespace kora::solve
