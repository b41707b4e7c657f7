// Shipping cases from two canneries to three markets at least freight cost.
{string} Plants = ...;
{string} Markets = ...;

float capacity[Plants] = ...;           // cases each plant can ship
float demand[Markets] = ...;            // cases each market needs
float distance[Plants][Markets] = ...;  // thousands of miles
float freight = 90;                     // dollars per case per thousand miles

dvar float+ ship[Plants][Markets];

// freight * distance / 1000 is the cost per case in thousands of dollars
minimize sum(i in Plants, j in Markets) freight * distance[i][j] / 1000 * ship[i][j];

subject to {
  forall(i in Plants)
    ctSupply: sum(j in Markets) ship[i][j] <= capacity[i];
  forall(j in Markets)
    ctDemand: sum(i in Plants) ship[i][j] >= demand[j];
}

execute {
  for (var i in Plants)
    for (var j in Markets)
      if (ship[i][j] > 0) writeln(i, " -> ", j, ": ", ship[i][j]);
}
