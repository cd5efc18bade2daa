# Reads the lines of figures that the interleavings leave, `pair | NAME | calls | calls | stops | returns`,
# `attacks | NAME | calls | runs` and `flaw | NAME | runs | problems`. Prints them as the tables of
# docs/interleavings.md.
$1 == "pair" { pairs[++numberOfPairs] = $2 " | " $3 " | " $4 " | " $5 " | " $6; stops += $5; returns += $6 }
$1 == "attacks" { attacks[++numberOfAttacks] = $2 " | " $3 " | " $4; runs += $4 }
$1 == "flaw" { flaws[++numberOfFlaws] = $2 " | " $3 }
END {
  print "| commands | calls of the first | calls of the second | stops | returns |"
  print "|---|---|---|---|---|"
  for (i = 1; i <= numberOfPairs; i++) print "| " pairs[i] " |"
  printf "| all | | | %d | %d |\n\n", stops, returns
  print "| command | calls | attacks |"
  print "|---|---|---|"
  for (i = 1; i <= numberOfAttacks; i++) print "| " attacks[i] " |"
  printf "| all | | %d |\n\n", runs
  print "| planted flaw | runs until it is found |"
  print "|---|---|"
  for (i = 1; i <= numberOfFlaws; i++) print "| " flaws[i] " |"
}
