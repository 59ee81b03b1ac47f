// The embedded demonstration site: a terrain survey with an outer boundary, two holes and a few
// breaklines, the same on every run.
#pragma once

#include <cstddef>

#include "Site.h"

namespace rytri {

struct DemoSite {
    Site site;
    /// Area enclosed by the outer boundary, and the areas of the holes inside it (shoelace on
    /// the polygons as generated): the kept mesh must cover exactly outerArea - holeArea.
    double outerArea = 0.0;
    double holeArea = 0.0;
    /// Survey points repeated on purpose (same x and y), which the clean-up has to merge.
    std::size_t repeatedPoints = 0;
};

/// About 3000 points over a 500 x 300 m site with a smooth terrain; an irregular outer boundary,
/// a round pond and a rotated rectangular building as holes, and three breaklines (a road edge,
/// a ditch, a terrace edge), all given as lines with their roles; their vertices are points. Survey
/// points keep a margin from every boundary and breakline, so none lies on a constraint edge except
/// at its ends.
DemoSite makeDemoSite();

}  // namespace rytri
