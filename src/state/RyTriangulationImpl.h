// The implementation record behind RyTriangulation: the parts one triangulation is made of. It
// declares no algorithm; each folder's header declares the operations of its concern on the
// parts they read (delaunay/Delaunay.h, constraints/ConstraintInsertion.h, finishing/Finishing.h,
// driver/Triangulate.h).
#pragma once

#include <cstdint>
#include <vector>

#include "PkMeshEdge.h"
#include "PkMeshTriangle.h"
#include "RyTriangulation.h"
#include "constraints/ConstraintInsertion.h"
#include "constraints/ConstraintRecords.h"
#include "delaunay/Delaunay.h"
#include "mesh/TriangleMesh.h"
#include "spatial/VertexKdTree.h"

struct RyTriangulationImpl {
    static constexpr std::uint32_t bSpatialSort = 1u << 0;
    static constexpr std::uint32_t bSplitCrossingConstraints = 1u << 1;

    /// Default record (options 0); the constructors of RyTriangulation set the options.
    RyTriangulationImpl();
    RyTriangulationImpl(const RyTriangulationImpl&) = default;
    RyTriangulationImpl& operator=(const RyTriangulationImpl&) = default;

    // --- state -------------------------------------------------------------------------------
    std::uint32_t options = 0;
    TriangleMesh mesh;
    ConstraintRecords constraints;
    /// The output list of the last finishing call (appended to, never cleared by one).
    std::vector<PkMeshTriangle> meshTriangles;
    /// Nearest inserted vertex for the shuffled walks' start.
    VertexKdTree locator;
    int maxIterations = 1000000;
    double cdtTolerance = 1e-9;
    ProgressReport progress;

    // --- working storage, reused across calls (never part of the observable state) ------------
    /// The tolerance band the geometry uses: cdtTolerance, or 0 when that is negative or NaN.
    double band = 1e-9;
    std::vector<int> flipStack;
    std::vector<PkMeshEdge> suspectEdges;
    /// True once a triangulation call has written the record.
    bool used = false;

    /// The parts that vertex insertion works on.
    DelaunayContext delaunay() { return {mesh, constraints.edges, flipStack, band, maxIterations}; }
    /// The parts that constraint insertion works on.
    ConstraintContext constraintContext() {
        return {mesh,
                constraints,
                suspectEdges,
                flipStack,
                band,
                maxIterations,
                (options & bSplitCrossingConstraints) != 0};
    }
    /// Empties the mesh, output, locator and constraint records; keeps options and tolerance.
    void reset();
};
