; args: inputs/no-such-file.smt2
; exit: 2
; An unreadable file is a usage error, found before any command runs: this
; script, named after it, is not read either.
(echo "not reached")
