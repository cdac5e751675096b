; Equality of bit-vectors: a free side takes the other side's value (v
; true) or that value plus one (v false); two free sides take 0 or 1 and 0;
; no free side is refused.
(declare-const x (_ BitVec 8))
(declare-const y (_ BitVec 8))
(declare-const z (_ BitVec 8))
(set-free x)
(set-model-value y #xff)
(calculate (= x y) false)
(declare-const x2 (_ BitVec 8))
(set-free x2)
(calculate (= y x2) true)
(set-free z)
(declare-const w (_ BitVec 8))
(set-free w)
(calculate (= z w) false)
(calculate (= y #x00) true)
(get-value (x x2 z w (= z w)))
