; exit: 1
; A comment that runs into the end of the input is fine; the open
; command is not.
(echo "a")
(echo "b" ; no newline at the end