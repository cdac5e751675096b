; Answers that cannot be written are a failure: exit 2 with a message.
; stdout: /dev/full
; exit: 2
(set-logic QF_BV)
(declare-const x (_ BitVec 8))
(assert (= x #x01))
(check-sat)
