; And: both arguments free take the value of the term. One argument with a
; value, or a defaulted one, is refused (even where a value would exist).
(declare-const a Bool)
(declare-const b Bool)
(declare-const c Bool)
(declare-const d Bool)
(set-free a)
(set-free b)
(calculate (and a b) false)
(get-value (a b))
(set-free c)
(set-model-value d true)
(calculate (and c d) true)
; e is neither valued nor free: it gets its default value (false) while the
; arguments are classified, and keeps it after the refusal.
(declare-const e Bool)
(calculate (and c e) true)
(get-value (c e))
