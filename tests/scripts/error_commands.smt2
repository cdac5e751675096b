; exit: 1
; Unknown commands and stray tokens are reported and skipped; the commands
; around them still run.
(echo "first")
(check-sat)
(set-logic QF_BV)
(assert true)
()
((echo "x"))
(42)
stray
) (echo "after a stray paren")
(echo "last")
