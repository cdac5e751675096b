; solvers: z3 cvc5 boolector
; sat and unsat; each check-sat solves the assertions in scope afresh.
(set-logic QF_BV)
(declare-const x (_ BitVec 8))
(declare-const y (_ BitVec 8))
(assert (= (bvmul x y) #x0d))
(check-sat)
(assert (= x #x00))
(check-sat)
