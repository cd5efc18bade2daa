# Reads the output of `llvm-cov export -format=lcov` and leaves out the tests. Prints "FILE:LINE" for each line of src/
# that no test reached, and "FILE:LINE branch" for each branch that no test took. A template has its branches once for
# each instance.
/^SF:/ {
  file = substr($0, 4)
  isOurs = sub(/.*\/src\//, "src/", file) && file !~ /_test\.cpp$/
}
isOurs && /^DA:[0-9]*,0$/ { split(substr($0, 4), field, ","); print file ":" field[1] }
isOurs && /^BRDA:.*,(0|-)$/ { split(substr($0, 6), field, ","); print file ":" field[1] " branch" }
