# Reads fuzz/sittings.tsv, which has a row for each run of a fuzz target in a sitting: date, revision, target,
# executions, processor seconds, edges and features reached, findings. A target is finished after 100,000,000 executions
# or two hours.
#
#   awk -f tools/sittings.awk -v left=json fuzz/sittings.tsv           # the executions and seconds that are left
#   awk -f tools/sittings.awk -v targets='json url' fuzz/sittings.tsv  # a line for each target
BEGIN {
  FS = "\t"
  most_executions = 100000000
  most_seconds = 7200
}
FNR > 1 {
  executions[$3] += $4
  seconds[$3] += $5
  if ($6 > edges[$3]) edges[$3] = $6
  if ($7 > features[$3]) features[$3] = $7
  findings[$3] += $8
  rows[$3]++
}
function rest(most, done) { return most > done ? most - done : 0 }
END {
  if (left != "") {
    printf "%d %d\n", rest(most_executions, executions[left]), rest(most_seconds, seconds[left])
    exit
  }
  count = split(targets, names, " ")
  printf "%-14s %5s %12s %8s %7s %9s %9s  %s\n", "target", "runs", "executions", "seconds", "edges", "features", "findings", ""
  for (i = 1; i <= count; i++) {
    name = names[i]
    done = executions[name] >= most_executions || seconds[name] >= most_seconds
    printf "%-14s %5d %12d %8d %7d %9d %9d  %s\n", name, rows[name], executions[name], seconds[name], edges[name],
      features[name], findings[name], done ? "finished" : sprintf("%d %% of the executions, %d %% of the time",
        100 * executions[name] / most_executions, 100 * seconds[name] / most_seconds)
    finished += done
    all += executions[name]
    time += seconds[name]
    found += findings[name]
  }
  printf "%-14s %5s %12d %8d %7s %9s %9d  %d of %d targets finished\n", "all", "", all, time, "", "", found, finished, count
}
