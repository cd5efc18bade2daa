# Reads the table of `llvm-cov report` and prints the lines and branches of each subject below src/, without the tests.
# A branch of a template counts once, as taken if any instance takes it. The goals are all lines and 98 % of the
# branches. The exit status is 1 if a subject misses a goal.
function percent(missed, all) { return all ? 100 - 100 * missed / all : 100 }
$1 ~ /^src\// && $1 !~ /_test\.cpp$/ {
  split($1, parts, "/")
  s = parts[2]
  lines[s] += $8
  linesMissed[s] += $9
  branches[s] += $11
  branchesMissed[s] += $12
}
END {
  count = split("base json log command profiles service", order, " ")
  printf "%-10s %6s %8s %9s %9s %8s %9s\n", "", "lines", "missed", "", "branches", "missed", ""
  for (i = 1; i <= count; i++) {
    s = order[i]
    isBelow = !lines[s] || linesMissed[s] > 0 || percent(branchesMissed[s], branches[s]) < 98
    if (isBelow) below = 1
    printf "%-10s %6d %8d %7.2f %% %9d %8d %7.2f %%  %s\n", s, lines[s], linesMissed[s], percent(linesMissed[s], lines[s]),
      branches[s], branchesMissed[s], percent(branchesMissed[s], branches[s]), isBelow ? "below the goals" : ""
  }
  exit below
}
