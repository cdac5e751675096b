#include "kora/smtlib/reader.h"

#include <utility>

namespace kora::smtlib {

namespace {

// Each level writes a '(' before descending, so the recursion depth is
// bounded by the length limit whatever the nesting of the input.
void render(const Node& n, std::string& out, std::size_t limit) {
  if (out.size() > limit) return;
  switch (n.kind) {
    case Node::Kind::List:
      out += '(';
      for (std::size_t i = 0; i < n.children.size(); ++i) {
        if (out.size() > limit) return;
        if (i > 0) out += ' ';
        render(*n.children[i], out, limit);
      }
      out += ')';
      return;
    case Node::Kind::Symbol:
      out += n.quoted ? "|" + n.text + "|" : n.text;
      return;
    case Node::Kind::String:
      out += '"';
      for (char c : n.text) {
        out += c;
        if (c == '"') out += '"';
      }
      out += '"';
      return;
    default:
      out += n.text;
      return;
  }
}

Node::Kind kind_of(TokenKind k) {
  switch (k) {
    case TokenKind::Numeral:
      return Node::Kind::Numeral;
    case TokenKind::Decimal:
      return Node::Kind::Decimal;
    case TokenKind::Binary:
      return Node::Kind::Binary;
    case TokenKind::Hex:
      return Node::Kind::Hex;
    case TokenKind::String:
      return Node::Kind::String;
    case TokenKind::Keyword:
      return Node::Kind::Keyword;
    default:
      return Node::Kind::Symbol;
  }
}

}  // namespace

std::string describe(const Node& n, std::size_t limit) {
  std::string out;
  render(n, out, limit);
  return shorten(out, limit);
}

std::string source_text(const Node& root) {
  std::string out;
  // Each entry is a node to write, or null for a list's ')'.
  std::vector<const Node*> stack{&root};
  while (!stack.empty()) {
    const Node* n = stack.back();
    stack.pop_back();
    if (n == nullptr) {
      out += ')';
      continue;
    }
    if (!out.empty() && out.back() != '(') out += ' ';
    if (!n->is_list()) {
      render(*n, out, std::string::npos);
      continue;
    }
    out += '(';
    stack.push_back(nullptr);
    for (std::size_t k = n->children.size(); k-- > 0;) stack.push_back(n->children[k]);
  }
  return out;
}

Node* Reader::make(Node::Kind kind, Position pos, std::string&& text, bool quoted) {
  Node& n = used_ < nodes_.size() ? nodes_[used_] : nodes_.emplace_back();
  n.index = used_++;
  n.kind = kind;
  n.pos = pos;
  n.end = Position{};
  // Assigning keeps the capacity that a reused node's text already has; the
  // token's own text is short enough to sit in the string's inline buffer.
  n.text.assign(text);
  n.children.clear();
  n.quoted = quoted;
  return &n;
}

void Reader::skip(std::size_t depth) {
  while (depth > 0) {
    Token t = lexer_.next();
    if (t.kind == TokenKind::End) return;
    if (t.kind == TokenKind::LParen) ++depth;
    if (t.kind == TokenKind::RParen) --depth;
  }
}

const Node* Reader::current() const noexcept {
  return used_ > 0 && nodes_[0].is_list() ? &nodes_[0] : nullptr;
}

std::optional<const Node*> Reader::next() {
  used_ = 0;
  Token tok = lexer_.next();
  switch (tok.kind) {
    case TokenKind::End:
      return std::nullopt;
    case TokenKind::LParen:
      break;
    case TokenKind::RParen:
      throw InputError(tok.pos, "unexpected ')' with no matching '('");
    case TokenKind::Error:
      throw InputError(tok.pos, tok.text);
    default:
      // Stray tokens are reported one by one rather than skipped up to the
      // next '(': an interactive user gets the answer without typing more.
      throw InputError(
          tok.pos,
          "expected '(' to start a command, got '" +
              describe(*make(kind_of(tok.kind), tok.pos, std::move(tok.text), tok.quoted)) + "'");
  }

  Node* root = make(Node::Kind::List, tok.pos);
  std::vector<Node*> open{root};
  while (!open.empty()) {
    Token t = lexer_.next();
    switch (t.kind) {
      case TokenKind::LParen: {
        if (open.size() >= kMaxDepth) {
          skip(open.size() + 1);
          throw InputError(t.pos, "nesting deeper than " + std::to_string(kMaxDepth) +
                                      " levels is not supported");
        }
        Node* n = make(Node::Kind::List, t.pos);
        open.back()->children.push_back(n);
        open.push_back(n);
        break;
      }
      case TokenKind::RParen:
        open.back()->end = t.pos;
        open.pop_back();
        break;
      case TokenKind::End: {
        Position p = open.back()->pos;
        throw InputError(t.pos, "expected ')' at end of input: the '(' at line " +
                                    std::to_string(p.line) + ", column " +
                                    std::to_string(p.column) + " is not closed");
      }
      case TokenKind::Error:
        skip(open.size());
        throw InputError(t.pos, t.text);
      default:
        open.back()->children.push_back(make(kind_of(t.kind), t.pos, std::move(t.text), t.quoted));
        break;
    }
  }
  return root;
}

}  // namespace kora::smtlib
