; Signed less-than over patterns: the successor of -1 (#xff) is 0; nothing
; lies above 127 (#x7f) or below -128 (#x80); at width 1 two free sides take
; -1 and 0. Below a side valued 0 the free side takes 2^(w-1) - 2 (126 at
; width 8), which does not make the comparison hold: check-model says so.
(declare-const b (_ BitVec 8))
(set-free b)
(calculate (bvslt #xff b) true)
(declare-const b2 (_ BitVec 8))
(set-free b2)
(calculate (bvslt #x7f b2) true)
(declare-const p (_ BitVec 1))
(declare-const q (_ BitVec 1))
(set-free p)
(set-free q)
(calculate (bvslt p q) true)
(declare-const c (_ BitVec 8))
(set-free c)
(calculate (bvslt c #x80) true)
(calculate (bvslt c #x00) true)
(calculate (bvslt #x01 #x02) true)
(get-value (b p q c (bvslt p q)))
(check-model)
