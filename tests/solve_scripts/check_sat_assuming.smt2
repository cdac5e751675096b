; solvers: z3 cvc5 boolector
; The assumptions hold for one check only.
(set-logic QF_BV)
(declare-const p Bool)
(declare-const q Bool)
(declare-const x (_ BitVec 4))
(assert (=> p (= x #x7)))
(assert (=> q (= x #x9)))
(check-sat-assuming (p q))
(check-sat-assuming (p (not q)))
(get-value (p q x))
(check-sat-assuming ((not p) q))
(get-value (p q x))
(check-sat-assuming (p (= x #x1)))
