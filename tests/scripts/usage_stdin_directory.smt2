; args: -
; stdin: inputs
; exit: 2
; A directory as standard input is refused as it is by name, before any
; command runs.
(echo "not reached")
