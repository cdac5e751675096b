; Equality over a declared sort: a free side takes the other side's value
; when the atom must hold; a disequality is refused.
(declare-sort U 0)
(declare-const u U)
(declare-const v U)
(set-free u)
(set-model-value v (as @4 U))
(calculate (= u v) true)
(declare-const w U)
(set-free w)
(calculate (= w (as @1 U)) false)
(get-value (u (= u v)))
