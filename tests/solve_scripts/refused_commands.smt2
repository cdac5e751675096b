; exit: 1
; solvers: z3 cvc5 boolector
; A refused command never changes the problem silently. While a refused
; assert would be in force (until the pop of its level), check-sat answers
; unknown and the reason names the line; refused assumptions answer unknown;
; after a refused push or pop the levels are out of step with the script's
; until reset-assertions or reset.
(set-logic QF_BV)
(declare-const x (_ BitVec 4))
(assert (bvult x #x3))
(push 1)
(assert (= x #x07))
(check-sat)
(get-info :reason-unknown)
(push 2)
(assert (= x #x1))
(assert (= x #b1))
(check-sat)
(get-info :reason-unknown)
(pop 3)
(check-sat)
(check-sat-assuming ((= x #x00)))
(get-info :reason-unknown)
(check-sat-assuming ((= x #x5)))
(push x)
(check-sat)
(get-info :reason-unknown)
(pop 1)
(check-sat)
(reset-assertions)
(check-sat)
(assert (= x #x00))
(pop 1)
(check-sat)
(get-info :reason-unknown)
(reset)
(declare-const x (_ BitVec 4))
(assert (= x #x5))
(check-sat)
