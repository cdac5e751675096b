; A free Boolean whose ite branches are of a declared sort is searched like
; any Boolean: the branches are compared as values.
(declare-sort U 0)
(declare-const f Bool)
(declare-const a U)
(declare-const b U)
(set-model-value a (as @0 U))
(set-model-value b (as @1 U))
(set-free f)
(invert (ite f a (ite (not f) b a)) (as @1 U))
(get-value ((ite f a (ite (not f) b a))))
(declare-const g Bool)
(set-free g)
(invert (ite g a (ite (not g) b a)) (as @2 U))
; A free constant of the declared sort itself still cannot be searched.
(declare-const u U)
(set-free u)
(invert (= u (ite g u a)) true)
(check-model)
