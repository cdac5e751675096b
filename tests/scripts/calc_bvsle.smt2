; Signed less-or-equal is asked as "not (b <s a)": with both free b comes
; first. A free side takes the other side's value when the comparison must
; hold, and the signed successor or predecessor when it must fail, refused
; at 7 (#x7) and -8 (#x8) at width 4. Against a side valued 0 that must not
; be at most the free side, the free side takes 2^(w-1) - 2 (6 at width 4),
; which check-model reports.
(declare-const a (_ BitVec 4))
(declare-const b (_ BitVec 4))
(set-free a)
(set-free b)
(calculate (bvsle a b) false)
(declare-const c (_ BitVec 4))
(set-free c)
(calculate (bvsle c #xf) false)
(declare-const c2 (_ BitVec 4))
(set-free c2)
(calculate (bvsle c2 #x7) false)
(declare-const d (_ BitVec 4))
(set-free d)
(calculate (bvsle #x8 d) false)
(calculate (bvsle #x0 d) false)
(calculate (bvsle #x0 #x1) true)
(get-value (a b c d))
(check-model)
