; args: inputs/exits.smt2
; (exit) in one file ends the session: this file is not read at all.
(echo "not reached")
