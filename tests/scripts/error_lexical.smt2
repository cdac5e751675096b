; exit: 1
; Lexical errors are reported at the bad token, and the rest of the command
; is skipped up to its closing parenthesis.
(declare-const a Bool)
(get-value ({a}))
(get-value (a) [)
(declare-const |back\slash| Bool)
(echo "ok")
(get-value (: a))
(echo "ok again")
