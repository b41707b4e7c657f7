// Melting scrap and pure metal into one batch of solder of a given composition.
using CPLEX;

{string} Alloys = ...;
{string} Elements = ...;

float pct[Alloys][Elements] = ...;   // mass fraction of each element
float cost[Alloys] = ...;            // per kg
float stock[Alloys] = ...;           // kg on hand
float low[Elements] = ...;           // composition window of the product
float high[Elements] = ...;
float batch = ...;                   // kg to produce

dvar float+ use[Alloys];

minimize sum(a in Alloys) cost[a] * use[a];

constraints {
  ctBatch: sum(a in Alloys) use[a] == batch;

  forall(e in Elements) {
    ctLow:  sum(a in Alloys) pct[a][e] * use[a] >= low[e] * batch;
    ctHigh: sum(a in Alloys) pct[a][e] * use[a] <= high[e] * batch;
  }

  forall(a in Alloys)
    ctStock: use[a] <= stock[a];
}
