// Colour a small map with three colours so that neighbours differ;
// colour numbers are costs, weighted by region size.
range Regions = 1..5;

tuple Border {
  int u;
  int v;
}
{Border} Borders = ...;
int size[Regions] = ...;

dvar int color[Regions] in 1..3;

minimize sum(r in Regions) size[r] * color[r];

subject to {
  forall(e in Borders)
    ctDiffer: color[e.u] != color[e.v];
}
