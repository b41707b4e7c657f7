// Furniture workshop: how many chairs, tables and desks to build this month.
{string} Products = ...;
{string} Machines = ...;

float price[Products] = ...;
float material[Products] = ...;
float time[Products][Machines] = ...;   // hours per unit
float hours[Machines] = ...;
float market[Products] = ...;
float budget = ...;

dvar float+ make[Products];

dexpr float revenue = sum(p in Products) price[p] * make[p];
dexpr float materialCost = sum(p in Products) material[p] * make[p];
dexpr float load[m in Machines] = sum(p in Products) time[p][m] * make[p];

maximize revenue - materialCost;

subject to {
  forall(m in Machines)
    ctLoad: load[m] <= hours[m];

  ctBudget: materialCost <= budget;

  forall(p in Products)
    ctMarket: make[p] <= market[p];
}
