; exit: 1
; A string that never ends takes the rest of the input with it; it is
; reported at its opening quote.
(echo "fine")
(echo "this never ends)
(echo 
