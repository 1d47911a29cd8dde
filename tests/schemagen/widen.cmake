# Writes OUT: the member table IN as a class of its own, tst_WideEvent, with
# one member more at its end (schema_reflection_test).
file(READ ${IN} text)
string(REGEX REPLACE "\nclass [^ \n]+ [^\n]*" "\nclass tst_WideEvent com.trevolo.test.WideEvent"
       text "\n${text}")
string(SUBSTRING "${text}" 1 -1 text)
file(WRITE ${OUT} "${text}simple weight double\n")
