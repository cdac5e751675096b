; Logical shift left: only two free arguments are solved, the first one taking v
; and the second one 0 (no shift). A known second argument is refused even where
; the first one could simply take v; so is a known first argument.
(declare-const x (_ BitVec 8))
(declare-const y (_ BitVec 8))
(set-free x)
(set-free y)
(calculate (bvshl x y) #x0c)
(get-value (x y (bvshl x y)))
(check-model)
(declare-const a (_ BitVec 8))
(declare-const b (_ BitVec 8))
(set-free a)
(set-model-value b #x00)
(calculate (bvshl a b) #x0c)
(declare-const c (_ BitVec 8))
(set-free c)
(calculate (bvshl b c) #x0c)
; d is neither valued nor free: defaulted to 0 before the refusal.
(declare-const d (_ BitVec 8))
(calculate (bvshl a d) #x0c)
(get-value (d))
