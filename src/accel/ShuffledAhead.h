// The shuffled insertions with the nearest-vertex queries answered ahead on a helper thread.
#pragma once

#include <vector>

#include "RyTriangulation.h"
#include "state/RyTriangulationImpl.h"

/// Inserts order[3..] as insertShuffledFrom would, with the helper's answers, the insertion
/// scouts and the corner cache; the locator ends as the sequential run would leave it.
PkTriangulationStatus insertShuffledAhead(RyTriangulationImpl& m, const std::vector<int>& order);
