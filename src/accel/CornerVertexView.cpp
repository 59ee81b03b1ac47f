// The insertion templates for the corner-keeping view.
#include "accel/CornerVertexView.h"

#include "delaunay/VertexInsertion.h"

template PkTriangulationStatus insertVertex(const DelaunayContext&,
                                            const CornerVertexView&,
                                            int,
                                            int);
