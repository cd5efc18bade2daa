# Reads what `ctest --output-junit` wrote, then the reports of GoogleTest (--gtest_output=xml) that those tests left; prints
# "PASSED FAILED SKIPPED" and writes a line `step:test<TAB>why` for each skipped test into the file named by `skips`.
#
# A test of CTest whose name is PROGRAM/TESTS stands for the single tests in the report PROGRAM-TESTS.xml: those are counted.
# When it failed although its report has no failure, or left no whole report, that counts as one more failure. Any other
# test of CTest counts as one.
function attribute(name) {
  return match($0, " " name "=\"[^\"]*\"") ? plain(substr($0, RSTART + length(name) + 3, RLENGTH - length(name) - 4)) : ""
}
function plain(text) {
  gsub(/&#x0A;/, "\n", text)
  gsub(/&lt;/, "<", text)
  gsub(/&gt;/, ">", text)
  gsub(/&quot;/, "\"", text)
  gsub(/&apos;/, "'", text)
  gsub(/&amp;/, "\\&", text)
  return text
}
# The last line of a reason that is not empty; GoogleTest puts the place in the source before it.
function lastLine(text) {
  sub(/[ \n]+$/, "", text)
  sub(/.*\n/, "", text)
  return text
}
function settle() {
  if (failed) {
    failures++
    failuresOf[report]++
  } else if (why != "") {
    skipped++
    print step ":" test "\t" why > skips
  } else passed++
}
FNR == 1 {
  report = FILENAME
  sub(/.*\//, "", report)
  inText = 0
}
# What tests said is no part of the report's structure.
inText { if (!sub(/.*\]\]>/, "")) next }
{
  sub(/<!\[CDATA\[.*\]\]>/, "")
  inText = sub(/<!\[CDATA\[.*/, "")
}
/<testcase / && !/ classname="/ { next }
/<testcase / && / result="/ {
  test = attribute("classname") "." attribute("name")
  failed = 0
  why = attribute("result")
  if (why == "completed") why = ""
}
/<testcase / && !/ result="/ { endOf[attribute("name")] = attribute("status") }
/<failure/ { failed = 1 }
/<skipped message=/ && lastLine(attribute("message")) != "" { why = lastLine(attribute("message")) }
/<testcase .* result=".*\/>$/ || /<\/testcase>/ { if (test != "") settle(); test = "" }
/<\/testsuites>/ { isWhole[report] = 1 }
END {
  for (name in endOf) {
    report = name
    gsub(/\//, "-", report)
    report = report ".xml"
    if (name !~ /\//) {
      if (endOf[name] == "run") passed++
      else failures++
    } else if (!isWhole[report]) {
      print name " has left no whole report of its tests" >"/dev/stderr"
      failures++
    } else if (endOf[name] != "run" && !failuresOf[report]) failures++
  }
  print passed + 0, failures + 0, skipped + 0
}
