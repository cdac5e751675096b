; A free constant that also occurs inside another argument, before, after or
; beside its own position, or only there: its values are searched, and the
; value found replaces the default that classifying that argument gave it.
(declare-const x (_ BitVec 4))
(set-free x)
(invert (bvsub (bvnot x) x) #x1)
(declare-const y (_ BitVec 8))
(set-free y)
(invert (bvadd (bvmul y #x03) y) #x64)
(get-value (x y))
; The same with the constant's own position first.
(declare-const z (_ BitVec 4))
(set-free z)
(invert (bvsub z (bvnot z)) #x1)
; Only inside an argument, and two constants in two arguments.
(declare-const u (_ BitVec 8))
(set-free u)
(invert (bvadd (bvmul u #x03) #x01) #x0a)
(declare-const a (_ BitVec 4))
(declare-const b (_ BitVec 4))
(set-free a)
(set-free b)
(invert (bvxor (bvshl b a) (bvsub a b)) #x9)
; No value: 2w + 1 is odd.
(declare-const w (_ BitVec 8))
(set-free w)
(invert (bvadd (bvadd w #x01) w) #x00)
(check-model)
