// Test and tooling access to the record behind a handle (not exported).
#pragma once

#include "RyTriangulation.h"
#include "mesh/RyTriangulationImpl.h"

struct RyTriangulationAccess {
    static RyTriangulationImpl* impl(RyTriangulation& t) { return t.impl; }
    static const RyTriangulationImpl* impl(const RyTriangulation& t) { return t.impl; }
};
