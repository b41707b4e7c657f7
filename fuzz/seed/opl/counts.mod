// Stocking four products on a shelf: at least two products with two or more
// units on display, and at most one product filled to three or more.
range Items = 1..4;
int value[Items] = ...;
int space[Items] = ...;
int shelf = ...;
int minMedium = ...;
int maxFull = ...;

dvar int x[Items] in 0..4;

maximize sum(i in Items) value[i] * x[i];

subject to {
  ctShelf: sum(i in Items) space[i] * x[i] <= shelf;
  ctMedium: sum(i in Items) (x[i] >= 2) >= minMedium;
  ctFull: sum(i in Items) (x[i] >= 3) <= maxFull;
}
