; args: inputs
; exit: 2
; A directory is not a readable script.
(echo "not reached")
