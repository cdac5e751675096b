; check-model re-evaluates every calculate that recorded values; refusals
; are not requests. A later model value can break an earlier request.
(declare-const a Bool)
(declare-const b Bool)
(declare-const x (_ BitVec 4))
(declare-const y (_ BitVec 4))
(check-model)
(set-free a)
(set-free b)
(calculate (and a b) true)
(calculate (not a) true)
(set-free x)
(set-model-value y #x5)
(calculate (= x y) false)
(check-model)
(set-model-value b false)
(set-model-value x #x5)
(check-model)
; The value may be any term of the term's sort. The calculator gets it as
; written (here not the term true, so it counts as false); check-model
; compares values, so the request holds.
(declare-const c Bool)
(set-free c)
(calculate (not c) (not true))
(check-model)
