; args: --verbosity
; exit: 2
; -v and --verbosity need a number: here the script's own name is taken as
; the level, and refused.
(echo "not reached")
