; Not: a free argument takes the negation of the value; an argument with a
; value is refused.
(declare-const a Bool)
(declare-const b Bool)
(set-free a)
(calculate (not a) true)
(get-value (a (not a)))
(set-model-value b true)
(calculate (not b) false)
(calculate (not b) true)
(get-constraints)
