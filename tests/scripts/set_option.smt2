; exit: 1
; set-option :verbosity changes the log level mid-session: level 2 shows
; each recorded value on standard error.
(declare-const a Bool)
(declare-const b Bool)
(set-free a)
(set-free b)
(calculate (not a) true)
(set-option :verbosity 2)
(calculate (not b) true)
(set-option :verbosity 1)
(set-option :print-success true)
(set-option :verbosity high)
(set-option verbosity 2)
