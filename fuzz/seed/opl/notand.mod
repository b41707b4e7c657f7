// Three kinds of parcel on a van. Rules from the depot:
//  - never two or more of both kind 1 and kind 2;
//  - never a full load (3) of kind 3;
//  - the bonus y may only be claimed when some kind 3 goes and kind 1 stays small.
range Kinds = 1..3;
int value[Kinds] = ...;
int size[Kinds] = ...;
int room = ...;
int bonus = ...;

dvar int x[Kinds] in 0..3;
dvar boolean y;

maximize sum(k in Kinds) value[k] * x[k] + bonus * y;

subject to {
  ctRoom: sum(k in Kinds) size[k] * x[k] <= room;
  ctNotBoth: !(x[1] >= 2 && x[2] >= 2);
  ctNotFull: !(x[3] == 3);
  ctBonus: y == 1 => (x[3] >= 1 && x[1] <= 1);
}
