#include "kora-solve/response.h"

#include <gmpxx.h>

#include <stdexcept>
#include <string_view>

#include "kora/smtlib/reader.h"

namespace kora::solve {

namespace sx = kora::smtlib;

namespace {

constexpr int kEof = std::char_traits<char>::eof();

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

// (_ bvN W): N in binary, padded to W bits; nullopt when it is not one.
std::optional<std::string> indexed_to_bits(const sx::Node& n) {
  if (n.children.size() != 3 || !n.children[0]->is_reserved("_")) return std::nullopt;
  const sx::Node& name = *n.children[1];
  const sx::Node& width = *n.children[2];
  if (name.kind != sx::Node::Kind::Symbol || name.quoted || name.text.size() < 3 ||
      name.text.compare(0, 2, "bv") != 0 ||
      name.text.find_first_not_of("0123456789", 2) != std::string::npos ||
      width.kind != sx::Node::Kind::Numeral || width.text.size() > 9) {
    return std::nullopt;
  }
  mpz_class value(name.text.substr(2), 10);
  auto w = std::stoul(width.text);
  if (w == 0 || mpz_sizeinbase(value.get_mpz_t(), 2) > w) return std::nullopt;
  std::string bits = value == 0 ? std::string() : value.get_str(2);
  return std::string(w - bits.size(), '0') + bits;
}

std::optional<Value> to_value(const sx::Node& n) {
  switch (n.kind) {
    case sx::Node::Kind::Binary:
      return Value::bitvector(n.text.substr(2));
    case sx::Node::Kind::Hex:
      return Value::bitvector(hex_to_bits(std::string_view(n.text).substr(2)));
    case sx::Node::Kind::Symbol:
      if (n.is_reserved("true")) return Value::boolean(true);
      if (n.is_reserved("false")) return Value::boolean(false);
      return std::nullopt;
    case sx::Node::Kind::List:
      if (auto bits = indexed_to_bits(n)) return Value::bitvector(std::move(*bits));
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
  return r.width == 0 ? v.is_bool : !v.is_bool && v.width() == r.width;
}

std::string sort_name(const ValueRequest& r) {
  return r.width == 0 ? "Bool" : "(_ BitVec " + std::to_string(r.width) + ")";
}

}  // namespace

struct ResponseReader::State {
  std::istream& in;
  sx::Lexer words;
  sx::Reader lists;

  explicit State(std::istream& s) : in(s), words(s), lists(s) {}

  // The next response as a list, or as a reply when it is not a list.
  const sx::Node* read(Reply& reply) {
    std::streambuf* buf = in.rdbuf();
    int c = buf->sgetc();
    while (is_blank(c)) c = buf->snextc();
    if (c == kEof) return nullptr;
    try {
      if (c == '(') {
        if (auto list = lists.next()) return *list;
        reply = Reply{};
        return nullptr;
      }
      sx::Token t = words.next();
      reply.kind =
          t.kind == sx::TokenKind::Symbol && !t.quoted ? Reply::Kind::Word : Reply::Kind::Other;
      reply.text = sx::shorten(t.text);
      if (t.kind == sx::TokenKind::End) reply.kind = Reply::Kind::End;
    } catch (const sx::InputError& e) {
      reply = Reply{Reply::Kind::Other, e.what()};
    }
    return nullptr;
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

std::vector<Value> ResponseReader::values(const std::vector<ValueRequest>& requests) {
  Reply reply;
  const sx::Node* n = state_->read(reply);
  if (n == nullptr) {
    if (reply.kind == Reply::Kind::End) throw std::runtime_error("gave no answer to get-value");
    throw std::runtime_error("gave an unexpected answer to get-value: " + reply.text);
  }
  if (auto error = error_message(*n)) {
    throw std::runtime_error("answered (error \"" + *error + "\") to get-value");
  }
  if (n->children.size() != requests.size()) {
    throw std::runtime_error("gave an unexpected answer to get-value: " + sx::describe(*n));
  }
  std::vector<Value> values;
  values.reserve(requests.size());
  for (std::size_t i = 0; i < requests.size(); ++i) {
    const sx::Node& pair = *n->children[i];
    std::optional<Value> v;
    if (pair.is_list() && pair.children.size() == 2) v = to_value(*pair.children[1]);
    if (!v || !fits(*v, requests[i])) {
      throw std::runtime_error("gave an unexpected value for " + requests[i].term + " of sort " +
                               sort_name(requests[i]) + ": " + sx::describe(pair));
    }
    values.push_back(std::move(*v));
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
