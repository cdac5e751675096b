#pragma once

// Invertibility conditions: for an application f(.., x, ..) with x at
// position p and a target t, a term over the other arguments s and t alone
// that is true exactly when some value of x makes f(.., x, ..) = t. Only the
// operators and positions whose condition costs no more than the operator
// itself have one:
//
//   f(x at p)                condition
//   ite x a b = t            a = t or b = t
//   ite c x b = t            c or b = t
//   ite c a x = t            not c or a = t
//   and x s = t (either p)   s or not t
//   or x s = t (either p)    not s or t
//   bvand x s = t (either)   t & s = t
//   bvor x s = t (either)    t | s = t
//   bvmul x s = t (either)   (s | -s) & t = t
//   bvurem x s = t           t <=u ~(-s)
//   bvshl x s = t            (t >>u s) << s = t
//   bvlshr x s = t           (t << s) >>u s = t
//   bvashr x s = t           (t << s) >>a s = t or t >>a s = t
//   concat x s = t           extract of t's low bits = s
//   concat s x = t           extract of t's high bits = s
//   zero_extend k x = t      t's top k bits = 0
//   sign_extend k x = t      sign_extend k (t's low bits) = t

#include <cstddef>

#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"

namespace kora::preprocess {

// Whether an application of op with the unknown at position p has a
// condition in the table above.
bool has_condition(Op op, std::size_t p);

// The condition for app = target with the unknown at position p of app;
// has_condition(app's operator, p) must hold.
const Term* invertibility_condition(TermManager& mgr, const Term* app, std::size_t p,
                                    const Term* target);

}  // namespace kora::preprocess
