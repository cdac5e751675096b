; solvers: z3 cvc5 boolector
; get-assignment gives every Boolean term named with :named.
(set-logic QF_BV)
(set-option :produce-assignments true)
(declare-const x (_ BitVec 4))
(assert (! (= x #x3) :named is_three))
(assert (or (! (bvult x #x2) :named small) (! (bvugt x #x2) :named big)))
(check-sat)
(get-assignment)
