; exit: 1
; Each malformed command is answered with an error and skipped.
(set-logic QF_BV)
(declare-const x (_ BitVec 8))
(assert (= x #x0))
(assert (bvadd x x))
(assert (= x y))
(assert (= x (bvadd x)))
(declare-const x Bool)
(frobnicate x)
(assert (= x #x01)))
(assert (= x #x01))
(check-sat)
(get-value (x))
(assert (= x
