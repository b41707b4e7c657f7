// Cutting 100 cm rolls into four widths with a fixed list of cutting patterns:
// how many rolls to cut with each pattern so every order is met.
int rollWidth = ...;
{int} Widths = ...;
int nPatterns = ...;
range Patterns = 1..nPatterns;

int demand[Widths] = ...;
int pieces[Patterns][Widths] = ...;   // pieces of each width one roll yields

dvar int+ use[Patterns];

minimize sum(p in Patterns) use[p];

subject to {
  forall(w in Widths)
    ctDemand: sum(p in Patterns) pieces[p][w] * use[p] >= demand[w];
}

execute {
  for (var p in Patterns) {
    var used = 0;
    for (var w in Widths) used += w * pieces[p][w];
    writeln("pattern ", p, " wastes ", rollWidth - used);
  }
}
