; Iff, written (= a b) over Bool: a free side takes (other <=> v); two free
; sides take true and v; two sides with values are refused.
(declare-const a Bool)
(declare-const b Bool)
(declare-const p Bool)
(declare-const q Bool)
(set-free a)
(set-free b)
(calculate (= a b) false)
(set-model-value p true)
(set-free q)
(calculate (= p q) false)
(declare-const r Bool)
(set-free r)
(calculate (= r p) true)
; Both sides have values now.
(calculate (= r q) true)
(calculate (= p true) true)
(get-value (a b q r (= a b)))
