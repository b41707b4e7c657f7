// Planting three fields with wheat, corn and soy. All data is written here;
// farm.dat is empty. Field quality scales the base yield of every crop.
{string} Crops = {"wheat", "corn", "soy"};
range Fields = 1..3;

float acres[Fields] = [40, 25, 35];
float price[Crops] = [210, 180, 340];           // per tonne
float baseYield[Crops] = [3.0, 4.2, 2.5];       // tonnes per acre on a standard field
float fieldFactor[Fields] = [1.0, 0.8, 1.1];
float yieldOf[f in Fields][c in Crops] = baseYield[c] * fieldFactor[f];
float water[Crops] = [1.2, 1.8, 2.2];           // acre-feet per acre
float waterCap = 150;
float soyMarket = 60;                           // tonnes the buyer takes

dvar float+ plant[Fields][Crops];

maximize sum(f in Fields, c in Crops) price[c] * yieldOf[f][c] * plant[f][c];

subject to {
  forall(f in Fields)
    ctLand: sum(c in Crops) plant[f][c] <= acres[f];

  ctWater: sum(f in Fields, c in Crops) water[c] * plant[f][c] <= waterCap;

  ctSoy: sum(f in Fields) yieldOf[f]["soy"] * plant[f]["soy"] <= soyMarket;
}
