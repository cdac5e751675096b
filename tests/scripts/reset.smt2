; exit: 1
; reset forgets declarations, model values, free marks, constraints,
; adhoc values and the requests of check-model; the log level stays.
(set-option :verbosity 2)
(declare-sort U 0)
(declare-const a Bool)
(set-free a)
(calculate (not a) true)
(reset)
(get-constraints)
(get-adhoc-values)
(check-model)
(get-value (a))
(declare-const u U)
; Names can be declared again, with other sorts.
(declare-sort U 0)
(declare-const a (_ BitVec 4))
(get-value (a))
; The new a is another term, and not free.
(calculate (= a #x1) true)
(declare-const b Bool)
(set-free b)
(calculate (not b) false)
