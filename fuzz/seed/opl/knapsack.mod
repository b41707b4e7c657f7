// Packing a 30 kg rucksack with the most useful gear; each item is taken or left.
{string} Items = ...;
int weight[Items] = ...;
int value[Items] = ...;
int capacity = ...;

dvar boolean take[Items];

maximize sum(i in Items) value[i] * take[i];

subject to {
  ctCapacity: sum(i in Items) weight[i] * take[i] <= capacity;
}

execute PACKLIST {
  for (var i in Items)
    if (take[i] == 1) writeln("pack ", i);
}
