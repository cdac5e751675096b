; exit: 1
; Each malformed command is answered with an error and skipped. A refused
; assert leaves kora with another problem than the script's, so check-sat
; answers unknown and the reason names the first refused assert.
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
(get-info :reason-unknown)
(assert (= x
