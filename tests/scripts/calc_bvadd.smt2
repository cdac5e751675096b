; Addition: a free side takes v minus the other side (mod 2^w); two free
; sides take v and 0, the first one carrying v. No free side is refused with
; addition's own wording of the message.
(declare-const x (_ BitVec 8))
(declare-const y (_ BitVec 8))
(set-model-value y #xc8)
(set-free x)
(calculate (bvadd x y) #x64)
(declare-const a (_ BitVec 4))
(declare-const b (_ BitVec 4))
(set-model-value a #x3)
(set-free b)
(calculate (bvadd a b) #x1)
(declare-const p (_ BitVec 8))
(declare-const q (_ BitVec 8))
(set-free p)
(set-free q)
(calculate (bvadd p q) #x05)
(get-value (x b p q (bvadd x y) (bvadd a b) (bvadd p q)))
; Both sides now have values.
(calculate (bvadd x y) #x00)
; d is neither valued nor free: it is defaulted to 0, and keeps it.
(declare-const d (_ BitVec 8))
(calculate (bvadd y d) #x01)
(get-value (d))
(check-model)
; A v that is not a numeral counts as 0 when both sides are free.
(declare-const k (_ BitVec 8))
(declare-const r (_ BitVec 8))
(declare-const s (_ BitVec 8))
(set-free r)
(set-free s)
(calculate (bvadd r s) k)
