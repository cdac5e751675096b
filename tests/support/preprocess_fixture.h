#pragma once

// Term builders shared by the tests of the simplifier and the model builder.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kora/numbers/qnumber.h"
#include "kora/terms/term_manager.h"

namespace kora::test {

class PreprocessTest : public ::testing::Test {
 protected:
  const Term* bv(const std::string& name, std::size_t w = 4) {
    return mgr.make_constant(name, mgr.bv_type(w));
  }
  const Term* boolean(const std::string& name) { return mgr.make_constant(name, mgr.bool_type()); }
  // A bit-vector operator over arguments of the first one's width.
  const Term* app(Op op, const std::vector<const Term*>& args) {
    return mgr.make_term(mgr.make_bv_symbol(op, args[0]->type()->width()), args);
  }
  const Term* num(long x, std::size_t w = 4) { return mgr.make_bv_number(QNumber(x), w); }
  // A term that keeps y constrained: y occurs twice in it.
  const Term* pin(const Term* y) { return mgr.make_equal(y, y); }

  TermManager mgr;
};

}  // namespace kora::test
