; Equality of arrays: a free side takes the other side's value when the
; atom must hold; a disequality of arrays is refused, and so are two free
; sides.
(declare-const a (Array (_ BitVec 2) Bool))
(declare-const b (Array (_ BitVec 2) Bool))
(declare-const c (Array (_ BitVec 2) Bool))
(set-free a)
(set-model-value b ((as const (Array (_ BitVec 2) Bool)) true))
(calculate (= a b) true)
(declare-const a2 (Array (_ BitVec 2) Bool))
(set-free a2)
(calculate (= a2 b) false)
; a has a value now: nothing is free.
(calculate (= a b) false)
(set-free c)
(declare-const d (Array (_ BitVec 2) Bool))
(set-free d)
(calculate (= c d) true)
(get-value (a (= a b)))
