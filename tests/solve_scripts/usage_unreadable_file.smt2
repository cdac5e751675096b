; exit: 2
; stdin
; args: no-such-file.smt2
(check-sat)
