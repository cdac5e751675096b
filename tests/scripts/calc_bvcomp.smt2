; Comp gives #b1 for equal sides. Required #b1, a free side takes the other
; side's value; required anything else, that value plus one, wrapping at all
; ones. Two free sides take 0 and 0, or 1 and 0; no free side is refused.
(declare-const a (_ BitVec 8))
(declare-const b (_ BitVec 8))
(set-model-value a #x2a)
(set-free b)
(calculate (bvcomp a b) #b1)
(declare-const c (_ BitVec 8))
(set-free c)
(calculate (bvcomp c #xff) #b0)
(declare-const x (_ BitVec 8))
(declare-const y (_ BitVec 8))
(set-free x)
(set-free y)
(calculate (bvcomp x y) #b0)
(calculate (bvcomp a #x2a) #b1)
(get-value (b c x y (bvcomp x y)))
(check-model)
