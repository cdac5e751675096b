; args: -
; stdin
; exit: 1
; '-' names standard input explicitly.
(get-value (nothing))
