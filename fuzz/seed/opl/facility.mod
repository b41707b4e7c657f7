// Which warehouses to open, and how to serve five customers from them:
// a fixed charge per open warehouse plus a cost per unit shipped.
{string} Warehouses = ...;
{string} Customers = ...;

float fixedCost[Warehouses] = ...;
float capacity[Warehouses] = ...;
float demand[Customers] = ...;
float unitCost[Warehouses][Customers] = ...;

dvar boolean open[Warehouses];
dvar float+ x[Warehouses][Customers];

dexpr float fixedPart = sum(i in Warehouses) fixedCost[i] * open[i];
dexpr float shippingPart = sum(i in Warehouses, j in Customers) unitCost[i][j] * x[i][j];

minimize fixedPart + shippingPart;

subject to {
  forall(j in Customers)
    ctDemand: sum(i in Warehouses) x[i][j] == demand[j];

  forall(i in Warehouses)
    ctCapacity: sum(j in Customers) x[i][j] <= capacity[i];

  // nothing leaves a closed warehouse
  forall(i in Warehouses, j in Customers)
    ctLink: x[i][j] <= demand[j] * open[i];
}

execute REPORT {
  writeln("fixed: ", fixedPart, "  shipping: ", shippingPart);
}
