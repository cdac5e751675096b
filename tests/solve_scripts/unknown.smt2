; The back end's unknown and its reason are passed on.
; arg: --solver=cmd:bash ../solve/fake_solver.sh answer unknown () incomplete
(set-logic QF_BV)
(declare-const x (_ BitVec 8))
(assert (= (bvmul x x) #x01))
(check-sat)
(get-info :reason-unknown)
