# Reads what `llvm-cov export -format=lcov` writes; prints FILE:LINE for each line of src/ that was not reached, tests not
# counted, and FILE:LINE branch for each branch that was not taken (of a template: by each type it was made for).
/^SF:/ {
  file = substr($0, 4)
  isOurs = sub(/.*\/src\//, "src/", file) && file !~ /_test\.cpp$/
}
isOurs && /^DA:[0-9]*,0$/ { split(substr($0, 4), field, ","); print file ":" field[1] }
isOurs && /^BRDA:.*,(0|-)$/ { split(substr($0, 6), field, ","); print file ":" field[1] " branch" }
