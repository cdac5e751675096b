; get-constraints lists every constraint added so far, in order, across
; calculations; refusals add none.
(declare-const a Bool)
(declare-const b Bool)
(declare-const x (_ BitVec 4))
(get-constraints)
(set-free a)
(set-free b)
(set-free x)
(calculate (not a) false)
(calculate (not b) true)
(calculate (= x #x3) true)
(calculate (and a b) true)
(get-constraints)
