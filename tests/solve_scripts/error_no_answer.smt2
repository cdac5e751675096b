; exit: 1
; solvers: z3 cvc5 boolector
; Commands that need an answer the last check-sat did not give are refused,
; and the script goes on.
(set-logic QF_BV)
(declare-const x (_ BitVec 4))
(get-model)
(get-value (x))
(get-assignment)
(get-info :reason-unknown)
(assert (= x #x1))
(check-sat)
(get-info :reason-unknown)
(assert (= x #x2))
(get-value (x))
(check-sat)
(get-model)
(get-value (x))
(pop 1)
(push 1)
(pop 2)
(echo "still running")
