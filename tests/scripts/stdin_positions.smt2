; stdin
; exit: 1
; Read from standard input, errors name the input <stdin>.
(declare-const a Bool)
(get-value ((not b)))
(get-value ((not a)))
