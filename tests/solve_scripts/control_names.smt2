; exit: 1
; solvers: z3 cvc5 boolector
; A name that holds a control character (here written with kora's escapes)
; is refused where it is declared, with the name escaped in the message, and
; it breaks no later check-sat.
(set-logic QF_BV)
(declare-fun |a\x01| () Bool)
(declare-fun |nul\x00| () (_ BitVec 4))
(declare-const |two
lines| (_ BitVec 4))
(assert (= |two
lines| #x3))
(check-sat)
(get-value (|two
lines|))
(get-model)
