; Nothing after (exit) is read, not even a malformed command.
(echo "before")
(exit)
(echo "after")
(this is not read
