; stdout: /dev/full
; A script without responses writes nothing, so nothing is lost.
(declare-const x (_ BitVec 8))
(set-model-value x #x01)
