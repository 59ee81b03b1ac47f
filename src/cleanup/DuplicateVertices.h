// Input clean-up: touches only the caller's arrays, never a triangulation.
#pragma once

#include <vector>

#include "PkMeshEdge.h"
#include "RyTriangulation.h"

void deleteDuplicateVertices(std::vector<PkGePoint3d>& points, PkConvert2dVertex plane);
void deleteDuplicateVertices(std::vector<PkGePoint3d>& points,
                             std::vector<PkMeshEdge>& edges,
                             PkConvert2dVertex plane);
