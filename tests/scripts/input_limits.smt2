; exit: 1
; The front end's input limits: widths up to 2^20 bits, indices and amounts
; that fit, literals no wider than the limit. Everything beyond is refused
; with a message, before anything is allocated for it.
(declare-const x (_ BitVec 1048576))
(declare-const b (_ BitVec 8))
(declare-sort U 0)
(declare-const too_wide (_ BitVec 1048577))
(declare-const huge (_ BitVec 340282366920938463463374607431768211456))
(get-value ((concat x #b1)))
(get-value (((_ zero_extend 1) x)))
(get-value (((_ sign_extend 18446744073709551615) b)))
(get-value (((_ extract 8 0) b)))
(get-value (((_ extract 18446744073709551616 0) b)))
(get-value (((_ rotate_left 18446744073709551615) b)))
(get-value (((_ rotate_right 340282366920938463463374607431768211456) b)))
(get-value ((_ bv1 1048577)))
(get-value ((_ bv256 8)))
(get-value ((_ bv100000000000000000000000000000000000000000000000000 8)))
(get-value ((as @18446744073709551615 U)))
; Within the limits everything works, the widest width included.
(get-value (((_ rotate_left 18446744073709551614) #x81)))
(get-value (((_ extract 1048575 1048575) ((_ zero_extend 1048568) #xff))))
(get-value (((_ extract 8 0) (bvadd ((_ zero_extend 1048568) #xff) ((_ zero_extend 1048568) #x01)))))
(get-value ((bvult ((_ zero_extend 1048575) #b1) (bvneg ((_ zero_extend 1048575) #b1)))))
(set-option :verbosity 99999999999999999999999999)
(echo "done")
