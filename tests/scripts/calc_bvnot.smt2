; Bitwise not: a free argument takes the complement of v; an argument with a
; value, or a defaulted one, is refused.
(declare-const a (_ BitVec 8))
(set-free a)
(calculate (bvnot a) #x00)
(get-value (a (bvnot a)))
(declare-const b (_ BitVec 8))
(set-model-value b #x0f)
(calculate (bvnot b) #xf0)
; d is neither valued nor free: it is defaulted to zero, then refused.
(declare-const d (_ BitVec 4))
(calculate (bvnot d) #x3)
(get-value (d))
(get-constraints)
(check-model)
