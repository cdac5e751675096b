; Logical shift right: only two free arguments are solved, the first one taking v
; and the second one 0 (no shift). A known second argument is refused even where
; the first one could simply take v; so is a known first argument.
(declare-const x (_ BitVec 8))
(declare-const y (_ BitVec 8))
(set-free x)
(set-free y)
(calculate (bvlshr x y) #xc0)
(get-value (x y (bvlshr x y)))
(check-model)
(declare-const a (_ BitVec 8))
(declare-const b (_ BitVec 8))
(set-free a)
(set-model-value b #x00)
(calculate (bvlshr a b) #xc0)
(declare-const c (_ BitVec 8))
(set-free c)
(calculate (bvlshr b c) #xc0)
; d is neither valued nor free: defaulted to 0 before the refusal.
(declare-const d (_ BitVec 8))
(calculate (bvlshr a d) #xc0)
(get-value (d))
