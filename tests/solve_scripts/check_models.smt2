; solvers: z3 cvc5 boolector
; args: --check-models -v 2
; Each rebuilt value is logged at verbosity 2; the back end confirms the
; whole model.
(set-logic QF_BV)
(declare-const x (_ BitVec 8))
(declare-const y (_ BitVec 8))
(declare-const z (_ BitVec 8))
(assert (= (bvmul x #x03) y))
(assert (= y #x40))
(assert (bvult (bvadd z y) #x02))
(check-sat)
(get-value (x y (bvadd z y)))
