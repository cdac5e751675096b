; get-adhoc-values lists the Boolean values that calculators recorded,
; ordered by the key term's identifier: b is made before a here, so it
; comes first although a was recorded first. Bit-vector values are not in
; the table.
(declare-const b Bool)
(declare-const a Bool)
(declare-const x (_ BitVec 4))
(get-adhoc-values)
(set-free a)
(set-free b)
(set-free x)
(calculate (not a) false)
(calculate (not b) false)
(calculate (= x #x3) true)
(get-adhoc-values)
; A free term that is not a constant takes no model value from its
; constraint, so it stays free, and a later value replaces its entry.
(declare-const y (_ BitVec 4))
(set-free (bvult x y))
(calculate (not (bvult x y)) true)
(calculate (not (bvult x y)) false)
(get-adhoc-values)
