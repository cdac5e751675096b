; solvers: z3 cvc5 boolector
(echo "plain text")
(echo "a ""quoted"" word")
(echo "")
(set-option :print-success true)
(echo "exit answers success and ends the script")
(exit)
(echo "never printed")
(check-sat)
