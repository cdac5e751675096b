; Arithmetic shift right: only two free arguments are solved, the first one taking v
; and the second one 0 (no shift). A known second argument is refused even where
; the first one could simply take v; so is a known first argument.
(declare-const x (_ BitVec 8))
(declare-const y (_ BitVec 8))
(set-free x)
(set-free y)
(calculate (bvashr x y) #xf0)
(get-value (x y (bvashr x y)))
(check-model)
(declare-const a (_ BitVec 8))
(declare-const b (_ BitVec 8))
(set-free a)
(set-model-value b #x00)
(calculate (bvashr a b) #xf0)
(declare-const c (_ BitVec 8))
(set-free c)
(calculate (bvashr b c) #xf0)
; d is neither valued nor free: defaulted to 0 before the refusal.
(declare-const d (_ BitVec 8))
(calculate (bvashr a d) #xf0)
(get-value (d))
