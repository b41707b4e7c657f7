// Four jobs on the shop floor, five workers: each job gets exactly one
// worker, nobody takes two jobs, and nobody takes a job they are not
// qualified for.
{string} Workers = ...;
{string} Tasks = ...;

int cost[Workers][Tasks] = ...;
int skill[Workers][Tasks] = ...;   // 1 = qualified

dvar boolean assign[Workers][Tasks];

minimize sum(w in Workers, t in Tasks) cost[w][t] * assign[w][t];

subject to {
  forall(t in Tasks)
    ctTask: sum(w in Workers) assign[w][t] == 1;

  forall(w in Workers)
    ctWorker: sum(t in Tasks) assign[w][t] <= 1;

  forall(w in Workers, t in Tasks : skill[w][t] == 0)
    ctSkill: assign[w][t] == 0;
}
