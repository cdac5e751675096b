; Unsigned less-or-equal is asked as "not (b <u a)": the arguments are
; swapped, so with both free b is recorded first. A free side takes the other
; side's value when the comparison must hold and its successor or predecessor
; when it must fail, refused at the ends of the range.
(declare-const a (_ BitVec 4))
(declare-const b (_ BitVec 4))
(set-free a)
(set-free b)
(calculate (bvule a b) false)
(declare-const c (_ BitVec 4))
(set-free c)
(calculate (bvule c #x9) false)
(declare-const d (_ BitVec 4))
(set-free d)
(calculate (bvule d #xf) false)
(calculate (bvule #x0 d) false)
(calculate (bvule #x3 d) true)
(calculate (bvule #x3 #x9) true)
(get-value (a b c d))
(check-model)
