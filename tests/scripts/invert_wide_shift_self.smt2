; A value shifted by itself at 2^20 bits: the few candidates that can give v
; are read off v, not the 2^20 shift amounts tried in turn.
(declare-const x (_ BitVec 1048576))
(set-free x)
(invert (bvshl x x) (_ bv3 1048576))
(invert (bvshl x x) (_ bv5 1048576))
(invert (bvlshr x x) (_ bv1 1048576))
(invert (bvlshr x x) (_ bv3 1048576))
(invert (bvashr x x) (_ bv5 1048576))
(invert (bvashr x x) (_ bv6 1048576))
