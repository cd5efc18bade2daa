# Prints the output of ctest without the tests that passed or were skipped. A line for every 100th test shows the
# progress.
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
# A program that failed also prints its tests that passed: hold back the first line of a test until its result is known.
/^\[ RUN      \] / { printHeld(); held = $0; next }
/^\[       OK \] / && held != "" { held = ""; next }
/^\[-+\] / { next }
/^The following tests did not run:/ { quiet = 1 }
/^The following tests FAILED:/ { quiet = 0 }
!quiet && NF { printHeld(); print }
