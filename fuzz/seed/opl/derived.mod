// Loading a cart: items may be taken in part. Half the total weight fits, at
// most one of the heavy items (over 10 kg) goes, and handling gets dearer with
// every extra item on board (the k-th item costs k * penalty).
{string} Items = ...;
float weight[Items] = ...;
float value[Items] = ...;
float penalty = ...;

int n = card(Items);
float total = sum(i in Items) weight[i];
{string} Big = {i | i in Items : weight[i] > 10};
range R = 1..n;

dvar float take[Items] in 0..1;
dvar float slot[R] in 0..1;

maximize sum(i in Items) value[i] * take[i] - sum(k in R) penalty * k * slot[k];

subject to {
  ctWeight: sum(i in Items) weight[i] * take[i] <= total / 2;
  ctBig: sum(i in Big) take[i] <= 1;
  // the slots count the items taken; cheap slots fill first
  ctCount: sum(k in R) slot[k] == sum(i in Items) take[i];
}
