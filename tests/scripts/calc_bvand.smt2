; Bitwise and: only two free arguments are solved, each taking v. One free
; argument beside a known one is refused, even where a value would exist.
(declare-const a (_ BitVec 4))
(declare-const b (_ BitVec 4))
(set-free a)
(set-free b)
(calculate (bvand a b) #b0110)
(get-value (a b (bvand a b)))
(declare-const x (_ BitVec 4))
(declare-const k (_ BitVec 4))
(set-free x)
(set-model-value k #xf)
(calculate (bvand x k) #x6)
; A valued first argument and a second that is neither valued nor free: the
; second is defaulted, then the call is refused.
(declare-const d (_ BitVec 4))
(calculate (bvand k d) #x0)
(get-value (d))
(get-constraints)
