; exit: 1
; solvers: z3 cvc5 boolector
; (push N) costs the same for every N; a count beyond what a solver accepts
; is refused with a clear message, and the levels are then out of step with
; the script's until reset-assertions.
(set-logic QF_BV)
(declare-const x (_ BitVec 4))
(push 1000000000)
(assert (= x #x1))
(push 1000000000)
(assert (= x #x2))
(check-sat)
(pop 1000000001)
(check-sat)
(pop 999999999)
(assert (= x #x2))
(check-sat)
(push 99999999999999999999999)
(check-sat)
(get-info :reason-unknown)
(reset-assertions)
(push 4294967295)
(pop 4294967295)
(check-sat)
