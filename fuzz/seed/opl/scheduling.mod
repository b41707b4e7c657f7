// One machine, four jobs with release times: find integer start times that
// never overlap and minimise the weighted sum of completion times.
range Jobs = 1..4;
int dur[Jobs] = ...;
int release[Jobs] = ...;
int weight[Jobs] = ...;
int horizon = ...;

dvar int start[Jobs] in 0..horizon;

minimize sum(j in Jobs) weight[j] * (start[j] + dur[j]);

subject to {
  forall(j in Jobs)
    ctRelease: start[j] >= release[j];

  // for each pair, one of the two runs first
  forall(a in Jobs, b in Jobs : a < b)
    ctNoOverlap: start[a] + dur[a] <= start[b] || start[b] + dur[b] <= start[a];
}
