# What ctest says, without the lines about tests that passed or were skipped; every 250th test shows that it goes on.
/^ *Start +[0-9]+:/ { next }
/^ *[0-9]+\/[0-9]+ Test +#/ {
  split($1, place, "/")
  if (place[1] % 250 == 0) print "  " $1
  if ($0 !~ /   Passed +|\*\*\*Skipped/) print
  fflush()
  next
}
/^The following tests did not run:/ { quiet = 1 }
/^The following tests FAILED:/ { quiet = 0 }
!quiet && NF { print }
