; Multiplication: a free side takes v times the inverse of the other side
; modulo 2^w, which exists only for an odd other side. An even one, 0
; included, is refused even where a value would exist. Two free sides take v
; and 1.
(declare-const x (_ BitVec 8))
(declare-const y (_ BitVec 8))
(set-free x)
(set-model-value y #x03)
(calculate (bvmul x y) #x01)
(declare-const m (_ BitVec 8))
(declare-const n (_ BitVec 8))
(set-model-value m #xff)
(set-free n)
(calculate (bvmul m n) #x01)
(declare-const p (_ BitVec 8))
(declare-const q (_ BitVec 8))
(set-free p)
(set-free q)
(calculate (bvmul p q) #x06)
(get-value (x n p q (bvmul x y) (bvmul m n) (bvmul p q)))
(check-model)
; An even operand: no value is computed, not even for v = 0.
(declare-const e (_ BitVec 8))
(declare-const f (_ BitVec 8))
(set-free e)
(set-model-value f #x02)
(calculate (bvmul e f) #x04)
(calculate (bvmul e f) #x00)
; A defaulted operand counts as 0.
(declare-const d (_ BitVec 8))
(calculate (bvmul d e) #x00)
(get-value (d))
; No free side.
(calculate (bvmul y f) #x06)
