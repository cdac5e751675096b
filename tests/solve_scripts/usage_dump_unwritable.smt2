; A --dump-reduced file that cannot be written is a usage error, found before
; the script is read.
; args: --dump-reduced /nonexistent/reduced.smt2
; exit: 2
(check-sat)
