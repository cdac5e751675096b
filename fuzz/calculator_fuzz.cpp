// Drives the calculators of the CalculatorTable with terms, models and
// required values decoded from the fuzzer's bytes. One input is one call:
// an operator among the 32, a width from 1 to 130, for each argument a
// status (free, valued, defaulted, a value written in place, a compound term,
// or the same term as an earlier argument), and the value v.
//
// A call must either throw AdHocCalculator::error with one of the six fixed
// messages, or record at least one value (one log record each) after which
// the model satisfies t = v, that is store.get_normalized(t) == v. The
// calculators' deliberate choices where the recorded values do not make
// t = v hold are listed in `Exemption` and are the only ones allowed; any
// other outcome aborts with the case printed.
//
// Free marks are placed on declared constants only: recording a value for a
// compound term adds a constraint but sets no constant, so it could never
// make t = v hold through the store. Each compound argument is built over
// constants of its own, so that classifying one argument never defaults a
// constant of another; sharing is exercised by repeating a whole argument.

#include <fuzzer/FuzzedDataProvider.h>
#include <gmpxx.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "kora/calculators/adhoc_calculator.h"
#include "kora/calculators/calculator_table.h"
#include "kora/model/model_store.h"
#include "kora/numbers/qnumber.h"
#include "kora/terms/term_manager.h"

namespace {

using kora::DataType;
using kora::ModelStore;
using kora::Op;
using kora::QNumber;
using kora::Term;
using kora::TermManager;
using kora::adhoccalculator::AdHocCalculator;
using kora::adhoccalculator::CalculatorTable;
using kora::adhoccalculator::SetFreeTermPredicate;

namespace calc = kora::adhoccalculator;

// The operators of the 32 calculators, in the table's order.
constexpr Op kOps[] = {Op::Not,          Op::And,          Op::Or,           Op::Iff,
                       Op::Ite,          Op::Equal,        Op::BVAdd,        Op::BVSub,
                       Op::BVNeg,        Op::BVMul,        Op::BVShl,        Op::BVLshr,
                       Op::BVAshr,       Op::BVUdiv,       Op::BVSdiv,       Op::BVUlt,
                       Op::BVUle,        Op::BVSlt,        Op::BVSle,        Op::BVComp,
                       Op::BVNot,        Op::BVAnd,        Op::BVOr,         Op::BVXor,
                       Op::BVConcat,     Op::BVExtract,    Op::BVRotateLeft, Op::BVRotateRight,
                       Op::BVZeroExtend, Op::BVSignExtend, Op::BVUrem,       Op::BVSrem};
static_assert(sizeof(kOps) / sizeof(kOps[0]) == 32);

constexpr const char* kMessages[] = {calc::kNotFreeMessage,   calc::kAddNotFreeMessage,
                                     calc::kArraysMessage,    calc::kUnsupportedTypeMessage,
                                     calc::kNeverFreeMessage, calc::kNoValueMessage};

constexpr std::size_t kMaxWidth = 130;

// How an argument is given.
enum class Kind {
  Free,        // a declared constant marked free, without a value
  Valued,      // a declared constant with a model value
  Defaulted,   // a declared constant, neither free nor valued
  Literal,     // a value written in place of the argument
  Compound,    // an application over constants of its own (valued or defaulted)
  FreeValued,  // marked free but valued: the value wins
  Repeat,      // the same term as an earlier argument of the same sort
};

// The documented cases in which a calculator records values that do not make
// t = v hold. The calculators' choices are required as they are.
enum class Exemption {
  None,
  // Ite, Boolean branches, condition free, a branch with a value: that
  // branch's value term itself is recorded := v, which sets nothing.
  IteBooleanBranchWithValue,
  // a <s b := true with a free and b's value 0 (wider than one bit): the
  // predecessor of 0 goes through twos_complement to 2^(w-1) - 2.
  SignedLessThanZero,
  // The mirror through a <=s b := false, asked as b <s a := true with a's
  // value 0 and b free.
  SignedLessEqualZero,
  // One free term at two argument positions: each position gets its own
  // value and the last one recorded wins.
  SameFreeTermTwice,
  // v is not a value: calculators read it as 0 or as "false".
  VNotAValue,
};

class Case {
 public:
  explicit Case(FuzzedDataProvider& in)
      : in_(in), store_(&mgr_, &log_), table_(&mgr_, &store_, &pred_) {
    store_.logger().set_verbosity(2);
  }

  void run();

 private:
  // --- Decoding ---------------------------------------------------------------
  std::size_t width() { return in_.ConsumeIntegralInRange<std::size_t>(1, kMaxWidth); }

  mpz_class bv_value(std::size_t w) {
    mpz_class top = 1;
    top <<= w;
    mpz_class half = 1;
    half <<= (w - 1);
    switch (in_.ConsumeIntegralInRange<int>(0, 9)) {
      case 0:
        return 0;
      case 1:
        return 1 % top;
      case 2:
        return top - 1;
      case 3:
        return half;
      case 4:
        return half - 1;
      case 5:
        return (half + 1) % top;
      case 6:
        return top - 2 >= 0 ? mpz_class(top - 2) : mpz_class(0);
      default: {
        const std::string bytes = in_.ConsumeBytesAsString((w + 7) / 8);
        mpz_class z;
        for (unsigned char c : bytes) z = z * 256 + c;
        mpz_fdiv_r_2exp(z.get_mpz_t(), z.get_mpz_t(), w);
        return z;
      }
    }
  }

  const Term* value(const DataType* s) {
    switch (s->kind()) {
      case DataType::Kind::Bool:
        return in_.ConsumeBool() ? mgr_.true_term() : mgr_.false_term();
      case DataType::Kind::BitVec:
        return mgr_.make_bv_number(QNumber(bv_value(s->width())), s->width());
      case DataType::Kind::Sort:
        return mgr_.make_abstract_value(in_.ConsumeIntegralInRange<std::size_t>(0, 3), s);
      case DataType::Kind::Array:
        return mgr_.make_const_array(s, value(s->element()));
    }
    return nullptr;
  }

  const Term* constant(const DataType* s) {
    return mgr_.make_constant("c" + std::to_string(next_constant_++), s);
  }

  // A constant of its own that is valued or left to be defaulted.
  const Term* inner_constant(const DataType* s) {
    const Term* c = constant(s);
    if (in_.ConsumeBool()) store_.set_value(c, value(s));
    return c;
  }

  const Term* compound(const DataType* s) {
    if (s->is_bool()) {
      switch (in_.ConsumeIntegralInRange<int>(0, 2)) {
        case 0:
          return mgr_.make_not(inner_constant(s));
        case 1:
          return mgr_.make_and(inner_constant(s), inner_constant(s));
        default: {
          const DataType* bv = mgr_.bv_type(in_.ConsumeIntegralInRange<std::size_t>(1, 8));
          return mgr_.make_term(mgr_.make_bv_ult_symbol(bv->width()),
                                {inner_constant(bv), inner_constant(bv)});
        }
      }
    }
    if (s->is_bv()) {
      const std::size_t w = s->width();
      switch (in_.ConsumeIntegralInRange<int>(0, 2)) {
        case 0:
          return mgr_.make_term(mgr_.make_bv_not_symbol(w), {inner_constant(s)});
        case 1:
          return mgr_.make_term(mgr_.make_bv_add_symbol(w), {inner_constant(s), inner_constant(s)});
        default:
          return mgr_.make_ite(inner_constant(mgr_.bool_type()), inner_constant(s),
                               inner_constant(s));
      }
    }
    return mgr_.make_ite(inner_constant(mgr_.bool_type()), inner_constant(s), inner_constant(s));
  }

  void argument(const DataType* s) {
    Kind kind;
    const int pick = in_.ConsumeIntegralInRange<int>(0, 10);
    if (pick <= 3) {
      kind = Kind::Free;
    } else {
      constexpr Kind kOthers[] = {Kind::Valued,   Kind::Defaulted,  Kind::Literal, Kind::Compound,
                                  Kind::Compound, Kind::FreeValued, Kind::Repeat};
      kind = kOthers[pick - 4];
    }
    const Term* a = nullptr;
    switch (kind) {
      case Kind::Free:
        a = constant(s);
        pred_.mark_free(a);
        break;
      case Kind::Valued:
        a = constant(s);
        store_.set_value(a, value(s));
        break;
      case Kind::Defaulted:
        a = constant(s);
        break;
      case Kind::Literal:
        a = value(s);
        break;
      case Kind::Compound:
        a = compound(s);
        break;
      case Kind::FreeValued:
        a = constant(s);
        pred_.mark_free(a);
        store_.set_value(a, value(s));
        break;
      case Kind::Repeat:
        for (const Term* earlier : args_) {
          if (earlier->type() == s) a = earlier;
        }
        if (a == nullptr) {
          a = constant(s);
          pred_.mark_free(a);
        }
        break;
    }
    args_.push_back(a);
  }

  // Builds t: its operator, sorts and arguments.
  const Term* build(Op op) {
    const DataType* boolean = mgr_.bool_type();
    const std::size_t w = width();
    const DataType* bv = mgr_.bv_type(w);
    auto args = [&](std::initializer_list<const DataType*> sorts) {
      for (const DataType* s : sorts) argument(s);
    };
    auto amount = [&]() -> std::size_t {
      switch (in_.ConsumeIntegralInRange<int>(0, 4)) {
        case 0:
          return 0;
        case 1:
          return w;
        case 2:
          return SIZE_MAX - in_.ConsumeIntegralInRange<std::size_t>(0, 3);
        default:
          return in_.ConsumeIntegralInRange<std::size_t>(0, 3 * w);
      }
    };
    switch (op) {
      case Op::Not:
        args({boolean});
        return mgr_.make_not(args_[0]);
      case Op::And:
        args({boolean, boolean});
        return mgr_.make_and(args_[0], args_[1]);
      case Op::Or:
        args({boolean, boolean});
        return mgr_.make_or(args_[0], args_[1]);
      case Op::Iff:
        args({boolean, boolean});
        // The table sends an equality over Booleans to Iff as well.
        return in_.ConsumeBool() ? mgr_.make_iff(args_[0], args_[1])
                                 : mgr_.make_equal(args_[0], args_[1]);
      case Op::Ite: {
        const DataType* s = in_.ConsumeBool() ? boolean : bv;
        args({boolean, s, s});
        return mgr_.make_ite(args_[0], args_[1], args_[2]);
      }
      case Op::Equal: {
        const DataType* s = bv;
        switch (in_.ConsumeIntegralInRange<int>(0, 5)) {
          case 0:
            s = mgr_.sort_type("U");
            break;
          case 1:
            s = mgr_.array_type(mgr_.bv_type(in_.ConsumeIntegralInRange<std::size_t>(1, 4)), bv);
            break;
          default:
            break;
        }
        args({s, s});
        return mgr_.make_equal(args_[0], args_[1]);
      }
      case Op::BVNeg:
      case Op::BVNot:
        args({bv});
        return mgr_.make_term(mgr_.make_bv_symbol(op, w), {args_[0]});
      case Op::BVConcat: {
        const DataType* low = mgr_.bv_type(width());
        args({bv, low});
        return mgr_.make_term(mgr_.make_bv_concat_symbol(w, low->width()), {args_[0], args_[1]});
      }
      case Op::BVExtract: {
        const std::size_t msb = in_.ConsumeIntegralInRange<std::size_t>(0, w - 1);
        const std::size_t lsb = in_.ConsumeIntegralInRange<std::size_t>(0, msb);
        args({bv});
        return mgr_.make_term(mgr_.make_bv_extract_symbol(msb, lsb, w), {args_[0]});
      }
      case Op::BVRotateLeft:
      case Op::BVRotateRight: {
        const std::size_t k = amount();
        args({bv});
        return mgr_.make_term(op == Op::BVRotateLeft ? mgr_.make_bv_rotate_left_symbol(k, w)
                                                     : mgr_.make_bv_rotate_right_symbol(k, w),
                              {args_[0]});
      }
      case Op::BVZeroExtend:
      case Op::BVSignExtend: {
        const std::size_t k = in_.ConsumeIntegralInRange<std::size_t>(0, kMaxWidth);
        args({bv});
        return mgr_.make_term(op == Op::BVZeroExtend ? mgr_.make_bv_zero_extend_symbol(k, w)
                                                     : mgr_.make_bv_sign_extend_symbol(k, w),
                              {args_[0]});
      }
      default:
        // The binary bit-vector operators, comparisons and comp.
        args({bv, bv});
        return mgr_.make_term(mgr_.make_bv_symbol(op, w), {args_[0], args_[1]});
    }
  }

  // --- Checking ----------------------------------------------------------------
  bool has_value(const Term* a) { return store_.is_good_model_value(store_.get_normalized(a)); }
  bool is_free(const Term* a) { return !has_value(a) && pred_.is_free(a); }
  bool is_zero(const Term* a) {
    const QNumber* n = mgr_.find_number(store_.get_normalized(a)->get_symbol());
    return n != nullptr && n->sign() == 0;
  }

  Exemption exemption(Op op, const Term* t, const Term* v, const std::vector<bool>& free);
  static void trace(const Term* t, const char* outcome);

  [[noreturn]] void fail(const std::string& what, const Term* t, const Term* v) {
    std::string constraints;
    for (const Term* c : store_.constraints()) constraints += " " + c->to_shallow_str();
    std::fprintf(stderr,
                 "calculator_fuzz: %s\n  t = %s\n  v = %s\n  free:%s\n  recorded:%s\n  log:\n%s",
                 what.c_str(), t->to_shallow_str().c_str(), v->to_shallow_str().c_str(),
                 free_list_.c_str(), constraints.c_str(), log_.str().c_str());
    std::abort();
  }

  FuzzedDataProvider& in_;
  TermManager mgr_;
  std::ostringstream log_;
  ModelStore store_;
  SetFreeTermPredicate pred_;
  CalculatorTable table_;
  std::vector<const Term*> args_;
  std::size_t next_constant_ = 0;
  std::string free_list_;
};

Exemption Case::exemption(Op op, const Term* t, const Term* v, const std::vector<bool>& free) {
  if (!store_.is_good_model_value(v)) return Exemption::VNotAValue;
  for (std::size_t i = 0; i < args_.size(); ++i) {
    for (std::size_t j = i + 1; j < args_.size(); ++j) {
      if (free[i] && args_[i] == args_[j]) return Exemption::SameFreeTermTwice;
    }
  }
  const bool v_true = v == mgr_.true_term();
  const std::size_t w = args_[0]->type()->width();
  switch (op) {
    case Op::Ite:
      if (t->type()->is_bool() && free[0] && (!free[1] || !free[2])) {
        return Exemption::IteBooleanBranchWithValue;
      }
      break;
    case Op::BVSlt:
      if (v_true && w > 1 && free[0] && !free[1] && is_zero(args_[1])) {
        return Exemption::SignedLessThanZero;
      }
      break;
    case Op::BVSle:
      if (!v_true && w > 1 && free[1] && !free[0] && is_zero(args_[0])) {
        return Exemption::SignedLessEqualZero;
      }
      break;
    default:
      break;
  }
  return Exemption::None;
}

void Case::run() {
  const Op op = in_.PickValueInArray(kOps);
  const Term* t = build(op);
  const Term* v = nullptr;
  if (in_.ConsumeIntegralInRange<int>(0, 15) == 15) {
    // Not a value: a declared constant of t's sort, with or without a value.
    v = constant(t->type());
    if (in_.ConsumeBool()) store_.set_value(v, value(t->type()));
  } else {
    v = value(t->type());
  }

  // How the calculator will classify each argument (no argument's
  // classification can change another's: see the top of this file).
  std::vector<bool> free;
  for (const Term* a : args_) {
    free.push_back(is_free(a));
    if (free.back()) free_list_ += " " + a->to_shallow_str();
  }

  AdHocCalculator* calculator = table_.find(t);
  if (calculator == nullptr) fail("no calculator in the table", t, v);
  try {
    (*calculator)(t, v);
  } catch (const AdHocCalculator::error& e) {
    for (const char* m : kMessages) {
      if (std::strcmp(e.what(), m) != 0) continue;
      trace(t, "refused");
      return;
    }
    fail(std::string("unknown message \"") + e.what() + "\"", t, v);
  }

  const std::vector<const Term*>& recorded = store_.constraints();
  if (recorded.empty()) fail("returned without recording a value", t, v);
  std::size_t records = 0;
  const std::string log = log_.str();
  for (std::size_t at = log.find("calculated adhoc "); at != std::string::npos;
       at = log.find("calculated adhoc ", at + 1)) {
    ++records;
  }
  if (records != recorded.size()) fail("log records and constraints differ in number", t, v);

  const Exemption e = exemption(op, t, v, free);
  if (e != Exemption::None) {
    trace(t, e == Exemption::VNotAValue                  ? "exempt: v not a value"
             : e == Exemption::SameFreeTermTwice         ? "exempt: same free term twice"
             : e == Exemption::IteBooleanBranchWithValue ? "exempt: ite Boolean branch"
                                                         : "exempt: signed zero");
    return;
  }
  const Term* got = store_.get_normalized(t);
  if (got != v) fail("the model gives t = " + got->to_shallow_str() + ", not v", t, v);
  trace(t, "holds");
}

// KORA_FUZZ_TRACE=1 prints one line per case, to see what a corpus covers.
void Case::trace(const Term* t, const char* outcome) {
  static const bool enabled = std::getenv("KORA_FUZZ_TRACE") != nullptr;
  if (enabled) std::fprintf(stderr, "%s %s\n", kora::op_name(t->get_symbol()->op()), outcome);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  Case c(in);
  c.run();
  return 0;
}
