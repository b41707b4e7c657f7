// Orders are made in batches of batchSize on two lines. Parts whose last
// measurement drifted beyond tolerance must go to the new line. Minimise the
// time until both lines are done.
{string} Parts = ...;
{string} Lines = ...;
int order[Parts] = ...;
int batchSize = ...;
float nominal[Parts] = ...;
float measured[Parts] = ...;
float tolerance = ...;
float time[Parts][Lines] = ...;   // hours per batch

int fullBatches[p in Parts] = order[p] div batchSize;
int leftover[p in Parts] = order[p] mod batchSize;
int batches[p in Parts] = fullBatches[p] + ((leftover[p] > 0) ? 1 : 0);
float drift[p in Parts] = abs(measured[p] - nominal[p]);
{string} Rework = {p | p in Parts : drift[p] > tolerance};

dvar int+ onLine[Parts][Lines];
dvar float+ makespan;

minimize makespan;

subject to {
  forall(p in Parts)
    ctBatches: sum(l in Lines) onLine[p][l] == batches[p];

  forall(l in Lines)
    ctLoad: sum(p in Parts) time[p][l] * onLine[p][l] <= makespan;

  forall(p in Rework)
    ctRework: onLine[p]["old"] == 0;
}
