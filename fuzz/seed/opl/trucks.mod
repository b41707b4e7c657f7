// Sending goods by our own trucks (whole crates, whole trucks, at most three
// trucks free this week) or by courier (paid per unit, any amount).
{string} Goods = ...;
int+ need[Goods] = ...;
float+ volume[Goods] = ...;
float+ courierRate[Goods] = ...;
float+ truckVolume = ...;
float+ truckCost = ...;

dvar int+ crates[Goods];
dvar float+ courier[Goods];
dvar int trucks in 0..3;

minimize truckCost * trucks + sum(g in Goods) courierRate[g] * courier[g];

subject to {
  forall(g in Goods)
    ctNeed: crates[g] + courier[g] >= need[g];

  ctLoad: sum(g in Goods) volume[g] * crates[g] <= truckVolume * trucks;
}
