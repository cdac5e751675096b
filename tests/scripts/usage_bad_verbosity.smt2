; args: -v lots
; exit: 2
; The verbosity must be a number.
(echo "not reached")
