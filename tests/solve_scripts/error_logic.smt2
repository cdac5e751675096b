; exit: 1
; Logics other than QF_BV, QF_ABV and QF_AUFBV are refused; the commands
; after them are read as before.
(set-logic QF_LIA)
(set-logic QF_ABV)
(set-logic ALL)
(set-logic QF_BV)
(declare-const x (_ BitVec 4))
(assert (= x #x9))
(check-sat)
(get-value (x))
