; The narrow calculators keep a few choices that do not make the term take
; its value; check-model names them. The complete inverter answers the same
; requests with values that hold.
(declare-const a (_ BitVec 8))
(declare-const a2 (_ BitVec 8))
(declare-const b (_ BitVec 8))
(declare-const x (_ BitVec 4))
(declare-const p Bool)
(declare-const q Bool)
(declare-const r Bool)
(set-model-value b #x00)
(set-model-value q true)
(set-free a)
(set-free a2)
(set-free x)
(set-free p)
(set-free r)
; a <s 0 required true: the calculator records 2^7 - 2, which is positive.
(calculate (bvslt a b) true)
; 0 <=s a required false: the same choice through the less-or-equal path.
(calculate (bvsle b a2) false)
; One free term at both positions of an addition: recorded v, then 0.
(calculate (bvadd x x) #x3)
; A Boolean ite whose then-branch has a value: the constant is recorded.
(calculate (ite p q r) false)
(check-model)
(reset)
; The same requests through the complete inverter.
(declare-const a (_ BitVec 8))
(declare-const a2 (_ BitVec 8))
(declare-const b (_ BitVec 8))
(declare-const x (_ BitVec 4))
(declare-const p Bool)
(declare-const q Bool)
(declare-const r Bool)
(set-model-value b #x00)
(set-model-value q true)
(set-free a)
(set-free a2)
(set-free x)
(set-free p)
(set-free r)
(invert (bvslt a b) true)
(invert (bvsle b a2) false)
; x + x is even: no value exists for #x3, but one does for #x2.
(invert (bvadd x x) #x3)
(invert (bvadd x x) #x2)
(invert (ite p q r) false)
(check-model)
