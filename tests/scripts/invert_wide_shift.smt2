; Shift amounts at 2^20 bits are read off the trailing and leading zeros of
; the values, not searched among the 2^20 + 1 amounts.
(declare-const x (_ BitVec 1048576))
(set-free x)
(invert (bvshl (bvnot (_ bv0 1048576)) x) (_ bv3 1048576))
(invert (bvlshr (bvnot (_ bv0 1048576)) x) (_ bv5 1048576))
(invert (bvashr (bvnot (_ bv6 1048576)) x) (_ bv0 1048576))
(check-model)
