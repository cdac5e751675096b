; args: -v2 --verbosity=0 -v 1 --verbosity 2
; The verbosity options in all their forms; the last one counts.
(declare-const a Bool)
(set-free a)
(calculate (not a) true)
