#include "support/calculator_fixture.h"

namespace kora::test {

namespace {

std::string text(const Term* t) {
  return t == nullptr ? "<null>" : t->to_shallow_str();
}

std::string list(const std::vector<const Term*>& ts) {
  std::string out = "(";
  for (std::size_t i = 0; i < ts.size(); ++i) out += (i ? " " : "") + text(ts[i]);
  return out + ")";
}

}  // namespace

std::string describe_case(const Case& c) {
  std::ostringstream os;
  os << "case [";
  for (std::size_t i = 0; i < c.args.size(); ++i) {
    const Sort& s = c.sig->args[i];
    os << (i ? ", " : "") << "a" << i << ":"
       << (s.is_bool ? "Bool" : "bv" + std::to_string(s.width)) << "=";
    switch (c.args[i].kind) {
      case Kind::Free:
        os << "free";
        break;
      case Kind::Valued:
        os << "valued " << c.args[i].value;
        break;
      case Kind::Defaulted:
        os << "defaulted";
        break;
    }
  }
  os << "; v=";
  if (c.v) {
    os << *c.v;
  } else {
    os << "not a value";
  }
  os << "]";
  return os.str();
}

const DataType* type_of(TermManager& mgr, const Sort& s) {
  return s.is_bool ? mgr.bool_type() : mgr.bv_type(s.width);
}

const Term* value_term(TermManager& mgr, const Sort& s, std::uint64_t x) {
  if (s.is_bool) return x != 0 ? mgr.true_term() : mgr.false_term();
  return mgr.make_bv_number(QNumber(static_cast<long>(x)), s.width);
}

CaseTerms make_case_terms(const Case& c, TermManager& mgr, ModelStore& store,
                          SetFreeTermPredicate& pred) {
  CaseTerms terms{mgr, {}, {}, nullptr, nullptr};
  for (std::size_t i = 0; i < c.args.size(); ++i) {
    const Sort& s = c.sig->args[i];
    const Term* a = mgr.make_constant("a" + std::to_string(i), type_of(mgr, s));
    terms.args.push_back(a);
    const Term* value = nullptr;
    switch (c.args[i].kind) {
      case Kind::Free:
        pred.mark_free(a);
        break;
      case Kind::Valued:
        value = value_term(mgr, s, c.args[i].value);
        store.set_value(a, value);
        break;
      case Kind::Defaulted:
        value = value_term(mgr, s, 0);
        break;
    }
    terms.values.push_back(value);
  }
  terms.t = c.sig->build(mgr, terms.args);
  terms.v = c.v ? value_term(mgr, c.sig->result, *c.v)
                : mgr.make_constant("not_a_value", type_of(mgr, c.sig->result));
  return terms;
}

std::string check_outcome(const Case& c, const CaseTerms& terms, const ModelStore& store,
                          const std::string* error, const std::string& log, const Expect& want) {
  std::ostringstream problem;
  // Defaulted arguments keep their defaults whatever happened.
  for (std::size_t i = 0; i < c.args.size(); ++i) {
    if (c.args[i].kind == Kind::Defaulted && store.value_of(terms.args[i]) != terms.values[i]) {
      problem << "a" << i << " lost its default value; ";
    }
  }
  if (want.error != nullptr) {
    if (error == nullptr) {
      problem << "expected error \"" << want.error << "\" but recorded "
              << list(store.constraints());
    } else if (*error != want.error) {
      problem << "expected error \"" << want.error << "\" got \"" << *error << "\"";
    } else if (!store.constraints().empty() || !log.empty() || store.adhoc_values.size() != 0) {
      problem << "error thrown after recording " << list(store.constraints());
    }
    return problem.str();
  }
  if (error != nullptr) {
    problem << "unexpected error \"" << *error << "\"";
    return problem.str();
  }

  TermManager& mgr = terms.mgr;
  std::vector<const Term*> expected;
  std::string expected_log;
  std::size_t boolean_targets = 0;
  for (const auto& [target, value] : want.records) {
    bool is_bool = target->type() == mgr.bool_type();
    expected.push_back(is_bool ? mgr.make_iff(target, value) : mgr.make_equal(target, value));
    expected_log += "calculated adhoc " + text(target) + " := " + text(value) + " ..\n";
    boolean_targets += is_bool ? 1 : 0;
  }
  if (store.constraints() != expected) {
    problem << "expected " << list(expected) << " got " << list(store.constraints()) << "; ";
  }
  if (log != expected_log) problem << "log was \"" << log << "\"; ";
  for (const auto& [target, value] : want.records) {
    if (target->type() != mgr.bool_type()) continue;
    auto it = store.adhoc_values.find(target);
    // A later record for the same target replaces the earlier value.
    const Term* last = nullptr;
    for (const auto& [t2, v2] : want.records) {
      if (t2 == target) last = v2;
    }
    if (it == store.adhoc_values.end() || it->second != last) {
      problem << "adhoc_values lacks " << text(target) << " := " << text(last) << "; ";
    }
  }
  if (boolean_targets == 0 && store.adhoc_values.size() != 0) problem << "adhoc_values written; ";
  if (!want.model_exempt && c.v) {
    auto got = evaluate(mgr, store, terms.t);
    if (!got || *got != *c.v) {
      problem << "model does not satisfy t = v (t evaluates to "
              << (got ? std::to_string(*got) : std::string("nothing")) << ")";
    }
  }
  return problem.str();
}

std::vector<Case> all_cases(const Signature& sig) {
  // Every argument: free, defaulted, or valued with each value of its sort.
  std::vector<std::vector<ArgCase>> options;
  for (const Sort& s : sig.args) {
    std::vector<ArgCase> opts{{Kind::Free, 0}, {Kind::Defaulted, 0}};
    for (std::uint64_t x = 0; x < s.value_count(); ++x) opts.push_back({Kind::Valued, x});
    options.push_back(std::move(opts));
  }
  std::vector<Case> cases;
  std::vector<std::size_t> pick(sig.args.size(), 0);
  while (true) {
    Case base;
    base.sig = &sig;
    for (std::size_t i = 0; i < pick.size(); ++i) base.args.push_back(options[i][pick[i]]);
    for (std::uint64_t v = 0; v < sig.result.value_count(); ++v) {
      base.v = v;
      cases.push_back(base);
    }
    base.v.reset();
    cases.push_back(base);
    // Odometer over the argument options.
    std::size_t i = 0;
    while (i < pick.size() && ++pick[i] == options[i].size()) pick[i++] = 0;
    if (i == pick.size()) break;
  }
  return cases;
}

}  // namespace kora::test
