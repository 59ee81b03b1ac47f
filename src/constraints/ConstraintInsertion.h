// Constraint edges forced into a Delaunay mesh: the entry point, and the steps that the files of
// this folder share (walk and cavity in ConstraintInsertion.cpp, re-triangulation in
// PseudoPolygon.cpp, crossings of earlier constraints in CrossingResolution.cpp).
#pragma once

#include <vector>

#include "PkMeshEdge.h"
#include "constraints/ConstraintRecords.h"
#include "delaunay/Delaunay.h"

/// What constraint insertion works on: the mesh and the constraint records, the settings of the
/// walks, and its working storage.
struct ConstraintContext {
    TriangleMesh& mesh;
    ConstraintRecords& records;
    /// Edges that may not be locally Delaunay since a constraint was rerouted off them, and the
    /// edges touched after that while the same input edge goes in; legalised at its end.
    std::vector<PkMeshEdge>& suspectEdges;
    std::vector<int>& flipStack;
    double band;
    int maxIterations;
    /// An earlier constraint in the way is split at the crossing (bSplitCrossingConstraints);
    /// otherwise the piece fails there.
    bool splitCrossings;

    /// The insertion's view of the same state (its flips keep the constraint edges).
    DelaunayContext delaunay() const {
        return {mesh, records.edges, flipStack, band, maxIterations};
    }
};

/// Makes the input edge a chain of mesh edges recorded as constraints, with Lawson flips of the
/// edges a rerouted crossing left behind.
PkTriangulationStatus insertConstraintEdge(const ConstraintContext& c, const PkMeshEdge& edge);

// --- steps shared by the files of this folder ------------------------------------------------

/// One piece of an input edge (`origin`): records it, cuts it at a vertex on it, or re-triangulates
/// the cavity it crosses; what remains of the piece is queued on `pendingEdges`.
PkTriangulationStatus insertConstraintSegment(const ConstraintContext& c,
                                              const PkMeshEdge& piece,
                                              const PkMeshEdge& origin,
                                              std::vector<PkMeshEdge>& pendingEdges);
/// In a cavity's map of boundary edges: an edge with the cavity on both sides, whose neighbour
/// across is the new triangle that meets it second.
constexpr int kInteriorEdge = -1;
/// Triangulates one side of a cavity (chain from one end of the new edge to the other) into
/// slot `own` and newly allocated ones, linking `own` to `partner` across the new edge. False
/// when a boundary edge is missing from the map (an inconsistent region).
bool triangulatePseudoPolygon(TriangleMesh& mesh,
                              double band,
                              const std::vector<int>& chain,
                              EdgeMap<int>& boundaryNeighbours,
                              int own,
                              int partner);

/// What stands in for the split of a crossed constraint at the rounded crossing (see
/// CrossingResolution.cpp).
struct CrossingPlan {
    enum Kind { kSplit, kThroughEnd, kThroughApex, kInsert, kDetour, kRefused };
    Kind kind;
    /// kThroughEnd, kThroughApex, kDetour: the vertex the constraints are routed through.
    int vertex;
    /// kSplit: the triangle whose exit edge is split; kInsert: the one the vertex goes into.
    int triangle;
    /// kSplit, kInsert: the point was moved off the rounded crossing.
    bool moved;
};

/// Crossing of the infinite lines a-b and u-w (z: the mean of the four ends' z); false for
/// lines too close to parallel.
bool intersectLines(const TriangleMesh& mesh, int a, int b, int u, int w, PkGePoint3d& p);
/// How the walk resolves its crossing with the constraint that is the exit edge of triangle
/// t (pivot at local position j, n beyond); p, the rounded crossing, may move a few ulps.
CrossingPlan planCrossing(const TriangleMesh& mesh, int t, int j, int n, PkGePoint3d& p);
/// Carries out the plan for the piece a-b and queues what remains of the piece.
PkTriangulationStatus resolveCrossing(const ConstraintContext& c,
                                      int t,
                                      int j,
                                      int n,
                                      int a,
                                      int b,
                                      PkGePoint3d p,
                                      std::vector<PkMeshEdge>& pendingEdges);
/// Adds every edge at the vertex to `suspectEdges` (the edges opposite it were just checked by
/// the flips that followed its insertion).
void noteEdgesAt(const ConstraintContext& c, int vertex);
/// Lawson flips from `suspectEdges` (emptied) until all edges they reach are locally Delaunay
/// or constraints.
PkTriangulationStatus legalizeSuspectEdges(const ConstraintContext& c);
/// Inserts a new vertex at p on the constraint `edge` of triangle t and splits its records;
/// the new vertex, or NoVertex when the mesh refused it.
int splitConstraintEdge(const ConstraintContext& c,
                        const PkMeshEdge& edge,
                        const PkGePoint3d& p,
                        int t);
