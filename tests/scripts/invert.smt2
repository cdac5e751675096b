; invert finds a value wherever one exists, where the narrow calculators
; refuse, and check-model confirms every request it answered.
(declare-const x (_ BitVec 8))
(declare-const y (_ BitVec 8))
(set-model-value y #x06)
(set-free x)
; The multiplication calculator refuses an even known factor ...
(calculate (bvmul x y) #x0c)
; ... the inverter divides the factor's trailing zero out first.
(invert (bvmul x y) #x0c)
(get-value ((bvmul x y)))
; No value: x * 6 is always even.
(declare-const z (_ BitVec 8))
(set-free z)
(invert (bvmul z y) #x0d)
; A shift with a known amount: the calculator refuses, the inverter solves.
(declare-const s (_ BitVec 8))
(set-free s)
(calculate (bvshl s #x02) #x14)
(invert (bvshl s #x02) #x14)
; Boolean: one free conjunct beside a true one.
(declare-const p Bool)
(declare-const q Bool)
(set-model-value q true)
(set-free p)
(calculate (and p q) true)
(invert (and p q) true)
(check-model)
(get-adhoc-values)
