// Polygon rings as map data brings them: rings that cross themselves and each other, islets whose
// corner lies a few ulps from another ring's edge, degree-scale coordinates, edges across the
// whole extent. With band 0 every call must succeed with a valid mesh, every input edge must be
// a chain of constraint edges of the mesh within rounding of its line, and the area kept by
// deleteOuterTrianglesAndHoles must equal the even-odd area of the rings, computed exactly.
//
// Rounding allowed: a vertex made at a crossing, or a vertex a crossing was routed through, lies
// within twice the library's reach (2^-40 of the largest coordinate) of both input lines it
// stands on; so each chain stays within that distance of its segment, and the kept region
// differs from the exact one only inside those strips: by at most 2 * reach * (total edge
// length).
#include <gmpxx.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "RyTriangulation.h"
#include "api/RyTriangulationAccess.h"
#include "state/RyTriangulationImpl.h"
#include "support/MeshValidator.h"
#include "support/RingGenerator.h"

namespace {

using rytest::RingInput;
using rytest::RingShape;

PkTriangulationStatus triangulate(RyTriangulation& t, const RingInput& in) {
    std::srand(1);
    t.setCDTTolerence(0.0);
    return t.delaunayTriangulationWithConstraints(in.points, in.edges);
}

/// Whether constraint edges of the mesh lead from a to b through vertices within `reach` of the
/// line a-b (a search, so a vertex near the line that leads nowhere does not end it).
bool chainAlongSegment(const RyTriangulationImpl& m, int a, int b, double reach) {
    const double* A = vertexXY(m.mesh.vertices[std::size_t(a)]);
    const double* B = vertexXY(m.mesh.vertices[std::size_t(b)]);
    const double length = std::hypot(B[0] - A[0], B[1] - A[1]);
    auto near = [&](int v) {
        const double* P = vertexXY(m.mesh.vertices[std::size_t(v)]);
        return std::fabs((P[0] - A[0]) * (B[1] - A[1]) - (P[1] - A[1]) * (B[0] - A[0])) <=
               reach * length;
    };
    std::vector<char> seen(m.mesh.vertices.size(), 0);
    std::vector<int> stack(1, a);
    seen[std::size_t(a)] = 1;
    while (!stack.empty()) {
        const int v = stack.back();
        stack.pop_back();
        if (v == b) return true;
        for (const PkMeshEdge& e : m.constraints.edges) {
            const int w =
                e.EdgeIndex1() == v ? e.EdgeIndex2() : (e.EdgeIndex2() == v ? e.EdgeIndex1() : -1);
            if (w < 0 || seen[std::size_t(w)] || !near(w)) continue;
            seen[std::size_t(w)] = 1;
            stack.push_back(w);
        }
    }
    return false;
}

/// Even-odd area of the edges, exactly: between two consecutive x where a vertex or a crossing
/// lies, the edges over the slab do not cross, so ordered by height at its middle they bound
/// the inside and the outside alternately.
mpq_class evenOddArea(const RingInput& in) {
    struct Edge {
        mpq_class x0, y0, x1, y1;
    };
    std::vector<Edge> edges;
    std::vector<mpq_class> xs;
    for (const PkMeshEdge& e : in.edges) {
        PkGePoint3d p = in.points[std::size_t(e.EdgeIndex1())];
        PkGePoint3d q = in.points[std::size_t(e.EdgeIndex2())];
        xs.emplace_back(p.x);
        if (p.x == q.x) continue;  // no width, no area
        if (p.x > q.x) std::swap(p, q);
        edges.push_back({p.x, p.y, q.x, q.y});
    }
    for (std::size_t i = 0; i < edges.size(); ++i) {
        for (std::size_t j = i + 1; j < edges.size(); ++j) {
            const Edge& e = edges[i];
            const Edge& f = edges[j];
            const mpq_class ex = e.x1 - e.x0, ey = e.y1 - e.y0, fx = f.x1 - f.x0, fy = f.y1 - f.y0;
            const mpq_class den = ex * fy - ey * fx;
            if (sgn(den) == 0) continue;
            const mpq_class s = ((f.x0 - e.x0) * fy - (f.y0 - e.y0) * fx) / den;
            const mpq_class r = ((f.x0 - e.x0) * ey - (f.y0 - e.y0) * ex) / den;
            if (s >= 0 && s <= 1 && r >= 0 && r <= 1) xs.push_back(e.x0 + s * ex);
        }
    }
    std::sort(xs.begin(), xs.end());
    xs.erase(std::unique(xs.begin(), xs.end()), xs.end());
    mpq_class area = 0;
    std::vector<mpq_class> ys;
    for (std::size_t k = 0; k + 1 < xs.size(); ++k) {
        const mpq_class middle = (xs[k] + xs[k + 1]) / 2;
        ys.clear();
        for (const Edge& e : edges) {
            if (e.x0 <= xs[k] && e.x1 >= xs[k + 1]) {
                ys.push_back(e.y0 + (e.y1 - e.y0) * (middle - e.x0) / (e.x1 - e.x0));
            }
        }
        std::sort(ys.begin(), ys.end());
        for (std::size_t i = 1; i < ys.size(); i += 2)
            area += (xs[k + 1] - xs[k]) * (ys[i] - ys[i - 1]);
    }
    return area;
}

/// Twice the area of the triangles appended by the finishing call, exactly until the rounding
/// of the result.
double twiceKeptArea(RyTriangulation& t) {
    const std::vector<PkMeshPoint3d> vertices = t.getMeshVertices();
    mpq_class sum = 0;
    for (const PkMeshTriangle& tri : t.getMeshTriangles()) {
        const double* a = vertexXY(vertices[std::size_t(tri.getVertexIndexAt(0))]);
        const double* b = vertexXY(vertices[std::size_t(tri.getVertexIndexAt(1))]);
        const double* c = vertexXY(vertices[std::size_t(tri.getVertexIndexAt(2))]);
        sum += (mpq_class(b[0]) - a[0]) * (mpq_class(c[1]) - a[1]) -
               (mpq_class(b[1]) - a[1]) * (mpq_class(c[0]) - a[0]);
    }
    return sum.get_d();
}

/// Everything a successful call on the rings must leave.
void expectSoundRings(RyTriangulation& t, const RingInput& in) {
    const RyTriangulationImpl& m = *RyTriangulationAccess::impl(t);
    double magnitude = 0.0, length = 0.0;
    for (const PkMeshPoint3d& v : m.mesh.vertices) {
        magnitude = std::max({magnitude, std::fabs(vertexXY(v)[0]), std::fabs(vertexXY(v)[1])});
    }
    const double reach = 2 * 0x1p-40 * magnitude;
    rytest::Checks checks;  // records, pieces on their origins, crossing vertices
    checks.inputs = in.edges;
    checks.crossingsFrom = int(in.points.size());
    EXPECT_EQ(rytest::validate(m, checks), "");
    for (const PkMeshEdge& e : in.edges) {
        const PkGePoint3d& p = in.points[std::size_t(e.EdgeIndex1())];
        const PkGePoint3d& q = in.points[std::size_t(e.EdgeIndex2())];
        length += std::hypot(q.x - p.x, q.y - p.y);
        EXPECT_TRUE(chainAlongSegment(m, e.EdgeIndex1(), e.EdgeIndex2(), reach))
            << "edge (" << e.EdgeIndex1() << ", " << e.EdgeIndex2() << ")";
    }
    t.deleteOuterTrianglesAndHoles();
    const double kept = twiceKeptArea(t) / 2, exact = evenOddArea(in).get_d();
    EXPECT_LE(std::fabs(kept - exact), 2 * reach * length)
        << "kept " << kept << ", even-odd " << exact;
}

/// Rings through points given as x, y pairs; a ring of two corners is one edge.
RingInput rings(const std::vector<double>& xy, const std::vector<std::vector<int>>& corners) {
    RingInput in;
    for (std::size_t i = 0; i + 1 < xy.size(); i += 2) in.points.emplace_back(xy[i], xy[i + 1], 0);
    for (const std::vector<int>& ring : corners) {
        for (std::size_t i = 0; i < (ring.size() == 2 ? 1 : ring.size()); ++i) {
            in.edges.emplace_back(ring[i], ring[(i + 1) % ring.size()]);
        }
    }
    return in;
}

TEST(Rings, IssueCrossingBesideAVertexWithinRoundingOfTheCrossedEdge) {
    // Vertex 3 lies 8e-15 off the edge (0, 1), so (2, 3) crosses (0, 1) 4.5e-14 from its own
    // end 3. Under the default PkGeContext::gTol (1e-10) that crossing equals the end of the
    // new segment: StatusConstraintFailed, as described. With gTol 0 the rounded crossing would
    // leave flat triangles beside the sliver (0, 1, 3); both edges pass through vertex 3.
    // clang-format off
    const RingInput in = rings({-158.26658266582666, -19.831782981792415, -158.2809828098281,
                                -19.821651518173113, -158.27738277382775, -19.823340095443,
                                -158.2737827378274, -19.826717249982764},
                               {{0, 1}, {2, 3}});
    // clang-format on
    RyTriangulation described(true, true);
    EXPECT_EQ(triangulate(described, in), StatusConstraintFailed);
    EXPECT_EQ(rytest::validate(*RyTriangulationAccess::impl(described)), "");

    const PkGeTol saved = PkGeContext::gTol;
    PkGeContext::gTol.setEqualPoint(0.0);
    RyTriangulation t(true, true);
    const PkTriangulationStatus status = triangulate(t, in);
    PkGeContext::gTol = saved;
    ASSERT_EQ(status, StatusOk);
    const RyTriangulationImpl& m = *RyTriangulationAccess::impl(t);
    EXPECT_EQ(rytest::validate(m), "");
    EXPECT_EQ(m.mesh.vertices.size(), 4u);
    EXPECT_EQ(
        m.constraints.edges,
        decltype(m.constraints.edges)({PkMeshEdge(0, 3), PkMeshEdge(1, 3), PkMeshEdge(2, 3)}));
    EXPECT_TRUE(m.constraints.repeats.empty());
    for (const PkMeshEdge& half : {PkMeshEdge(0, 3), PkMeshEdge(1, 3)}) {
        EXPECT_EQ(m.constraints.origins.at(half), std::vector<PkMeshEdge>{PkMeshEdge(0, 1)});
    }
}

TEST(Rings, GeneratedRingsThatTheSliverRefusalStopped) {
    // Minimised from the families below; each stopped with StatusConstraintFailed before. The
    // first needs a crossing moved by an ulp, the second a crossing vertex inside one of the two
    // triangles beside the crossed edge, the third a detour of the crossed edge through a corner
    // within rounding of it (triangles on both sides of the edge are slivers; the corner is
    // vertex 0, the lowest index a detour can go through).
    // clang-format off
    const std::vector<RingInput> cases = {
        rings({-158.27955516751615, -19.820476049408342, -158.26048151781606, -19.839708222334739,
               -158.26891995366515, -19.828919953665128, -158.26033978971418, -19.820144510259137,
               -158.27932924525965, -19.839929534068574, -158.27175731220828, -19.828242687791743,
               -158.26345124205793, -19.835911525462105, -158.26368989506352, -19.834017681797821,
               -158.26175892530614, -19.835028540131834},
              {{6, 7, 8}, {0, 2, 1}, {3, 5, 4}}),
        rings({-158.26294767772436, -19.823467846248931, -158.26271529375558, -19.831027038201427,
               -158.26781950445428, -19.824901110792283, -158.26427228720081, -19.835563702213527,
               -158.27944677010058, -19.829129995188318, -158.26671064153555, -19.828234245302966,
               -158.26570431949474, -19.828839606709753, -158.26590718968313, -19.827377734005026,
               -158.26671569800757, -19.828219046037969, -158.2669226707074, -19.829437845254002,
               -158.26768040594158, -19.827445969179198},
              {{5, 6, 7}, {8, 9, 10}, {0, 1, 2, 3, 4}}),
        rings({-158.27130300915874, -19.823870508209875, -158.27403684842079, -19.836820025939613,
               -158.26625017971486, -19.838458621297839, -158.27497719245503, -19.824348214799461,
               -158.26167968697129, -19.822619311943406, -158.26027232532155, -19.820308037622645,
               -158.27915879335123, -19.839737252665486, -158.26883043469053, -19.831169565309477,
               -158.27105032287344, -19.823837654676492, -158.27058488863887, -19.824153185129521,
               -158.27145626844103, -19.824226751951795, -158.2765582085506, -19.838495358873214,
               -158.27038815622328, -19.82298576984498, -158.27235297758511, -19.823151283508199},
              {{8, 9, 10}, {0, 12, 13}, {11, 1, 2, 3, 4}, {5, 7, 6}})};
    // clang-format on
    for (std::size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE("case " + std::to_string(i));
        RyTriangulation t(true, true);
        ASSERT_EQ(triangulate(t, cases[i]), StatusOk);
        expectSoundRings(t, cases[i]);
    }
}

TEST(Rings, GeneratedFamiliesSucceedWithExactArea) {
    RingShape tangled;  // a few hundred metres at degree scale
    RingShape country = tangled;
    country.centreX = 10.5, country.centreY = 45.25, country.extent = 20;
    RingShape islets = tangled;  // many islets on few edges, the generator's tightest
    islets.tangles = 1, islets.tangleVertices = 5, islets.spans = 2, islets.islets = 8;
    RingShape survey = tangled;  // metres
    survey.centreX = 512345.5, survey.centreY = 5123456.25, survey.extent = 1000;
    for (const RingShape& shape : {tangled, country, islets, survey}) {
        for (std::uint64_t seed = 0; seed < 25; ++seed) {
            SCOPED_TRACE("extent " + std::to_string(shape.extent) + ", seed " +
                         std::to_string(seed));
            const RingInput in = rytest::generateRings(seed, shape);
            RyTriangulation t(seed % 2 == 0, true);
            ASSERT_EQ(triangulate(t, in), StatusOk);
            expectSoundRings(t, in);
        }
    }
}

}  // namespace
