; exit: 1
; calculate needs an operator application whose operator has a calculator,
; and a value of the term's sort. A constant array has no calculator, and
; never will: it is not an operator that the simplifier frees.
(declare-const a Bool)
(declare-const m (Array Bool Bool))
(set-free a)
(calculate ((as const (Array Bool Bool)) a) m)
(calculate a true)
(calculate true true)
(calculate #x01 #x01)
(calculate (not a) #b1)
(calculate (not a))
(calculate (not a) true extra)
(calculate (not zz) true)
; None of those recorded anything.
(get-constraints)
(check-model)
