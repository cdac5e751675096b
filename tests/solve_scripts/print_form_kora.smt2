; args: --print-form kora --dump-reduced /dev/stderr
; (Standard error carries nothing else here, so the dump is all of it.)
; The script sent to the back end for the last check-sat: x occurs once, so
; the bvadd and then the equation become fresh constants; y occurs twice and
; stays, and so does the bvudiv, which needs every argument unconstrained.
; With --print-form kora every term is printed by kora's printer: bvugt
; becomes the mirrored bvult, and only the constants that remain are declared.
(set-logic QF_BV)
(declare-const x (_ BitVec 8))
(declare-const y (_ BitVec 8))
(declare-const z (_ BitVec 8))
(assert (= (bvadd x y) #x03))
(assert (bvugt y #x10))
(assert (= (bvudiv z y) #x00))
(check-sat)
(get-value ((bvadd x y) (bvudiv z y)))
