; exit: 1
; So does a quoted symbol that never ends.
(declare-const |fine| Bool)
(get-value (|fine|))
(get-value (|never closed))
