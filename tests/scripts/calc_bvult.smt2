; Unsigned less-than: a free side takes the value nearest to the other side
; (its successor or predecessor when the comparison must hold, the same value
; when it must fail). Nothing lies below 0 or above all ones, so those are
; refused, and so is a comparison with no free side.
(declare-const a (_ BitVec 8))
(declare-const b (_ BitVec 8))
(set-model-value a #xfe)
(set-free b)
(calculate (bvult a b) true)
(declare-const c (_ BitVec 8))
(set-free c)
(calculate (bvult c #x00) false)
(declare-const d (_ BitVec 8))
(set-free d)
(calculate (bvult d #x00) true)
(calculate (bvult #xff d) true)
(declare-const x (_ BitVec 4))
(declare-const y (_ BitVec 4))
(set-free x)
(set-free y)
(calculate (bvult x y) true)
(calculate (bvult a #x05) true)
(get-value (b c d x y (bvult a b) (bvult x y)))
(check-model)
