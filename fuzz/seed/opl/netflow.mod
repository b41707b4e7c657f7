// Min-cost flow: two sources, two sinks, three transshipment nodes.
// A positive supply leaves the node, a negative one is consumed there.
tuple Arc {
  string from;
  string to;
  float cost;
  float cap;
}

{string} Nodes = ...;
{Arc} Arcs = ...;
float supply[Nodes] = ...;

dvar float+ flow[Arcs];

minimize sum(<i,j,c,u> in Arcs) c * flow[<i,j,c,u>];

subject to {
  forall(n in Nodes)
    ctBalance: sum(a in Arcs : a.from == n) flow[a] - sum(a in Arcs : a.to == n) flow[a] == supply[n];

  forall(a in Arcs)
    ctCapacity: flow[a] <= a.cap;
}
