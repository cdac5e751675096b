; solvers: z3 cvc5 boolector
; args: --dump-reduced /dev/stderr
; (Standard error carries nothing else here, so the dump is all of it.)
; The script sent to the back end keeps each assertion as written wherever
; nothing in it was eliminated: z occurs once, so (bvadd y z) becomes a fresh
; constant, and everything around it is printed with the operators the user
; wrote (=>, the n-ary and, the let), over the fresh constant. The :named
; annotation is dropped and the defined name d is printed as its term.
(set-logic QF_BV)
(declare-fun p () Bool)
(declare-const x (_ BitVec 8))
(declare-const y (_ BitVec 8))
(declare-const z (_ BitVec 8))
(define-fun d () (_ BitVec 8) (bvor x y))
(assert (distinct x y #x00))
(assert (! (=> p (and (bvuge x y) (let ((s (bvadd y z)) (t (bvand x y))) (= (bvmul x s) t d)))) :named a1))
(assert (or p (bvult x #x10)))
(check-sat)
