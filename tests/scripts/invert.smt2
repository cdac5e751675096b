; exit: 1
; This build has no complete inverter: invert is refused as a malformed
; command, and the session goes on.
(declare-const a Bool)
(set-free a)
(invert (not a) true)
(calculate (not a) true)
