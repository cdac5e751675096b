; The worked example of the front end's interface: y is valued 200, x is
; free, and x + y must be 100, so x takes 156 (#x9c).
(declare-const x (_ BitVec 8))
(declare-const y (_ BitVec 8))
(set-model-value y #xc8)
(set-free x)
(calculate (bvadd x y) #x64)
(get-value (x (bvadd x y)))
