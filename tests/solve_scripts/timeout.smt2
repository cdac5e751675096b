; A back end that never answers is killed at the limit: unknown, and the
; reason is timeout.
; args: --timeout 0.3
; arg: --solver=cmd:bash ../solve/fake_solver.sh hang
(set-logic QF_BV)
(declare-const x (_ BitVec 8))
(assert (= x #x01))
(check-sat)
(get-info :reason-unknown)
(echo "done")
