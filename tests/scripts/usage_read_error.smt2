; args: /proc/self/mem
; exit: 2
; A file that opens but fails to read (here at an unmapped address) ends the
; run with the reason, naming the file; the next file is not read.
(echo "not reached")
