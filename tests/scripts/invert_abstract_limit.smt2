; A value different from the largest abstract value that reads back is not
; the next index, which would not read back, but the smallest.
(declare-sort U 0)
(declare-const y U)
(declare-const b U)
(set-model-value b (as @18446744073709551614 U))
(set-free y)
(invert (= y b) false)
(check-model)
(declare-const c U)
(set-model-value c (as @0 U))
(declare-const z U)
(set-free z)
(invert (= z c) false)
