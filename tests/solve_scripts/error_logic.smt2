; exit: 1
; Logics other than QF_BV are refused; the commands after them are read as
; QF_BV.
(set-logic QF_LIA)
(set-logic QF_ABV)
(set-logic ALL)
(set-logic QF_BV)
(declare-const x (_ BitVec 4))
(assert (= x #x9))
(check-sat)
(get-value (x))
