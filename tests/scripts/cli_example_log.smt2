; args: -v 2
; The same example with the log on: the add calculator writes one record
; per recorded value on standard error.
(declare-const x (_ BitVec 8))
(declare-const y (_ BitVec 8))
(set-model-value y #xc8)
(set-free x)
(calculate (bvadd x y) #x64)
