#include "mesh/RyTriangulationImpl.h"

// Placeholder until clean-up lands.
void deleteDuplicateVertices(std::vector<PkGePoint3d>&, PkConvert2dVertex) {}
void deleteDuplicateVertices(std::vector<PkGePoint3d>&, std::vector<PkMeshEdge>&, PkConvert2dVertex) {}
