(echo "in the first file")
(exit)
