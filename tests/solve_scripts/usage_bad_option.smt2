; exit: 2
; args: --frobnicate
(check-sat)
