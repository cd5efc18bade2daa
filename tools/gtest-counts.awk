# Reads what GoogleTest writes with --gtest_output=xml; prints "PASSED FAILED SKIPPED" and writes a line
# `step:test<TAB>why` for each skipped test into the file named by `skips`, as tools/counts.awk does for ctest.
function attribute(name) {
  return match($0, " " name "=\"[^\"]*\"") ? substr($0, RSTART + length(name) + 3, RLENGTH - length(name) - 4) : ""
}
function settle() {
  if (failed) sums["failed"]++
  else if (why != "") { sums["skipped"]++; print step ":" test "\t" why > skips }
  else sums["passed"]++
}
/<testcase / {
  test = attribute("classname") "." attribute("name")
  failed = 0
  why = attribute("result") == "skipped" || attribute("result") == "suppressed" ? attribute("result") : ""
}
/<failure/ { failed = 1 }
/<skipped message=/ { why = attribute("message"); sub(/.*&#x0A;/, "", why) }
/<testcase .*\/>$/ || /<\/testcase>/ { settle() }
END { print sums["passed"] + 0, sums["failed"] + 0, sums["skipped"] + 0 }
