; stdout: /dev/full
; exit: 2
; Responses that cannot be written end the run with the reason and status 2,
; not with status 0 and every answer lost.
(echo "lost")
(declare-const x (_ BitVec 8))
(get-value (x))
