// Six-period production plan: regular time, overtime and storage
// to meet a known demand at least cost.
int T = ...;
range Periods = 1..T;
range Stages = 0..T;        // inventory is tracked at the end of each period, 0 = start

float demand[Periods] = ...;
float regCap[Periods] = ...;
float regCost[Periods] = ...;
float otCap = ...;
float otCost = ...;
float holdCost = ...;
float initInv = ...;
float maxInv = ...;
float endInv = ...;

dvar float+ reg[Periods];
dvar float+ ot[Periods];
dvar float+ inv[Stages];

minimize sum(t in Periods) (regCost[t] * reg[t] + otCost * ot[t] + holdCost * inv[t]);

subject to {
  ctStart: inv[0] == initInv;

  forall(t in Periods) {
    ctBalance: inv[t-1] + reg[t] + ot[t] == demand[t] + inv[t];
    ctRegular: reg[t] <= regCap[t];
    ctOvertime: ot[t] <= otCap;
    ctStore: inv[t] <= maxInv;
  }

  ctEnd: inv[T] >= endInv;
}
