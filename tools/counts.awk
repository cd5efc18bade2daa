# Reads what ctest --output-junit wrote; prints "PASSED FAILED SKIPPED" and writes a line `step:test<TAB>why` for each
# skipped test into the file named by `skips`. A test is skipped when it said so itself; one whose program was not found failed,
# and so did one that was skipped and then had a sanitizer's complaint.
function attribute(name) {
  return match($0, " " name "=\"[^\"]*\"") ? substr($0, RSTART + length(name) + 3, RLENGTH - length(name) - 4) : ""
}
function plain(text) {
  gsub(/&lt;/, "<", text)
  gsub(/&gt;/, ">", text)
  gsub(/&quot;/, "\"", text)
  gsub(/&apos;/, "'", text)
  gsub(/&amp;/, "\\&", text)
  return text
}
/<testcase / {
  test = attribute("name")
  status = attribute("status")
  saidSo = status == "disabled"
  why = status == "disabled" ? "disabled" : ""
  told = 0
}
/<skipped message="SKIP_/ { saidSo = 1 }
/<system-out>/ { sub(/.*<system-out>/, "") }
# GoogleTest gives the reason below a line `file:line: Skipped`; a script gives it in its last line.
/: Skipped$/ { told = 1; why = ""; next }
/^\[  SKIPPED \]/ { if (told == 1) told = 2 }
/Sanitizer|runtime error:|ERROR SUMMARY: [1-9]/ { saidSo = 0 }
told < 2 && !/<\// && NF { why = told == 1 && why != "" ? why " " $0 : $0 }
/<\/system-out>/ && told == 0 { sub(/<\/system-out>.*/, ""); if (NF) why = $0 }
/<\/testcase>/ {
  if (status == "run") passed++
  else if (saidSo) {
    skipped++
    print step ":" plain(test) "\t" plain(why) > skips
  } else failed++
}
END { print passed + 0, failed + 0, skipped + 0 }
