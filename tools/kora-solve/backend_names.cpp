#include "kora-solve/backend_names.h"

#include <unordered_set>
#include <utility>

#include "kora/smtlib/printer.h"

namespace kora::solve {

namespace {

bool is_reserved_name(const std::string& name) {
  return !name.empty() && (name[0] == '@' || name[0] == '.');
}

}  // namespace

BackendNames::BackendNames(TermManager& mgr, const std::vector<const Term*>& constants)
    : mgr_(mgr) {
  std::unordered_set<std::string> taken;
  std::vector<const Term*> reserved;
  for (const Term* c : constants) {
    std::string name = smtlib::constant_name(c);
    if (is_reserved_name(name)) reserved.push_back(c);
    taken.insert(std::move(name));
  }
  for (const Term* c : reserved) {
    if (renamed_.contains(c)) continue;
    std::string name = "k" + smtlib::constant_name(c);
    while (taken.contains(name)) name.insert(0, 1, 'k');
    renamed_.emplace(c, mgr_.make_constant(name, c->type()));
  }
}

const Term* BackendNames::constant(const Term* c) const {
  auto it = renamed_.find(c);
  return it == renamed_.end() ? c : it->second;
}

// Rebuilt bottom up over the DAG, each distinct subterm once.
const Term* BackendNames::operator()(const Term* root) {
  if (renamed_.empty()) return root;
  std::vector<std::pair<const Term*, bool>> stack{{root, false}};
  std::vector<const Term*> args;
  while (!stack.empty()) {
    auto [t, expanded] = stack.back();
    stack.pop_back();
    if (memo_.contains(t)) continue;
    if (t->arity() == 0) {
      memo_.emplace(t, constant(t));
      continue;
    }
    if (!expanded) {
      stack.emplace_back(t, true);
      for (const Term* a : t->args()) {
        if (!memo_.contains(a)) stack.emplace_back(a, false);
      }
      continue;
    }
    args.clear();
    bool same = true;
    for (const Term* a : t->args()) {
      args.push_back(memo_.at(a));
      same = same && args.back() == a;
    }
    memo_.emplace(t, same ? t : mgr_.make_term(t->get_symbol(), args));
  }
  return memo_.at(root);
}

std::vector<const Term*> BackendNames::operator()(const std::vector<const Term*>& terms) {
  std::vector<const Term*> out;
  out.reserve(terms.size());
  for (const Term* t : terms) out.push_back((*this)(t));
  return out;
}

}  // namespace kora::solve
