; Every way of declaring, and how declared things print. A constant without
; a model value evaluates to itself.
(declare-const b Bool)
(declare-const x (_ BitVec 8))
(declare-fun y () (_ BitVec 3))
(declare-sort U 0)
(declare-const u U)
(declare-const m (Array (_ BitVec 4) Bool))
(declare-const n (Array U (Array Bool (_ BitVec 1))))
(declare-const |two words| Bool)
(declare-const |plain| Bool)
(get-value (b x y u m n |two words| plain))
(get-value (true false #b101 #xA5 (_ bv5 8) (_ bv0 1) (as @2 U)))
(get-value (((as const (Array (_ BitVec 4) Bool)) false)))
