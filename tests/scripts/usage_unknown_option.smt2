; args: --bogus
; exit: 2
; An unknown option is a usage error: nothing is read.
(echo "not reached")
