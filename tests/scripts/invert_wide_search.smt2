; A 16-bit free constant under million-bit products: the search stops with a
; refusal once its work passes a fixed budget instead of running for minutes.
(declare-const x (_ BitVec 16))
(set-free x)
(invert (bvadd x ((_ extract 15 0) (bvmul (bvnot ((_ zero_extend 1048560) x)) (bvnot (_ bv0 1048576))))) #x0000)
(get-value (x))
; Under million-bit sums of small values the search is cheap and runs in full.
(declare-const y (_ BitVec 12))
(declare-const c (_ BitVec 1048576))
(set-free y)
(invert (bvadd y ((_ extract 11 0) (bvadd c ((_ zero_extend 1048564) y)))) #x006)
(declare-const z (_ BitVec 12))
(set-free z)
(invert (bvadd z ((_ extract 11 0) (bvadd c ((_ zero_extend 1048564) z)))) #x001)
