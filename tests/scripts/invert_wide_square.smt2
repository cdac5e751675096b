; x * x = v at 2^19 bits: the square root is lifted by Newton's iteration,
; doubling the precision each step.
(declare-const x (_ BitVec 524288))
(set-free x)
(invert (bvmul x x) (_ bv9 524288))
(check-model)
