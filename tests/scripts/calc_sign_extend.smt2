; Sign extension: its argument is never free, so its calculator refuses every
; call at once, before looking at the arguments: nothing is recorded and not
; even a defaulted argument gets its default.
(declare-const a (_ BitVec 4))
(set-free a)
(calculate ((_ sign_extend 4) a) #x07)
(declare-const d (_ BitVec 4))
(calculate ((_ sign_extend 2) d) #b000001)
(get-value (a d))
(get-constraints)
(get-adhoc-values)
