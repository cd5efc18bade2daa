# What ctest says, without what passed or was skipped; every 100th test shows that it goes on.
function printHeld() {
  if (held != "") print held
  held = ""
}
/^ *Start +[0-9]+:/ { next }
/^ *[0-9]+\/[0-9]+ Test +#/ {
  printHeld()
  split($1, place, "/")
  if (place[1] % 100 == 0) print "  " $1
  if ($0 !~ /   Passed +|\*\*\*Skipped/) print
  fflush()
  next
}
# Of the single tests of a program that failed, those that passed.
/^\[ RUN      \] / { printHeld(); held = $0; next }
/^\[       OK \] / && held != "" { held = ""; next }
/^\[-+\] / { next }
/^The following tests did not run:/ { quiet = 1 }
/^The following tests FAILED:/ { quiet = 0 }
!quiet && NF { printHeld(); print }
