; exit: 1
; Arrays, quantifiers, uninterpreted functions with arguments, uninterpreted
; sorts and other theories: one error per offending command, never a crash.
; The refused asserts are in force for the script, so check-sat answers
; unknown until a reset-assertions.
(set-logic QF_BV)
(declare-const x (_ BitVec 8))
(declare-fun f ((_ BitVec 8)) (_ BitVec 8))
(declare-const m (Array (_ BitVec 8) (_ BitVec 8)))
(assert (= (select m x) #x00))
(assert (= (store m x x) m))
(assert (forall ((y (_ BitVec 8))) (bvule y x)))
(assert (exists ((y (_ BitVec 8))) (= y x)))
(declare-sort U 0)
(declare-const i Int)
(assert (= (f x) x))
(assert (= x #xa5))
(check-sat)
(get-value (x))
(get-info :reason-unknown)
(reset-assertions)
(assert (= x #xa5))
(check-sat)
(get-value (x))
