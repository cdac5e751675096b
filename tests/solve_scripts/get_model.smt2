; solvers: z3 cvc5 boolector
; get-model lists every declared constant in declaration order, those the
; assertions do not mention with their default values.
(set-logic QF_BV)
(declare-const b Bool)
(declare-fun n () (_ BitVec 3))
(declare-fun unused () (_ BitVec 5))
(declare-fun h () (_ BitVec 16))
(declare-const off Bool)
(assert b)
(assert (= n #b101))
(assert (= (bvxor h #xffff) #x1234))
(check-sat)
(get-model)
(declare-const later (_ BitVec 4))
(get-model)
