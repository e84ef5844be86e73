# The figures of all families as one file, a line for each row, so that two runs compare line by line.

def family:
  "{\"family\": \(.family | tojson), \"beside\": \(.beside | tojson), \"rounds\": \(.rounds), \"rows\": [\n"
  + (.rows | map(tojson) | join(",\n"))
  + "\n]}";

"{"
+ (to_entries | map(select(.key != "families") | "\(.key | tojson): \(.value | tojson)") | join(",\n"))
+ ",\n\"families\": [\n"
+ (.families | map(family) | join(",\n"))
+ "\n]}"
