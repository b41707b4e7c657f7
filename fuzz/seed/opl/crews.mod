// Staffing day and night shifts from two crew lists. People on both lists
// are flexible (paid a night premium, and their total hours are capped);
// people on only one list work only that shift, for at most singleMax hours.
{string} DayCrew = ...;
{string} NightCrew = ...;

{string} Crew = DayCrew union NightCrew;
{string} Flex = DayCrew inter NightCrew;
{string} DayOnly = DayCrew diff NightCrew;
{string} NightOnly = NightCrew diff DayCrew;

float wage[Crew] = ...;
float maxHours[Crew] = ...;
float flexPremium = ...;
float dayNeed = ...;
float nightNeed = ...;
float flexCap = ...;
float singleMax = ...;

dvar float+ day[Crew];
dvar float+ night[Crew];

minimize sum(c in Crew) wage[c] * (day[c] + night[c]) + sum(c in Flex) flexPremium * night[c];

subject to {
  ctDay: sum(c in Crew) day[c] >= dayNeed;
  ctNight: sum(c in Crew) night[c] >= nightNeed;

  forall(c in DayOnly)
    ctNoNight: night[c] == 0;
  forall(c in NightOnly)
    ctNoDay: day[c] == 0;

  forall(c in Crew)
    ctMax: day[c] + night[c] <= maxHours[c];

  ctFlexCap: sum(c in Flex) (day[c] + night[c]) <= flexCap;

  forall(c in (DayCrew symdiff NightCrew))
    ctSingle: day[c] + night[c] <= singleMax;
}
