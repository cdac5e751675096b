; The first part of a session spread over two files (multiple_files.smt2).
(declare-const x (_ BitVec 8))
(set-free x)
(get-value (y))
