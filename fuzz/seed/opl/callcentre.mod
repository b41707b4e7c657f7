// Call centre day split into eight three-hour blocks. Agents work shifts of
// shiftLen consecutive blocks, wrapping round midnight. Staffing needs come
// from the forecast; shifts starting at night are paid more.
int nBlocks = ...;
range Blocks = 0..nBlocks-1;

float load[Blocks] = ...;      // calls per hour
float perAgent = ...;          // calls one agent handles per hour
int shiftLen = ...;
int floorStaff = ...;          // never fewer agents than this on duty
int maxAgents = ...;           // agents available for any one start time
float dayWage = ...;
float nightWage = ...;

int need[b in Blocks] = maxl(floorStaff, ceil(load[b] / perAgent));
int cap = minl(maxAgents, floor(max(b in Blocks) load[b] / perAgent));
float wage[s in Blocks] = (s < 2 || s >= 7) ? nightWage : dayWage;

dvar int start[Blocks] in 0..cap;

minimize sum(s in Blocks) shiftLen * wage[s] * start[s];

subject to {
  // a shift starting in block s is on duty in block h when h is one of
  // the shiftLen blocks from s on, counted round the clock
  forall(h in Blocks)
    ctCover: sum(s in Blocks : (h - s + nBlocks) mod nBlocks < shiftLen) start[s] >= need[h];
}

execute {
  for (var b in Blocks) writeln(b, ": need ", need[b]);
}
