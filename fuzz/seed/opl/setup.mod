// Small-lot production with a setup cost whenever a product is made at all
// and a handling surcharge for big batches (three units or more).
range Products = 1..3;
int profit[Products] = ...;
int hours[Products] = ...;
int setupCost[Products] = ...;
int surcharge[Products] = ...;
int capacity = ...;
int maxMake = ...;
int bigBatch = ...;

dvar int make[Products] in 0..maxMake;
dvar boolean setup[Products];
dvar boolean big[Products];

maximize sum(p in Products) (profit[p] * make[p] - setupCost[p] * setup[p] - surcharge[p] * big[p]);

subject to {
  ctHours: sum(p in Products) hours[p] * make[p] <= capacity;

  forall(p in Products) {
    ctSetup: make[p] >= 1 => setup[p] == 1;
    ctBig: make[p] >= bigBatch => big[p] == 1;
  }
}
