// Test and tooling access to the record behind a handle (not exported).
#pragma once

#include "RyTriangulation.h"
#include "state/RyTriangulationImpl.h"

struct RyTriangulationAccess {
    static RyTriangulationImpl* impl(RyTriangulation& t) { return t.impl; }
    static const RyTriangulationImpl* impl(const RyTriangulation& t) { return t.impl; }
    /// Frees the record and leaves the handle without one, the state a failed assignment
    /// would leave if it released first; every member must then behave as documented.
    static void dropRecord(RyTriangulation& t) {
        delete t.impl;
        t.impl = nullptr;
    }
};
