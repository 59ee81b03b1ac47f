// Polygon rings of the kind map data brings: self-intersecting rings, islets touching another
// ring's edge to within a few ulps, degree-scale coordinates and edges across the whole extent.
// Deterministic in the seed and the shape (own SplitMix64 stream), for the tests and the fuzz
// harness.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "PkMeshEdge.h"
#include "RyGeometry.h"

namespace rytest {

struct RingShape {
    /// Centre of the square the rings fill, and its side (degrees in map data).
    double centreX = -158.27;
    double centreY = -19.83;
    double extent = 0.02;
    /// Rings through random points in random order: each crosses itself many times.
    int tangles = 2;
    int tangleVertices = 10;
    /// Thin triangles from corner to corner: long edges that cross everything.
    int spans = 1;
    /// Small triangles with one corner on their own side of an edge of an earlier ring, from
    /// `nearUlps` to `farUlps` steps of one coordinate beyond the first double on that side.
    int islets = 4;
    int nearUlps = 4;
    int farUlps = 8;
    /// Edges in a random order rather than islets first, then ring after ring. Shuffled, a
    /// piece of an edge that rounding moved past an islet corner can cross the islet's edge
    /// within PkGeContext::gTol of the corner, which the library refuses when that edge comes
    /// later (StatusConstraintFailed, a crossing at an end of the new segment). In the default
    /// order about 0.5% of seeds still meet that refusal (a crossing vertex rounded past the
    /// corner); closer islets (nearUlps below 4) and extents below 1e-2 (where the library's
    /// absolute parallel-lines threshold of 1e-10 is met) make the described refusals common.
    bool shuffleEdges = false;
};

struct RingInput {
    std::vector<PkGePoint3d> points;
    /// Every ring closed; the islets first, then ring after ring, unless shuffled.
    std::vector<PkMeshEdge> edges;
};

RingInput generateRings(std::uint64_t seed, const RingShape& shape = {});

/// A shape and a seed decoded from any bytes (a fuzzer's input): the first eight bytes are the
/// seed, each further byte sets one parameter; missing bytes keep the defaults.
RingShape ringShapeFromBytes(const std::uint8_t* data, std::size_t size, std::uint64_t& seed);

}  // namespace rytest
