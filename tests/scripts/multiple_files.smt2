; args: inputs/first_file.smt2
; exit: 1
; Files given together form one session: x was declared and marked free in
; inputs/first_file.smt2, which is read first. Errors name their own file.
(declare-const y (_ BitVec 8))
(set-model-value y #x01)
(calculate (= x y) true)
(get-value (x))
