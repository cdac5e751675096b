; exit: 2
; A solver that cannot be started ends the run when the first check-sat
; needs it; what was answered before stays answered.
; arg: --solver=cmd:/nonexistent/solver --smt2
(echo "before")
(check-sat)
(echo "after")
