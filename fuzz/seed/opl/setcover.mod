// Choosing ambulance stations so that every district is reached, and the two
// busiest districts are reached from at least two stations.
{string} Sites = ...;
range Districts = 1..8;
{int} Critical = {2, 5};

int cost[Sites] = ...;
int covers[Sites][Districts] = ...;   // 1 when the site reaches the district in time

dvar boolean build[Sites];

minimize sum(s in Sites) cost[s] * build[s];

subject to {
  forall(d in Districts)
    ctCover: sum(s in Sites) covers[s][d] * build[s] >= 1;

  forall(d in Districts : d in Critical)
    ctDouble: sum(s in Sites : covers[s][d] == 1) build[s] >= 2;
}
