# Reads lines `step:test<TAB>why`; prints each reason once, how often it was given, and the first few tests.
BEGIN { FS = "\t" }
{
  if (!($2 in count)) order[++reasons] = $2
  if (++count[$2] <= 8) names[$2] = names[$2] (count[$2] > 1 ? ", " : "") $1
}
END {
  for (i = 1; i <= reasons; i++) {
    why = order[i]
    printf "Skipped %d: %s\n  %s%s\n", count[why], why, names[why], (count[why] > 8 ? ", ..." : "")
  }
}
