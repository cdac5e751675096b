; exit: 1
; A command still open at the end of the input is reported at the end,
; naming the innermost '(' that is not closed.
(declare-const a Bool)
(echo "complete")
(get-value ((not a)
