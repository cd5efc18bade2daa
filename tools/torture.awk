# Reads the sorted lines of figures that the torture tests leave, `faults | SCENE | calls | disk steps | faults` and
# `kills | SCENE | kills`. Prints them as the table of docs/reliability.md.
$1 == "faults" { calls[$2] = $3; steps[$2] = $4; faults[$2] = $5; order[++scenes] = $2 }
$1 == "kills" { kills[$2] = $3 }
END {
  print "| session | system calls | changes of the disk | faults | kills |"
  print "|---|---|---|---|---|"
  for (i = 1; i <= scenes; i++) {
    scene = order[i]
    printf "| %s | %d | %d | %d | %d |\n", scene, calls[scene], steps[scene], faults[scene], kills[scene]
    allFaults += faults[scene]
    allKills += kills[scene]
  }
  printf "| all | | | %d | %d |\n", allFaults, allKills
}
