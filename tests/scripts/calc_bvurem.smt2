; Unsigned remainder: its arguments are never free, so its calculator
; refuses every call at once, before looking at the arguments: nothing is
; recorded and not even a defaulted argument gets its default.
(declare-const a (_ BitVec 4))
(declare-const b (_ BitVec 4))
(set-free a)
(set-free b)
(calculate (bvurem a b) #x1)
(declare-const k (_ BitVec 4))
(declare-const d (_ BitVec 4))
(set-model-value k #x5)
(calculate (bvurem k d) #x1)
(get-value (a b d))
(get-constraints)
(get-adhoc-values)
