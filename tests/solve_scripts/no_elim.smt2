; solvers: z3 cvc5 boolector
; args: --no-elim --stats
(set-logic QF_BV)
(declare-const x (_ BitVec 8))
(declare-const y (_ BitVec 8))
(assert (= (bvadd x y) #x10))
(assert (= y #x03))
(check-sat)
(get-value (x y))
