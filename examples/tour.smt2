; A walk through kora-adhoc. Run it with `make run`, or
;
;     ./build/dev/tools/kora-adhoc examples/tour.smt2
;
; Each command that answers prints one line on standard output; the answers
; are repeated in the comments after "=>". Log records (here, one per value a
; calculator records) go to standard error.

; --- Declarations ---------------------------------------------------------
; Bool, bit-vectors, arrays and declared sorts. (declare-fun NAME () SORT)
; is the same as (declare-const NAME SORT).
(declare-sort Color 0)
(declare-const p Bool)
(declare-fun q () Bool)
(declare-const x (_ BitVec 8))
(declare-const y (_ BitVec 8))
(declare-const c Color)
(declare-const d Color)
(declare-const m (Array (_ BitVec 2) Bool))
(declare-const n (Array (_ BitVec 2) Bool))

; --- Model values -----------------------------------------------------------
; A model value is true, false, a bit-vector literal, an abstract value
; (as @K SORT) of a declared sort, or a constant array of a value.
(set-model-value q false)
(set-model-value y #xc8)
(set-model-value d (as @1 Color))
(set-model-value n ((as const (Array (_ BitVec 2) Bool)) true))

; get-value evaluates under the model; whatever has no value stays as it is.
(get-value (y (bvadd y #x38) x (bvadd x y) (= d (as @1 Color))))
; => ((y #xc8) ((bvadd y #x38) #x00) (x x) ((bvadd x y) (bvadd x #xc8)) ((= d (as @1 Color)) true))

; --- Calculations -----------------------------------------------------------
; (calculate T V) asks the calculator of T's operator to give T's free
; arguments values such that T equals V. It answers with the constraints it
; added, or refuses with (error "...") -- a refusal is an answer, not a
; mistake in the script. Terms are free only when marked with set-free.
; From here on, every recorded value is also logged on standard error.
(set-option :verbosity 2)

(echo "not: a free argument takes the negation of the value")
(set-free p)
(calculate (not p) true)
; => ((= p false))
; p has a value now, so it is no longer free:
(calculate (not p) false)
; => (error "Error: term is not free, cannot compute model!")

(echo "and: two free arguments both take the value")
(declare-const a1 Bool)
(declare-const a2 Bool)
(set-free a1)
(set-free a2)
(calculate (and a1 a2) true)
; => ((= a1 true) (= a2 true))
; One argument with a value is refused, even though a value would exist:
(declare-const a3 Bool)
(set-free a3)
(calculate (and a3 q) false)
; => (error "Error: term is not free, cannot compute model!")

(echo "or: the same rule as and")
(declare-const o1 Bool)
(declare-const o2 Bool)
(set-free o1)
(set-free o2)
(calculate (or o1 o2) false)
; => ((= o1 false) (= o2 false))
(calculate (or a3 q) true)
; => (error "Error: term is not free, cannot compute model!")

(echo "= over Bool (iff): a free side takes (other side <=> value)")
(declare-const e Bool)
(set-free e)
(calculate (= e q) false)
; => ((= e true))
(calculate (= p q) true)
; => (error "Error: term is not free, cannot compute model!")

(echo "ite: needs two free arguments among condition, then and else")
(declare-const k Bool)
(declare-const t1 (_ BitVec 4))
(declare-const t2 (_ BitVec 4))
(set-model-value k true)
(set-free t1)
(set-free t2)
(calculate (ite k t1 t2) #x5)
; => ((= t1 #x5) (= t2 #x5))
(declare-const t3 (_ BitVec 4))
(set-free t3)
(calculate (ite k t3 t1) #x6)
; => (error "Error: term is not free, cannot compute model!")

(echo "= over bit-vectors: a free side takes the other value, or it plus one")
(set-free x)
(calculate (= x y) false)
; => ((= x #xc9))
(calculate (= y #x00) true)
; => (error "Error: term is not free, cannot compute model!")

(echo "= over a declared sort: only an equality can be made true")
(set-free c)
(calculate (= c d) true)
; => ((= c (as @1 Color)))
(declare-const c2 Color)
(set-free c2)
(calculate (= c2 d) false)
; => (error "asked to create non supported type..\n")

(echo "= over arrays: the same, with its own message")
(set-free m)
(calculate (= m n) true)
; => ((= m ((as const (Array (_ BitVec 2) Bool)) true)))
(declare-const m2 (Array (_ BitVec 2) Bool))
(set-free m2)
(calculate (= m2 n) false)
; => (error "arrays are not yet supported..\n")
(set-option :verbosity 0)

; --- What the calculations left behind ---------------------------------------
(echo "the model, the constraints and the Boolean values recorded")
(get-value (p a1 a2 o1 o2 e t1 t2 x c m))
; => ((p false) (a1 true) (a2 true) (o1 false) (o2 false) (e true) (t1 #x5) (t2 #x5) (x #xc9) (c (as @1 Color)) (m ((as const (Array (_ BitVec 2) Bool)) true)))
(get-constraints)
; => ((= p false) (= a1 true) (= a2 true) (= o1 false) (= o2 false) (= e true) (= t1 #x5) (= t2 #x5) (= x #xc9) (= c (as @1 Color)) (= m ((as const (Array (_ BitVec 2) Bool)) true)))
(get-adhoc-values)
; => ((p false) (a1 true) (a2 true) (o1 false) (o2 false) (e true))

; check-model re-evaluates every calculation that recorded values.
(check-model)
; => (model-ok 8)
; Changing a value afterwards can break them:
(set-model-value p true)
(check-model)
; => (model-violations (((not p) true false)))

; (reset) forgets everything; (exit) stops reading.
(reset)
(get-constraints)
; => ()
(exit)
