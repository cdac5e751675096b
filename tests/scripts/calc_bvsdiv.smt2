; Signed division: only two free arguments are solved, the first one taking v
; and the second one 1 (the divisor that keeps the dividend). A known second argument is refused even where
; the first one could simply take v; so is a known first argument.
(declare-const x (_ BitVec 8))
(declare-const y (_ BitVec 8))
(set-free x)
(set-free y)
(calculate (bvsdiv x y) #xff)
(get-value (x y (bvsdiv x y)))
(check-model)
(declare-const a (_ BitVec 8))
(declare-const b (_ BitVec 8))
(set-free a)
(set-model-value b #x01)
(calculate (bvsdiv a b) #xff)
(declare-const c (_ BitVec 8))
(set-free c)
(calculate (bvsdiv b c) #xff)
; d is neither valued nor free: defaulted to 0 before the refusal.
(declare-const d (_ BitVec 8))
(calculate (bvsdiv a d) #xff)
(get-value (d))
