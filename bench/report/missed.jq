# Says of a list of families which goals are missed.

include "text";

rows as $rows
| count_missed as $missed
| if $missed == 0 then "All \($rows | length) goals are met."
  else "\($missed) of \($rows | length) goals are missed, by more than the 15 % that noise is given:", "  " + missed
  end
