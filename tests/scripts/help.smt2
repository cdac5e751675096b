; args: --help
; --help prints the usage and the commands, and reads nothing.
(echo "not reached")
