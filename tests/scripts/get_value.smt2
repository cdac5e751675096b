; get-value normalises under the current model: constants with a value are
; replaced, applications over values are folded, the rest is rebuilt.
; n-ary operators are left-associated.
(declare-const a Bool)
(declare-const b Bool)
(declare-const x (_ BitVec 8))
(declare-const y (_ BitVec 8))
(set-model-value x #x81)
(get-value ((and a b true) (or a b a) (bvadd x y) (bvadd x x x) (concat x #b1 #x2)))
(get-value ((bvmul x #x02) (bvand x #x0f) (bvor x #x0f) (bvxor x #xff) (bvnot x) (bvneg x)))
(get-value ((bvsub x #x01) (bvshl x #x01) (bvlshr x #x01) (bvashr x #x01)))
(get-value ((bvudiv x #x02) (bvsdiv x #x02) (bvurem x #x02) (bvsrem x #x02)))
(get-value ((bvult x #x01) (bvule x #x81) (bvslt x #x01) (bvsle x #x81) (bvcomp x #x81)))
(get-value (((_ extract 7 4) x) ((_ rotate_left 1) x) ((_ rotate_right 1) x)))
(get-value (((_ zero_extend 4) x) ((_ sign_extend 4) x) ((_ extract 0 0) x)))
(get-value ((ite a x y) (ite true x y) (= x y) (= x #x81) (= a b)))
