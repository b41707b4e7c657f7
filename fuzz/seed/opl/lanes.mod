// Delivering from two depots to three shops along priced lanes. Each shop
// takes an amount inside its window; the margin is the shop price less the
// lane cost.
tuple Lane {
  key string origin;
  key string dest;
  float cost;
  float cap;
}
tuple Window {
  float low;
  float high;
}

{string} Depots = ...;
{string} Shops = ...;
{Lane} Lanes = ...;
float stock[Depots] = ...;
float price[Shops] = ...;
Window window[Shops] = ...;

dvar float+ move[Lanes];

maximize sum(l in Lanes) (price[l.dest] - l.cost) * move[l];

subject to {
  forall(d in Depots)
    ctStock: sum(l in Lanes : l.origin == d) move[l] <= stock[d];

  forall(s in Shops) {
    ctLow: sum(l in Lanes : l.dest == s) move[l] >= window[s].low;
    ctHigh: sum(l in Lanes : l.dest == s) move[l] <= window[s].high;
  }

  forall(l in Lanes)
    ctCap: move[l] <= l.cap;
}
