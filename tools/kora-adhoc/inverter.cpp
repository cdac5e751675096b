#include "kora-adhoc/inverter.h"

#include "kora/inverse/inverter.h"

namespace kora::frontend {

Inverter::~Inverter() = default;

namespace {

// The library's complete inverter behind the front end's interface.
class CompleteInverter final : public Inverter {
 public:
  CompleteInverter(TermManager* mgr, ModelStore* store, adhoccalculator::FreeTermPredicate* pred)
      : inverter_(mgr, store, pred) {}

  bool handles(const Term* t) const override { return inverse::invertible(t->get_symbol()->op()); }
  void operator()(const Term* t, const Term* v) override { inverter_(t, v); }

 private:
  inverse::Inverter inverter_;
};

}  // namespace

InverterFactory builtin_inverter() {
  return [](TermManager* mgr, ModelStore* store, adhoccalculator::FreeTermPredicate* pred) {
    return std::make_unique<CompleteInverter>(mgr, store, pred);
  };
}

}  // namespace kora::frontend
