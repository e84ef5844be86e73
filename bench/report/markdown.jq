# The figures of all families as a document.

include "text";

def spread: "\(.spread_percent | round) %";

# A row of the table; what the one above has is not repeated.
def line($above):
  (.work == $above.work) as $same
  | [if $same then "" else .work end,
     if $same then "" else (.unit as $unit | .ours.median | figure($unit)) end,
     if $same then "" else (.ours | spread) end,
     against,
     (.unit as $unit | .theirs.median | figure($unit)),
     (.theirs | spread),
     (.ratio | digits),
     .goal,
     if .verdict == "missed" then "**missed**" else .verdict end]
  | "| " + (map(tostring) | join(" | ")) + " |";

def table:
  "| work | ours | spread | against | median | spread | ratio | goal | |",
  "|---|---|---|---|---|---|---|---|---|",
  (.rows as $rows | range($rows | length) as $i
   | $rows[$i] | line(if $i == 0 then {} else $rows[$i - 1] end));

def real_time: [.rows[] | select(.clock == "real" and .unit == "ns") | .work] | unique;

def family:
  "",
  "## \(.family[:1] | ascii_upcase)\(.family[1:])",
  "",
  ([if .beside == "" then empty else .beside end, "rounds: \(.rounds)"] | join("; ")) + ".",
  "",
  table,
  (real_time | if length == 0 then empty else "", "Real time: \(join("; "))." end),
  (if .family == "start" then
     "", "How large the stripped library of the board is stands in [size.md](size.md), as `scripts/size` measured it."
   else empty end);

"# Performance",
"",
"Written by `scripts/bench`, which measured all of it on \(.date)\(if .commit == "" then "" else " at \(.commit)" end). The same figures are in",
"[performance.json](performance.json). Why single rows come out as they do, and what measuring has changed, stands",
"in [performance-notes.md](performance-notes.md).",
"",
"- Machine: \(.machine.model), \(.machine.cores) cores; load when it began: \(.machine.load).",
"- System: \(.machine.system); \(.machine.kernel); \(.machine.c_library).",
"- Compiler: \(.machine.compiler), \(.machine.build), which compiled ours and the floors.",
"",
"A figure is the median of the rounds, in each of which every benchmark runs once, ours and what it is held",
"against one after the other. The spread is how far the middle half of the rounds reaches, in percent of the",
"median. A *floor* is the least that the work takes, written as plain code; the others are what a developer would",
"use otherwise. The ratio is ours to theirs. A goal counts as met up to 15 % above it, which is for noise. Times are",
"of the calling thread on its processor, where nothing says that they are real.",
(.families[] | family),
"",
"## Missed goals",
"",
(.families | rows as $rows | count_missed as $missed
 | if $missed == 0 then "None: all \($rows | length) are met."
   else "\($missed) of \($rows | length):", "", "- " + missed
   end)
