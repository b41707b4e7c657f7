// Three-day roster for four nurses over early, late and night shifts.
// Preference scores are costs: lower is a shift the nurse likes more.
{string} Nurses = ...;
int nDays = ...;
range Days = 1..nDays;
{string} Shifts = ...;

int need[Days][Shifts] = ...;
int maxShifts[Nurses] = ...;
int pref[Nurses][Shifts] = ...;

dvar boolean work[Nurses][Days][Shifts];

minimize sum(n in Nurses, d in Days, s in Shifts) pref[n][s] * work[n][d][s];

subject to {
  forall(d in Days, s in Shifts)
    ctCover: sum(n in Nurses) work[n][d][s] >= need[d][s];

  forall(n in Nurses) {
    forall(d in Days)
      ctOnePerDay: sum(s in Shifts) work[n][d][s] <= 1;

    ctMaxShifts: sum(d in Days, s in Shifts) work[n][d][s] <= maxShifts[n];

    // no early shift straight after a night
    forall(d in Days : d < nDays)
      ctRest: work[n][d]["night"] + work[n][d+1]["early"] <= 1;
  }
}
