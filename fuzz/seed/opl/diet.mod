/* Cheapest daily menu that meets every nutrient floor without going
   over the energy ceiling. Servings are capped per food. */
{string} Foods = ...;
{string} Nutrients = ...;

float cost[Foods] = ...;                 // per serving
float content[Foods][Nutrients] = ...;   // per serving
float minReq[Nutrients] = ...;
float maxReq[Nutrients] = ...;           // 0 means no ceiling for that nutrient
float maxServings[Foods] = ...;

dvar float servings[f in Foods] in 0..maxServings[f];

minimize sum(f in Foods) cost[f] * servings[f];

subject to {
  forall(n in Nutrients)
    ctFloor: sum(f in Foods) content[f][n] * servings[f] >= minReq[n];

  // only nutrients with a positive ceiling get an upper row
  forall(n in Nutrients : maxReq[n] > 0)
    ctCeiling: sum(f in Foods) content[f][n] * servings[f] <= maxReq[n];
}
