; A back end that answers unknown and then ignores (get-info :reason-unknown)
; is not waited for: unknown, without a reason of its own.
; arg: --solver=cmd:bash ../solve/fake_solver.sh mute unknown
(set-logic QF_BV)
(declare-const x (_ BitVec 8))
(assert (= (bvmul x x) #x01))
(check-sat)
(get-info :reason-unknown)
