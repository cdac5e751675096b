; args: --verbosity 2
; The log level from the command line, and a refusal logs nothing.
(declare-const a Bool)
(declare-const b Bool)
(declare-const c Bool)
(set-free a)
(set-free b)
(calculate (and a b) true)
(calculate (not c) true)
(calculate (= c a) true)
