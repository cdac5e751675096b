; args: --version
; --version prints the version, and reads nothing.
(echo "not reached")
