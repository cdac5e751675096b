; A back end whose model fails validation, for the reduced problem and again
; for the problem as given: the answer is unknown, the reason says so, no
; model is served, and --stats counts the rejected model.
; args: --stats
; arg: --solver=cmd:bash ../solve/fake_solver.sh answer sat ((x#x02))
; exit: 1
(set-logic QF_BV)
(declare-const x (_ BitVec 8))
(assert (= x #x01))
(assert (bvult x #x05))
(check-sat)
(get-info :reason-unknown)
(get-model)
(get-value (x))
