; exit: 1
; Every response is one line. A name with a line feed, a carriage return or
; another control character prints between bars with the escapes \n, \r and
; \xHH (a tab stays as it is), and that printed form reads back as the same
; name.
(declare-const |two
lines| (_ BitVec 4))
(declare-sort |carriagereturn| 0)
(declare-const |bell| |carriagereturn|)
(declare-const |tab	x| (_ BitVec 4))
(set-model-value |two
lines| #x5)
(set-model-value |bell| (as @2 |carriagereturn|))
(get-value (|two
lines| |bell| |tab	x|))
; The printed forms name the same constants and sort.
(get-value (|two\nlines| |bell\x07| (= |bell| (as @2 |carriage\x0dreturn|))))
(declare-const |two\x0alines| Bool)
; So do the forms in every other response.
(declare-const |free
| (_ BitVec 4))
(set-free |free\r\n|)
(calculate (bvadd |free
| |two\nlines|) #x0)
(get-constraints)
(get-value (|free\x0d\x0a|))
(set-model-value |free\r\n| #x1)
(check-model)
; Error messages and echo keep to one line as well.
(get-value (|no
such|))
(echo "carriagereturn and
line feed")
; A backslash in a quoted symbol only starts one of the escapes.
(get-value (|a\tb|))
