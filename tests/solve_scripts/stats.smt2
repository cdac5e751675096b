; solvers: z3 cvc5 boolector
; args: --stats --check-models
; One line per check-sat on standard error (the times are written T here).
(set-logic QF_BV)
(declare-const x (_ BitVec 8))
(declare-const y (_ BitVec 8))
(declare-const z (_ BitVec 8))
(declare-const c Bool)
(declare-const w (_ BitVec 8))
(assert (= (bvmul (bvadd x y) z) #x10))
(assert (bvult y #x05))
(assert (= y #x04))
(assert (= (bvand w y) #x04))
(check-sat)
(get-value ((bvmul (bvadd x y) z) y))
(assert (not c))
(assert (= c (= y #x04)))
(check-sat)
