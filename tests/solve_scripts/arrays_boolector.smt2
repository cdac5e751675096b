; exit: 1
; solvers: boolector
; Boolector 1.5 gives no values for arrays: one clear error, and no answer
; is made up.
(set-logic QF_ABV)
(set-option :produce-models true)
(declare-const m (Array (_ BitVec 2) (Array (_ BitVec 2) (_ BitVec 3))))
(assert (= (select (select m #b01) #b10) #b101))
(check-sat)
(get-value ((select (select m #b01) #b10)))
