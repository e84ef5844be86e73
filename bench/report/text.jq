# Figures as people read them.

def magnitude: fabs | log10 | floor;

# Three digits that count.
def digits:
  if . == null then "–"
  elif . == 0 then "0"
  else
    pow(10; 2 - magnitude) as $scale
    # Rounding may add a digit: 9.996 is 10.0.
    | ([0, 2 - (. * $scale | round / $scale | magnitude)] | max) as $decimals
    | (. * pow(10; $decimals) | round | tostring) as $all
    | if $decimals == 0 then $all
      else
        ("0" * ([0, $decimals + 1 - ($all | length)] | max) // "") + $all
        | .[:length - $decimals] + "." + .[length - $decimals:]
      end
  end;

def figure($unit):
  if $unit == "B" then if . >= 10240 then "\(. / 1024 | digits) KiB" else "\(digits) B" end
  elif . >= 1e9 then "\(. / 1e9 | digits) s"
  elif . >= 1e6 then "\(. / 1e6 | digits) ms"
  elif . >= 1e3 then "\(. / 1e3 | digits) µs"
  else "\(digits) ns"
  end;

def against: if .kind == "floor" then "floor: \(.against)" else .against end;

# The missed rows of a list of families, each in a line.
def missed:
  .[] | .family as $family | .rows[] | select(.verdict == "missed")
  | "\($family): \(.work), beside \(against): ratio \(.ratio | digits), goal \(.goal)";

# The rows of a list of families.
def rows: map(.rows[]);
def count_missed: rows | map(select(.verdict == "missed")) | length;
