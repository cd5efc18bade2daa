# Reads the table of `llvm-cov report`; prints lines and branches per subject below src/, tests not counted. A branch of
# a template counts once, as taken by whatever it was made for. Exit status 1 when a subject has less than its goals:
# all lines and 98 % of branches.
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
