; exit: 1
; echo prints its text on one line: "" stands for a quote, and a newline
; inside the string is written as \n.
(echo "hello")
(echo "")
(echo "she said ""yes""")
(echo "two
lines")
(echo "; not a comment (and not a paren)")
(echo hello)
