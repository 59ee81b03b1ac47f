// Unconstrained Delaunay triangulation: the mesh validator on every result over named generators
// and both insertion orders, brute-force empty circumcircles, insertion-order independence, the
// status paths, the insertion order itself, the first mesh, point location and the getters.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "RyTriangulation.h"
#include "mesh/HelperThread.h"
#include "mesh/HugePages.h"
#include "mesh/InsertionScouts.h"
#include "mesh/LocalIndex.h"
#include "mesh/RyTriangulationAccess.h"
#include "mesh/RyTriangulationImpl.h"
#include "support/MeshValidator.h"
#include "support/PeakMemory.h"
#include "support/PointGenerators.h"

namespace {

using rytest::Points;
using Triple = std::array<int, 3>;

RyTriangulationImpl& recordOf(RyTriangulation& t) {
    return *RyTriangulationAccess::impl(t);
}

const char* modeName(bool sorted) {
    return sorted ? "sorted" : "shuffled";
}

/// The input as source text, to paste into a regression test.
std::string dumpPoints(const Points& points) {
    std::ostringstream out;
    out.precision(17);
    out << "{";
    for (const PkGePoint3d& p : points) out << "{" << p.x << ", " << p.y << ", 0}, ";
    out << "}";
    return out.str();
}

/// Real triangles as vertex triples rotated to start at their smallest index (orientation kept).
std::set<Triple> realTriangles(const RyTriangulationImpl& mesh) {
    std::set<Triple> out;
    for (const PkMeshTriangle& t : mesh.triangles) {
        const int* v = triVerts(t);
        if (v[0] < 0 || v[1] < 0 || v[2] < 0) continue;
        const int k = int(std::min_element(v, v + 3) - v);
        out.insert({v[k], v[nextLocalIndex(k)], v[prevLocalIndex(k)]});
    }
    return out;
}

bool hasCorner(const PkMeshTriangle& t, int v) {
    const int* c = triVerts(t);
    return c[0] == v || c[1] == v || c[2] == v;
}

int countInserted(const RyTriangulationImpl& mesh) {
    int n = 0;
    for (const PkMeshPoint3d& v : mesh.vertices) n += vertexTriangle(v) >= 0;
    return n;
}

MeshValidatorOptions exactOptions() {
    MeshValidatorOptions o;
    o.band = 0.0;
    return o;
}

/// Brute force: the largest exact in-circle value of any input point against the circumcircle of
/// any real triangle it is not a corner of. A point strictly inside is reported as a failure.
double largestInCircleValue(const RyTriangulationImpl& mesh,
                            const Points& points,
                            const std::string& context) {
    double worst = -std::numeric_limits<double>::infinity();
    for (const Triple& t : realTriangles(mesh)) {
        const double* a = vertexXY(mesh.vertices[std::size_t(t[0])]);
        const double* b = vertexXY(mesh.vertices[std::size_t(t[1])]);
        const double* c = vertexXY(mesh.vertices[std::size_t(t[2])]);
        for (int p = 0; p < int(points.size()); ++p) {
            if (p == t[0] || p == t[1] || p == t[2]) continue;
            const double value = incircle(a, b, c, &points[std::size_t(p)].x);
            worst = std::max(worst, value);
            if (value > 0.0) {
                ADD_FAILURE() << "point " << p << " inside the circle of (" << t[0] << ", " << t[1]
                              << ", " << t[2] << "), " << context;
                return worst;
            }
        }
    }
    return worst;
}

// --- the validator itself -------------------------------------------------------------------

/// A valid mesh of points in general position to corrupt.
struct ValidMesh {
    RyTriangulationImpl mesh;
    ValidMesh() {
        std::srand(11);
        mesh.cdtTolerance = 0.0;
        EXPECT_EQ(mesh.delaunayTriangulation(rytest::uniformPoints(40, 3)), StatusOk);
    }
    int firstReal() const {
        for (int t = 0;; ++t) {
            if (!isGhost(mesh.triangles[std::size_t(t)])) return t;
        }
    }
    /// An edge between two real triangles: triangle t and its local edge k.
    std::pair<int, int> interiorEdge() const {
        for (int t = 0; t < int(mesh.triangles.size()); ++t) {
            const PkMeshTriangle& tr = mesh.triangles[std::size_t(t)];
            if (isGhost(tr)) continue;
            for (int k = 0; k < 3; ++k) {
                const int u = triNbrs(tr)[k];
                if (!isGhost(mesh.triangles[std::size_t(u)]) && isConvexQuad(t, k)) return {t, k};
            }
        }
        return {-1, -1};
    }
    bool isConvexQuad(int t, int k) const {
        const int* v = triVerts(mesh.triangles[std::size_t(t)]);
        const int a = v[k], b = v[nextLocalIndex(k)], c = v[prevLocalIndex(k)];
        const int d = opposite(t, k);
        auto at = [&](int i) { return vertexXY(mesh.vertices[std::size_t(i)]); };
        return orient2d(at(c), at(a), at(d)) > 0 && orient2d(at(d), at(b), at(c)) > 0;
    }
    int opposite(int t, int k) const {
        const PkMeshTriangle& tr = mesh.triangles[std::size_t(t)];
        const PkMeshTriangle& u = mesh.triangles[std::size_t(triNbrs(tr)[k])];
        const int b = triVerts(tr)[nextLocalIndex(k)];
        for (int j = 0; j < 3; ++j) {
            if (triVerts(u)[j] == b) return triVerts(u)[prevLocalIndex(j)];
        }
        return -1;
    }
    // Replaces edge k of t, (a, b), by (c, d): a consistent mesh whose new edge is illegal.
    //
    //        c                 c
    //       / .               /|.
    //      a-t-b     =>      a t|u b
    //       . u/              .|/
    //        d                 d
    void flip(int t, int k) {
        PkMeshTriangle& tr = mesh.triangles[std::size_t(t)];
        const int u = triNbrs(tr)[k];
        PkMeshTriangle& ur = mesh.triangles[std::size_t(u)];
        const int a = triVerts(tr)[k], b = triVerts(tr)[nextLocalIndex(k)];
        const int c = triVerts(tr)[prevLocalIndex(k)];
        const int nBC = triNbrs(tr)[nextLocalIndex(k)], nCA = triNbrs(tr)[prevLocalIndex(k)];
        int j = 0;
        while (triVerts(ur)[j] != b) ++j;  // u = (b, a, d)
        const int d = triVerts(ur)[prevLocalIndex(j)];
        const int nAD = triNbrs(ur)[nextLocalIndex(j)], nDB = triNbrs(ur)[prevLocalIndex(j)];
        tr.setVertexIndex(c, a, d);
        tr.setNeighborIndex(nCA, nAD, u);
        ur.setVertexIndex(d, b, c);
        ur.setNeighborIndex(nDB, nBC, t);
        mesh.replaceNeighbor(nAD, u, t);
        mesh.replaceNeighbor(nBC, t, u);
        vertexTriangle(mesh.vertices[std::size_t(a)]) = t;
        vertexTriangle(mesh.vertices[std::size_t(c)]) = t;
        vertexTriangle(mesh.vertices[std::size_t(b)]) = u;
        vertexTriangle(mesh.vertices[std::size_t(d)]) = u;
    }
};

TEST(MeshValidator, AcceptsAFreshTriangulation) {
    ValidMesh m;
    EXPECT_TRUE(validateMesh(m.mesh).empty()) << formatViolations(validateMesh(m.mesh));
}

TEST(MeshValidator, ReportsEachKindOfCorruption) {
    {
        SCOPED_TRACE("clockwise triangle");
        ValidMesh m;
        int* v = triVerts(m.mesh.triangles[std::size_t(m.firstReal())]);
        std::swap(v[0], v[1]);
        EXPECT_FALSE(validateMesh(m.mesh).empty());
    }
    {
        SCOPED_TRACE("one-sided neighbour link");
        ValidMesh m;
        const int t = m.firstReal();
        const int u = triNbrs(m.mesh.triangles[std::size_t(t)])[0];
        int other = 0;
        while (other == t || other == u) ++other;
        m.mesh.replaceNeighbor(u, t, other);
        EXPECT_FALSE(validateMesh(m.mesh).empty());
    }
    {
        SCOPED_TRACE("ghost triangle without bAux");
        ValidMesh m;
        for (PkMeshTriangle& t : m.mesh.triangles) {
            if (isGhost(t)) {
                t.setFlagbAux(false);
                break;
            }
        }
        EXPECT_FALSE(validateMesh(m.mesh).empty());
    }
    {
        SCOPED_TRACE("stale vertex back-link");
        ValidMesh m;
        const int t = m.firstReal();
        int victim = 0;
        while (hasCorner(m.mesh.triangles[std::size_t(t)], victim)) ++victim;
        vertexTriangle(m.mesh.vertices[std::size_t(victim)]) = t;
        EXPECT_FALSE(validateMesh(m.mesh).empty());
    }
    {
        SCOPED_TRACE("uninserted vertex");
        ValidMesh m;
        vertexTriangle(m.mesh.vertices[5]) = -1;
        EXPECT_FALSE(validateMesh(m.mesh).empty());
    }
    {
        SCOPED_TRACE("released slot still linked");
        ValidMesh m;
        m.mesh.freeTriangles.push_back(m.firstReal());
        EXPECT_FALSE(validateMesh(m.mesh).empty());
    }
    {
        SCOPED_TRACE("illegal flip, then the same edge as a constraint");
        ValidMesh m;
        const auto [t, k] = m.interiorEdge();
        ASSERT_GE(t, 0);
        m.flip(t, k);
        const std::vector<std::string> found = validateMesh(m.mesh, exactOptions());
        ASSERT_EQ(found.size(), 1u) << formatViolations(found);
        EXPECT_NE(found[0].find("not locally Delaunay"), std::string::npos) << found[0];
        const int* v = triVerts(m.mesh.triangles[std::size_t(t)]);
        m.mesh.constraintEdges.insert(PkMeshEdge(v[0], v[2]));  // the new diagonal (c, d)
        EXPECT_TRUE(validateMesh(m.mesh, exactOptions()).empty());
        EXPECT_TRUE(checkConstraintEdges(m.mesh).empty());
    }
    {
        SCOPED_TRACE("constraint edge missing from the mesh");
        ValidMesh m;
        const auto [t, k] = m.interiorEdge();
        ASSERT_GE(t, 0);
        const int* v = triVerts(m.mesh.triangles[std::size_t(t)]);
        m.mesh.constraintEdges.insert(PkMeshEdge(v[prevLocalIndex(k)], m.opposite(t, k)));
        EXPECT_EQ(checkConstraintEdges(m.mesh).size(), 1u);
        MeshValidatorOptions withConstraints;
        withConstraints.checkConstraints = true;
        EXPECT_FALSE(validateMesh(m.mesh, withConstraints).empty());
    }
}

// --- every generator in both insertion orders -----------------------------------------------

class GeneratedMesh : public ::testing::TestWithParam<std::tuple<std::size_t, bool>> {
protected:
    const rytest::NamedGenerator& generator() const {
        return rytest::namedGenerators()[std::get<0>(GetParam())];
    }
    bool sorted() const { return std::get<1>(GetParam()); }
};

TEST_P(GeneratedMesh, IsAValidDelaunayTriangulation) {
    for (const int n : {3, 17, 250, 3000, 20000}) {
        const std::uint64_t seed = 1000 + std::uint64_t(n);
        const Points points = generator().make(n, seed);
        SCOPED_TRACE(generator().name + " n=" + std::to_string(n) +
                     " seed=" + std::to_string(seed) + " " + modeName(sorted()));
        std::srand(unsigned(seed));
        RyTriangulation tri(sorted(), true);
        tri.setCDTTolerence(generator().band);
        ASSERT_EQ(tri.delaunayTriangulation(points), StatusOk);
        const RyTriangulationImpl& mesh = recordOf(tri);
        RY_ASSERT_VALID_MESH(mesh, MeshValidatorOptions{});
        EXPECT_EQ(countInserted(mesh), int(points.size()));

        // The output holds exactly the real triangles, and the vertices come back in input order.
        tri.deleteGhostTriangle();
        const std::vector<PkMeshTriangle> out = tri.getMeshTriangles();
        EXPECT_EQ(out.size(), realTriangles(mesh).size());
        for (const PkMeshTriangle& t : out) EXPECT_FALSE(hasCorner(t, GhostVertex));
        const std::vector<PkMeshPoint3d> vertices = tri.getMeshVertices();
        ASSERT_EQ(vertices.size(), points.size());
        for (std::size_t i = 0; i < points.size(); ++i) {
            EXPECT_EQ(vertices[i].getPoint().x, points[i].x);
            EXPECT_EQ(vertices[i].getPoint().y, points[i].y);
            EXPECT_EQ(vertices[i].getPoint().z, points[i].z);
        }
    }
}

std::string generatedMeshName(const ::testing::TestParamInfo<std::tuple<std::size_t, bool>>& info) {
    return rytest::namedGenerators()[std::get<0>(info.param)].name + "_" +
           modeName(std::get<1>(info.param));
}

INSTANTIATE_TEST_SUITE_P(Generators,
                         GeneratedMesh,
                         ::testing::Combine(::testing::Range(std::size_t(0),
                                                             rytest::namedGenerators().size()),
                                            ::testing::Bool()),
                         generatedMeshName);

// --- oracles ---------------------------------------------------------------------------------

// Points in general position have one Delaunay triangulation, whatever the insertion order.
TEST(DelaunayOracle, BothInsertionOrdersGiveTheSameTriangles) {
    for (const int n : {4, 50, 1000, 6000}) {
        for (std::uint64_t seed = 1; seed <= 3; ++seed) {
            SCOPED_TRACE("uniform n=" + std::to_string(n) + " seed=" + std::to_string(seed));
            const Points points = rytest::uniformPoints(n, seed);
            std::set<Triple> sets[2];
            for (const bool sorted : {true, false}) {
                RyTriangulation tri(sorted, true);
                tri.setCDTTolerence(0.0);
                ASSERT_EQ(tri.delaunayTriangulation(points), StatusOk) << modeName(sorted);
                RY_EXPECT_VALID_MESH(recordOf(tri), MeshValidatorOptions{}) << modeName(sorted);
                sets[sorted] = realTriangles(recordOf(tri));
            }
            EXPECT_FALSE(sets[0].empty());
            EXPECT_TRUE(sets[0] == sets[1]);
        }
    }
}

// Every output triangle's circumcircle is empty of all input points (exact, no band). Integer
// lattices make the inputs massively cocircular; cocircular points may lie on a circle.
TEST(DelaunayOracle, CircumcirclesAreEmptyByBruteForce) {
    int cases = 0;
    double worst = -std::numeric_limits<double>::infinity();
    for (std::uint64_t seed = 1; seed <= 400; ++seed) {
        rytest::Rng rng(seed);
        const int n = 3 + int(rng.below(58));
        Points points;
        if (seed % 3 == 0) {
            // Distinct lattice points of a 9 x 9 grid.
            std::set<std::pair<int, int>> used;
            while (int(points.size()) < std::min(n, 81)) {
                const int x = int(rng.below(9)), y = int(rng.below(9));
                if (used.insert({x, y}).second) points.emplace_back(x, y, 0.0);
            }
        } else {
            points = rytest::uniformPoints(n, seed, -1.0, 1.0);
        }
        for (const bool sorted : {true, false}) {
            std::srand(unsigned(seed));
            RyTriangulation tri(sorted, true);
            tri.setCDTTolerence(0.0);
            const PkTriangulationStatus status = tri.delaunayTriangulation(points);
            const RyTriangulationImpl& mesh = recordOf(tri);
            if (status == StatusLocateFailed && realTriangles(mesh).empty()) continue;  // a line
            ASSERT_EQ(status, StatusOk) << modeName(sorted) << " " << dumpPoints(points);
            RY_ASSERT_VALID_MESH(mesh, exactOptions())
                << modeName(sorted) << " " << dumpPoints(points);
            ++cases;
            const std::string context = std::string(modeName(sorted)) + " " + dumpPoints(points);
            worst = std::max(worst, largestInCircleValue(mesh, points, context));
            if (HasFailure()) return;
        }
    }
    EXPECT_GT(cases, 700);
    std::cout << "brute force: " << cases << " meshes, largest in-circle value " << worst << "\n";
}

// Every accepted magnitude, [2^-200, 2^200], at once: a near-cocircular ring of radius 2^-66
// passing close to the origin (so its coordinates run down to about 2^-75, with ulp-nudged copies
// of some ring points) beside a few points as far out as 2^199. The predicates are exact on all
// of it; so must be the mesh, and so must be the validator's verdict on it (it once scaled the
// whole mesh by the largest coordinate and pushed the ring's in-circle terms into underflow).
TEST(DelaunayOracle, WholeAcceptedMagnitudeRangeAtOnce) {
    for (std::uint64_t seed = 1; seed <= 30; ++seed) {
        rytest::Rng rng(seed);
        const double r = std::ldexp(1.0, -66);
        const int ring = 8 + int(rng.below(24));
        Points points;
        for (int i = 0; i < ring; ++i) {
            const double a = 2.0 * M_PI * (i + 0.25 * rng.uniform()) / ring;
            points.emplace_back(-r + r * std::cos(a), -r + r * std::sin(a), 0.0);
        }
        for (int i = 0; i < 3; ++i) {
            PkGePoint3d q = points[std::size_t(i * ring / 3)];
            for (int k = 1 + int(rng.below(3)); k > 0; --k) q.x = std::nextafter(q.x, 1.0);
            points.push_back(q);
        }
        const double far = std::ldexp(1.0, 13 + int(rng.below(187)));
        points.emplace_back(-far, -far, 0.0);
        points.emplace_back(-0x1.0c0c0c0b7c0cp+13, -std::ldexp(1.0, 150 + int(rng.below(50))), 0.0);
        points.emplace_back(far * rng.uniform(0.5, 1.0), -far * rng.uniform(0.5, 1.0), 0.0);

        for (const bool sorted : {true, false}) {
            std::srand(unsigned(seed));
            RyTriangulation tri(sorted, true);
            tri.setCDTTolerence(0.0);
            ASSERT_EQ(tri.delaunayTriangulation(points), StatusOk) << modeName(sorted);
            const RyTriangulationImpl& mesh = recordOf(tri);
            RY_ASSERT_VALID_MESH(mesh, exactOptions())
                << modeName(sorted) << " seed " << seed << " " << dumpPoints(points);
            largestInCircleValue(
                mesh, points, std::string(modeName(sorted)) + " seed " + std::to_string(seed));
            if (HasFailure()) return;
        }
    }
}

// --- status paths ----------------------------------------------------------------------------

TEST(DelaunayStatus, FewerThanThreePointsAreRefused) {
    for (const bool sorted : {true, false}) {
        for (std::size_t n = 0; n < 3; ++n) {
            RyTriangulation tri(sorted, true);
            EXPECT_EQ(tri.delaunayTriangulation(rytest::uniformPoints(int(n), 1)),
                      StatusTooFewPoints);
            EXPECT_TRUE(tri.getMeshVertices().empty());
            EXPECT_TRUE(recordOf(tri).triangles.empty());
        }
    }
}

TEST(DelaunayStatus, RepeatedPointIsACoincidentVertex) {
    for (const bool sorted : {true, false}) {
        for (const int n : {4, 30, 500}) {
            SCOPED_TRACE(std::string(modeName(sorted)) + " n=" + std::to_string(n));
            Points points = rytest::uniformPoints(n - 1, 7);
            points.insert(points.begin() + n / 2, points[std::size_t(n / 3)]);
            std::srand(3);
            RyTriangulation tri(sorted, true);
            EXPECT_EQ(tri.delaunayTriangulation(points), StatusCoincidentVertex);
            // What went in before the duplicate is still a valid mesh.
            MeshValidatorOptions partial;
            partial.skipUninserted = true;
            RY_EXPECT_VALID_MESH(recordOf(tri), partial);
            EXPECT_LT(countInserted(recordOf(tri)), n);
        }
    }
}

TEST(DelaunayStatus, FourOrMoreCollinearPointsBuildNothing) {
    const Points line = {{0, 0, 0}, {1, 2, 0}, {3, 6, 0}, {-2, -4, 0}};
    for (const bool sorted : {true, false}) {
        RyTriangulation tri(sorted, true);
        EXPECT_EQ(tri.delaunayTriangulation(line), StatusLocateFailed);
        EXPECT_TRUE(recordOf(tri).triangles.empty());
        const std::vector<PkMeshPoint3d> vertices = tri.getMeshVertices();
        ASSERT_EQ(vertices.size(), line.size());
        for (const PkMeshPoint3d& v : vertices) EXPECT_EQ(v.getTriangleIndex(), -1);
    }
    // A longer line, and points collinear only within the band; the attempt cap is lowered
    // through the record to keep the search short.
    const Points nearLine = {{0, 0, 0}, {1, 0, 0}, {2, 1e-10, 0}, {3, 0, 0}, {4, -1e-10, 0}};
    for (const bool sorted : {true, false}) {
        RyTriangulationImpl mesh;
        mesh.options = sorted ? RyTriangulationImpl::bSpatialSort : 0u;
        mesh.maxIterations = 2000;
        EXPECT_EQ(mesh.delaunayTriangulation(rytest::lineWithFewOff(200, 0, 1)),
                  StatusLocateFailed);
        EXPECT_TRUE(mesh.triangles.empty());

        RyTriangulationImpl near;
        near.options = mesh.options;
        EXPECT_EQ(near.delaunayTriangulation(nearLine), StatusLocateFailed);
        EXPECT_TRUE(near.triangles.empty());

        // Without the band the same points are a (thin) triangulation.
        RyTriangulationImpl exact;
        exact.options = mesh.options;
        exact.cdtTolerance = 0.0;
        EXPECT_EQ(exact.delaunayTriangulation(nearLine), StatusOk);
        RY_EXPECT_VALID_MESH(exact, MeshValidatorOptions{});
    }
}

TEST(DelaunayStatus, ThreeCollinearPointsGiveADegenerateTriangle) {
    const Points line = {{0, 0, 0}, {1, 1, 0}, {5, 5, 0}};
    for (const bool sorted : {true, false}) {
        RyTriangulation tri(sorted, true);
        EXPECT_EQ(tri.delaunayTriangulation(line), StatusOk);
        const RyTriangulationImpl& mesh = recordOf(tri);
        EXPECT_EQ(mesh.triangles.size(), 4u);
        EXPECT_EQ(realTriangles(mesh).size(), 1u);
        MeshValidatorOptions degenerate;
        degenerate.allowDegenerate = true;
        RY_EXPECT_VALID_MESH(mesh, degenerate);
        EXPECT_FALSE(validateMesh(mesh).empty()) << "a zero-area triangle must be reported";
    }
}

TEST(DelaunayStatus, NonFiniteCoordinateFailsAndChangesNothing) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const PkGePoint3d bad[] = {{nan, 1, 0}, {1, nan, 0}, {inf, 0, 0}, {0, -inf, 0}};
    for (const bool sorted : {true, false}) {
        for (const PkGePoint3d& p : bad) {
            Points points = rytest::uniformPoints(20, 5);
            points[13] = p;
            SCOPED_TRACE(std::string(modeName(sorted)) + " bad point (" + std::to_string(p.x) +
                         ", " + std::to_string(p.y) + ")");
            RyTriangulation fresh(sorted, true);
            EXPECT_EQ(fresh.delaunayTriangulation(points), StatusFailed);
            EXPECT_TRUE(fresh.getMeshVertices().empty());
            EXPECT_TRUE(recordOf(fresh).triangles.empty());
            RyTriangulation freshWith(sorted, true);
            EXPECT_EQ(freshWith.delaunayTriangulationWithConstraints(points, {PkMeshEdge(0, 1)}),
                      StatusFailed);
            EXPECT_TRUE(freshWith.getMeshVertices().empty());
            EXPECT_TRUE(recordOf(freshWith).triangles.empty());

            // On a used object the earlier mesh stays as it was.
            RyTriangulation used(sorted, true);
            ASSERT_EQ(used.delaunayTriangulation(rytest::uniformPoints(30, 6)), StatusOk);
            const std::set<Triple> before = realTriangles(recordOf(used));
            EXPECT_EQ(used.delaunayTriangulation(points), StatusFailed);
            EXPECT_EQ(used.delaunayTriangulationWithConstraints(points, {}), StatusFailed);
            EXPECT_EQ(used.getMeshVertices().size(), 30u);
            EXPECT_TRUE(realTriangles(recordOf(used)) == before);
            RY_EXPECT_VALID_MESH(recordOf(used), MeshValidatorOptions{});
        }
    }
}

// Beyond the predicates' exact range (magnitudes 2^-200 .. 2^200) products underflow or overflow
// and every orientation reads as collinear. Whatever the library does there, it must not report
// success with a broken mesh.
TEST(DelaunayStatus, OutOfRangeScalesNeverSucceedWithABrokenMesh) {
    for (const double scale : {1e-200, 1e200}) {
        for (const bool sorted : {true, false}) {
            const Points points = rytest::scaledPoints(rytest::uniformPoints(12, 4), scale);
            RyTriangulationImpl mesh;
            mesh.options = sorted ? RyTriangulationImpl::bSpatialSort : 0u;
            mesh.cdtTolerance = 0.0;
            mesh.maxIterations = 5000;
            const PkTriangulationStatus status = mesh.delaunayTriangulation(points);
            if (status == StatusOk) {
                RY_EXPECT_VALID_MESH(mesh, MeshValidatorOptions{})
                    << "scale " << scale << " " << modeName(sorted);
            } else {
                MeshValidatorOptions partial;
                partial.skipUninserted = true;
                partial.checkDelaunay = false;
                RY_EXPECT_VALID_MESH(mesh, partial) << "scale " << scale << " status " << status;
            }
        }
    }
}

// --- insertion order -------------------------------------------------------------------------

/// Runs the helper thread from `points` points on (0: always; a huge value: never) while alive.
class HelperThreshold {
public:
    explicit HelperThreshold(std::size_t points) : saved(helperThreadMinPoints()) {
        setHelperThreadMinPoints(points);
    }
    ~HelperThreshold() { setHelperThreadMinPoints(saved); }

private:
    std::size_t saved;
};

constexpr std::size_t kNeverHelp = std::numeric_limits<std::size_t>::max();

/// Reference SplitMix64 from its published definition.
std::uint64_t splitMix64(std::uint64_t& state) {
    state += 0x9E3779B97F4A7C15ull;
    std::uint64_t z = state;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

std::vector<int> shuffled(int n) {
    std::vector<int> order(std::size_t(n), 0);
    for (int i = 0; i < n; ++i) order[std::size_t(i)] = i;
    shuffleIndices(order);
    return order;
}

TEST(InsertionOrder, ShuffleGivesTheListedPermutations) {
    EXPECT_EQ(shuffled(3), (std::vector<int>{1, 2, 0}));
    EXPECT_EQ(shuffled(4), (std::vector<int>{3, 2, 0, 1}));
    EXPECT_EQ(shuffled(5), (std::vector<int>{3, 2, 4, 1, 0}));
    EXPECT_EQ(shuffled(10), (std::vector<int>{9, 6, 4, 1, 7, 3, 2, 0, 8, 5}));
    EXPECT_EQ(shuffled(10), shuffled(10)) << "the generator restarts on every call";
}

TEST(InsertionOrder, ShuffleIsSplitMix64FromZero) {
    std::uint64_t state = 0;
    EXPECT_EQ(splitMix64(state), 0xe220a8397b1dcdafull);
    EXPECT_EQ(splitMix64(state), 0x6e789e6aa1b965f4ull);
    EXPECT_EQ(splitMix64(state), 0x06c45d188009454full);
    for (int n = 0; n <= 300; n += 7) {
        std::vector<int> expected(std::size_t(n), 0);
        for (int i = 0; i < n; ++i) expected[std::size_t(i)] = i;
        state = 0;
        for (std::size_t i = 0; i < expected.size(); ++i) {
            std::swap(expected[i], expected[std::size_t(splitMix64(state) % (i + 1))]);
        }
        EXPECT_EQ(shuffled(n), expected) << "n=" << n;
    }
}

/// Cell (i, j) of a side x side grid at x = i + 0.01 j, y = j + 0.013 i, numbered side * i + j.
std::vector<PkMeshPoint3d> skewedGrid(int side) {
    std::vector<PkMeshPoint3d> vertices;
    for (int i = 0; i < side; ++i) {
        for (int j = 0; j < side; ++j) {
            vertices.emplace_back(PkGePoint3d(i + 0.01 * j, j + 0.013 * i, 0));
        }
    }
    return vertices;
}

TEST(InsertionOrder, HilbertSortOfTheFourByFourGrid) {
    const std::vector<PkMeshPoint3d> vertices = skewedGrid(4);
    std::vector<int> order = shuffled(16);
    hilbertSort(order.begin(), order.end(), vertices, 0, false, false);
    const int cells[16][2] = {{3, 3},
                              {2, 3},
                              {2, 2},
                              {3, 2},
                              {3, 1},
                              {3, 0},
                              {2, 0},
                              {2, 1},
                              {1, 1},
                              {1, 0},
                              {0, 0},
                              {0, 1},
                              {0, 2},
                              {1, 2},
                              {1, 3},
                              {0, 3}};
    std::vector<int> expected;
    for (const auto& c : cells) expected.push_back(4 * c[0] + c[1]);
    EXPECT_EQ(order, expected);
}

// On a 2^k grid the median splits fall between rows and columns, so the order is a true Hilbert
// curve: consecutive cells are grid neighbours.
TEST(InsertionOrder, HilbertSortWalksGridNeighbours) {
    for (const int side : {8, 16, 32}) {
        const std::vector<PkMeshPoint3d> vertices = skewedGrid(side);
        std::vector<int> order = shuffled(side * side);
        hilbertSort(order.begin(), order.end(), vertices, 0, false, false);
        std::vector<int> seen(order);
        std::sort(seen.begin(), seen.end());
        for (int i = 0; i < side * side; ++i) ASSERT_EQ(seen[std::size_t(i)], i);
        for (std::size_t k = 1; k < order.size(); ++k) {
            const int di = std::abs(order[k] / side - order[k - 1] / side);
            const int dj = std::abs(order[k] % side - order[k - 1] % side);
            EXPECT_EQ(di + dj, 1) << "side " << side << " step " << k;
        }
    }
}

TEST(InsertionOrder, SpatialSortSortsTheFirstEighthSeparately) {
    std::vector<PkMeshPoint3d> vertices;
    for (const PkGePoint3d& p : rytest::uniformPoints(65, 9)) vertices.emplace_back(p);
    for (const int n : {10, 64, 65}) {
        const std::vector<int> start = shuffled(n);
        std::vector<int> order = start;
        spatialSort(order, vertices);
        std::vector<int> expected = start;
        const std::ptrdiff_t middle = n > 64 ? 8 : 0;
        hilbertSort(expected.begin(), expected.begin() + middle, vertices, 0, false, false);
        hilbertSort(expected.begin() + middle, expected.end(), vertices, 0, false, false);
        EXPECT_EQ(order, expected) << "n=" << n;
    }
}

using OrderIt = std::vector<int>::iterator;

/// Index a before index b along `axis`: ascending when `up`, else descending.
bool hilbertBefore(const std::vector<PkMeshPoint3d>& v, int axis, bool up, int a, int b) {
    const double ca = vertexXY(v[std::size_t(a)])[axis];
    const double cb = vertexXY(v[std::size_t(b)])[axis];
    return up ? ca < cb : ca > cb;
}

/// The recursion of the multiscale Hilbert sort over [begin, end), with `split` (lo, hi, axis,
/// up) making each median split and returning its position: the oracle below sorts with it, the
/// rule check only inspects.
template <class Split>
void hilbertRecursion(OrderIt begin, OrderIt end, int axis, bool ux, bool uy, Split& split) {
    while (end - begin > 1) {
        const int other = 1 - axis;
        const OrderIt m2 = split(begin, end, axis, ux);
        const OrderIt m1 = split(begin, m2, other, uy);
        const OrderIt m3 = split(m2, end, other, !uy);
        hilbertRecursion(begin, m1, other, uy, ux, split);
        hilbertRecursion(m1, m2, axis, ux, uy, split);
        hilbertRecursion(m2, m3, axis, ux, uy, split);
        begin = m3;
        const bool nextUx = !uy, nextUy = !ux;
        axis = other, ux = nextUx, uy = nextUy;
    }
}

template <class Split>
void spatialRecursion(OrderIt begin, OrderIt end, Split& split) {
    OrderIt middle = begin;
    if (end - begin > 64) {
        middle = begin + std::ptrdiff_t(double(end - begin) * 0.125);
        spatialRecursion(begin, middle, split);
    }
    hilbertRecursion(middle, end, 0, false, false, split);
}

/// The multiscale Hilbert sort exactly as its rules read, on the index vector with the standard
/// selection: the oracle for the library's sort, which selects on key copies with sampling
/// shortcuts on large ranges.
void referenceSpatialSort(std::vector<int>& order, const std::vector<PkMeshPoint3d>& v) {
    auto split = [&v](OrderIt lo, OrderIt hi, int ax, bool up) {
        if (lo >= hi) return lo;
        const OrderIt mid = lo + (hi - lo) / 2;
        std::nth_element(
            lo, mid, hi, [&v, ax, up](int a, int b) { return hilbertBefore(v, ax, up, a, b); });
        return mid;
    };
    spatialRecursion(order.begin(), order.end(), split);
}

/// Walks the recursion of the sort over a finished order and counts the splits that break the
/// median rule: every split leaves no entry of its front part ordered after an entry of its back
/// part (the later sorting of each part keeps that). With equal coordinates the order itself is
/// open, this rule is not.
std::size_t countBrokenSplits(std::vector<int>& order, const std::vector<PkMeshPoint3d>& v) {
    std::size_t broken = 0;
    auto split = [&v, &broken](OrderIt lo, OrderIt hi, int ax, bool up) {
        if (lo >= hi) return lo;
        const OrderIt mid = lo + (hi - lo) / 2;
        auto before = [&v, ax, up](int a, int b) { return hilbertBefore(v, ax, up, a, b); };
        if (lo < mid && mid < hi &&
            before(*std::min_element(mid, hi, before), *std::max_element(lo, mid, before))) {
            ++broken;
        }
        return mid;
    };
    spatialRecursion(order.begin(), order.end(), split);
    return broken;
}

// Large inputs take the sampled selection at the upper levels. With distinct coordinates the
// order is fully determined, so it must equal the transcription's; with many equal coordinates
// (grids, a line, repeated points) only the median rule of every split is fixed.
TEST(InsertionOrder, LargeSortsFollowTheMedianRules) {
    struct Case {
        const char* name;
        Points points;
        bool distinct;
    };
    Points repeated = rytest::uniformPoints(3000, 52);
    for (int k = 0; k < 4; ++k) repeated.insert(repeated.end(), repeated.begin(), repeated.end());
    const Case cases[] = {
        {"uniform", rytest::uniformPoints(70000, 50), true},
        {"clusters", rytest::gaussianClusters(30000, 5, 51), true},
        {"just above one sample", rytest::uniformPoints(4097 * 8 / 7 + 2, 53), true},
        {"grid", rytest::integerGrid(250, 200), false},
        {"line with few off", rytest::lineWithFewOff(20000, 9, 54), false},
        {"every point sixteen times", repeated, false},
    };
    for (const Case& c : cases) {
        std::vector<PkMeshPoint3d> vertices(c.points.begin(), c.points.end());
        const std::vector<int> start = shuffled(int(vertices.size()));
        std::vector<int> order = start;
        spatialSort(order, vertices);

        std::vector<int> seen(order);
        std::sort(seen.begin(), seen.end());
        for (std::size_t i = 0; i < seen.size(); ++i) ASSERT_EQ(seen[i], int(i)) << c.name;
        EXPECT_EQ(countBrokenSplits(order, vertices), 0u) << c.name;
        if (c.distinct) {
            std::vector<int> expected = start;
            referenceSpatialSort(expected, vertices);
            EXPECT_EQ(order, expected) << c.name;
        }

        // The rule check itself notices a misplaced entry: move the last entry to the front.
        std::rotate(order.begin(), order.end() - 1, order.end());
        EXPECT_GT(countBrokenSplits(order, vertices), 0u) << c.name;
    }
}

/// The sorted driver inserts on a copy numbered in insertion order and maps it back. Replays the
/// same order through the record-indexed insertion, from the same `rand` state, and expects the
/// identical record: every triangle slot, link and flag, every vertex's triangle, the status.
void expectSortedDriverMatchesRecordInsertion(const Points& points,
                                              double tolerance,
                                              int maxIterations,
                                              const std::string& name) {
    RyTriangulationImpl driven;
    driven.options = RyTriangulationImpl::bSpatialSort;
    driven.cdtTolerance = tolerance;
    driven.maxIterations = maxIterations;
    std::srand(1234);
    const PkTriangulationStatus drivenStatus = driven.delaunayTriangulation(points);

    RyTriangulationImpl replay;
    replay.cdtTolerance = tolerance;
    replay.band = tolerance;
    replay.maxIterations = maxIterations;
    for (const PkGePoint3d& p : points) replay.vertices.emplace_back(p);
    std::vector<int> order(points.size());
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = int(i);
    shuffleIndices(order);
    spatialSort(order, replay.vertices);
    std::srand(1234);
    PkTriangulationStatus replayStatus = StatusLocateFailed;
    if (replay.createFirstTriangle(order)) {
        replayStatus = StatusOk;
        for (std::size_t i = 3; i < order.size() && replayStatus == StatusOk; ++i) {
            replayStatus = replay.insertVertexFromPrevious(order[i], order[i - 1]);
        }
    }

    EXPECT_EQ(drivenStatus, replayStatus) << name;
    ASSERT_EQ(driven.triangles.size(), replay.triangles.size()) << name;
    for (std::size_t t = 0; t < driven.triangles.size(); ++t) {
        const PkMeshTriangle& a = driven.triangles[t];
        const PkMeshTriangle& b = replay.triangles[t];
        for (int k = 0; k < 3; ++k) {
            ASSERT_EQ(triVerts(a)[k], triVerts(b)[k]) << name << " triangle " << t;
            ASSERT_EQ(triNbrs(a)[k], triNbrs(b)[k]) << name << " triangle " << t;
        }
        ASSERT_EQ(PkMeshFields::flags(a), PkMeshFields::flags(b)) << name << " triangle " << t;
    }
    for (std::size_t v = 0; v < points.size(); ++v) {
        ASSERT_EQ(vertexTriangle(driven.vertices[v]), vertexTriangle(replay.vertices[v]))
            << name << " vertex " << v;
    }
}

TEST(InsertionOrder, SortedDriverMatchesInsertionByVertexIndex) {
    struct Case {
        const char* name;
        Points points;
        double tolerance;
        int maxIterations;
    };
    Points withRepeat = rytest::uniformPoints(3000, 41);
    withRepeat.push_back(withRepeat[1700]);  // stops the run with a coincident vertex
    const Case cases[] = {
        {"uniform", rytest::uniformPoints(20000, 42), 1e-9, 1000000},
        {"clusters", rytest::gaussianClusters(20000, 20, 43), 1e-9, 1000000},
        {"grid with band", rytest::integerGrid(120, 120), 1e-9, 1000000},
        {"grid without band", rytest::integerGrid(90, 110), 0.0, 1000000},
        {"circle", rytest::circlePoints(2000, 1.0, 44), 1e-9, 1000000},
        {"line with few off", rytest::lineWithFewOff(500, 7, 45), 1e-9, 1000000},
        {"repeated point", withRepeat, 1e-9, 1000000},
        {"flip limit", rytest::uniformPoints(5000, 46), 1e-9, 40},
        {"three points", rytest::uniformPoints(3, 47), 1e-9, 1000000},
    };
    // Tiny inputs: the first triangle's corners often start among the first three sorted entries,
    // which the driver's swaps must handle like the ones found further on.
    std::vector<Case> all(std::begin(cases), std::end(cases));
    for (int k = 0; k < 120; ++k) {
        all.push_back(
            {"tiny", rytest::uniformPoints(4 + k % 6, 100 + std::uint64_t(k)), 1e-9, 1000000});
    }
    // Large inputs sort on a helper thread while the insertions follow; force both ways here.
    for (std::size_t threshold : {kNeverHelp, std::size_t(0)}) {
        const HelperThreshold scope(threshold);
        for (const Case& c : all) {
            expectSortedDriverMatchesRecordInsertion(
                c.points,
                c.tolerance,
                c.maxIterations,
                std::string(c.name) + (threshold ? "" : " helped"));
        }
    }
}

// --- the helper thread -----------------------------------------------------------------------

void expectSameLocator(const VertexKdTree& a, const VertexKdTree& b, const std::string& name) {
    EXPECT_EQ(a.root, b.root) << name;
    EXPECT_EQ(a.rootAxis, b.rootAxis) << name;
    EXPECT_EQ(a.pointCount, b.pointCount) << name;
    EXPECT_EQ(a.boxFitted, b.boxFitted) << name;
    for (int k = 0; k < 2; ++k) {
        EXPECT_EQ(a.boxMin[k], b.boxMin[k]) << name;
        EXPECT_EQ(a.boxMax[k], b.boxMax[k]) << name;
    }
    ASSERT_EQ(a.nodes.size(), b.nodes.size()) << name;
    for (std::size_t i = 0; i < a.nodes.size(); ++i) {
        const KdNode& x = a.nodes[i];
        const KdNode& y = b.nodes[i];
        ASSERT_EQ(x.child0, y.child0) << name << " node " << i;
        ASSERT_EQ(x.child1, y.child1) << name << " node " << i;
        ASSERT_EQ(x.bucket, y.bucket) << name << " node " << i;
        ASSERT_EQ(x.coords, y.coords) << name << " node " << i;
        for (int k = 0; k < 4; ++k) ASSERT_EQ(x.extent[k], y.extent[k]) << name << " node " << i;
    }
}

/// Everything a triangulation leaves behind, compared slot by slot: the triangles with their
/// links and flags, every vertex record, the constraint records and the locator.
void expectSameRecord(const RyTriangulationImpl& a,
                      const RyTriangulationImpl& b,
                      const std::string& name) {
    ASSERT_EQ(a.triangles.size(), b.triangles.size()) << name;
    for (std::size_t t = 0; t < a.triangles.size(); ++t) {
        for (int k = 0; k < 3; ++k) {
            ASSERT_EQ(triVerts(a.triangles[t])[k], triVerts(b.triangles[t])[k])
                << name << " triangle " << t;
            ASSERT_EQ(triNbrs(a.triangles[t])[k], triNbrs(b.triangles[t])[k])
                << name << " triangle " << t;
        }
        ASSERT_EQ(PkMeshFields::flags(a.triangles[t]), PkMeshFields::flags(b.triangles[t]))
            << name << " triangle " << t;
    }
    ASSERT_EQ(a.vertices.size(), b.vertices.size()) << name;
    for (std::size_t v = 0; v < a.vertices.size(); ++v) {
        ASSERT_EQ(vertexTriangle(a.vertices[v]), vertexTriangle(b.vertices[v])) << name << " " << v;
        ASSERT_EQ(vertexXY(a.vertices[v])[0], vertexXY(b.vertices[v])[0]) << name << " " << v;
        ASSERT_EQ(vertexXY(a.vertices[v])[1], vertexXY(b.vertices[v])[1]) << name << " " << v;
    }
    EXPECT_EQ(a.freeTriangles, b.freeTriangles) << name;
    EXPECT_EQ(a.constraintEdges, b.constraintEdges) << name;
    EXPECT_EQ(a.constraintRepeats, b.constraintRepeats) << name;
    expectSameLocator(a.locator, b.locator, name);
}

struct HelperRun {
    RyTriangulationImpl record;
    PkTriangulationStatus status = StatusOk;
    int nextRand = 0;  ///< the C runtime's next rand value after the call
};

HelperRun runWithThreshold(std::size_t threshold,
                           const Points& points,
                           const std::vector<PkMeshEdge>* edges,
                           double tolerance,
                           int maxIterations,
                           bool sorted = false) {
    const HelperThreshold scope(threshold);
    HelperRun run;
    run.record.options = (edges ? RyTriangulationImpl::bSplitCrossingConstraints : 0) |
                         (sorted ? RyTriangulationImpl::bSpatialSort : 0);
    run.record.cdtTolerance = tolerance;
    run.record.maxIterations = maxIterations;
    std::srand(777);
    run.status = edges ? run.record.delaunayTriangulationWithConstraints(points, *edges)
                       : run.record.delaunayTriangulation(points);
    run.nextRand = std::rand();
    return run;
}

// The shuffled mode's nearest-vertex queries, and the sorted mode's sort, run ahead on a helper
// thread when it is on. Nothing observable may depend on that: the same record, status and rand
// sequence as without it, also when the run stops early (the locator then catches up) and on
// inputs full of equidistant vertices (ties in the queries, equal keys in the sort).
TEST(HelperThread, InsertionIsTheSameWithAndWithoutIt) {
    struct Case {
        const char* name;
        Points points;
        double tolerance;
        int maxIterations;
    };
    Points withRepeat = rytest::uniformPoints(6000, 51);
    withRepeat.push_back(withRepeat[2500]);  // stops the run with a coincident vertex
    Points lateRepeat = rytest::uniformPoints(4000, 52);
    lateRepeat.insert(lateRepeat.begin(), lateRepeat[3999]);  // stops it somewhere else
    const Case cases[] = {
        {"uniform", rytest::uniformPoints(30000, 53), 1e-9, 1000000},
        {"clusters", rytest::gaussianClusters(20000, 20, 54), 1e-9, 1000000},
        {"grid with band", rytest::integerGrid(130, 120), 1e-9, 1000000},
        {"grid without band", rytest::integerGrid(90, 110), 0.0, 1000000},
        {"circle", rytest::circlePoints(3000, 1.0, 55), 1e-9, 1000000},
        {"line with few off", rytest::lineWithFewOff(800, 7, 56), 1e-9, 1000000},
        {"spiral", rytest::spiralOutward(3000), 1e-9, 1000000},
        {"repeated point", withRepeat, 1e-9, 1000000},
        {"repeated point first", lateRepeat, 1e-9, 1000000},
        {"flip limit", rytest::uniformPoints(5000, 57), 1e-9, 30},
        {"four points", rytest::uniformPoints(4, 58), 1e-9, 1000000},
        {"three points", rytest::uniformPoints(3, 59), 1e-9, 1000000},
    };
    for (bool sorted : {false, true}) {
        for (const Case& c : cases) {
            const std::string name = std::string(c.name) + " " + modeName(sorted);
            const HelperRun alone = runWithThreshold(
                kNeverHelp, c.points, nullptr, c.tolerance, c.maxIterations, sorted);
            const HelperRun helped =
                runWithThreshold(0, c.points, nullptr, c.tolerance, c.maxIterations, sorted);
            EXPECT_EQ(alone.status, helped.status) << name;
            EXPECT_EQ(alone.nextRand, helped.nextRand) << name;
            expectSameRecord(alone.record, helped.record, name);
            if (!sorted && c.points.size() > 1000 && alone.status == StatusOk) {
                EXPECT_EQ(alone.record.locator.pointCount, int(c.points.size())) << name;
            }
        }
    }
}

/// Counts every populated chunk as slow while alive, so that the helper switches the rest of
/// each room to small pages after its first chunk.
class EveryChunkSlow {
public:
    EveryChunkSlow() : saved(slowPopulateChunkTime()) {
        setSlowPopulateChunkTime(std::chrono::nanoseconds(0));
    }
    ~EveryChunkSlow() { setSlowPopulateChunkTime(saved); }

private:
    std::chrono::nanoseconds saved;
};

// When populating huge pages turns out slow, the helper withdraws the advice for the rest of the
// rooms it populates. Page sizes are invisible to the results: the same record, status and rand
// sequence as alone. The switch must also really happen: the back of the triangle room (the
// mesh's own array) then carries the kernel's no-huge-page flag, where the kernel shows flags.
TEST(HelperThread, InsertionIsTheSameWhenPagesTurnSmall) {
    const Points points = rytest::uniformPoints(300000, 61);
    const HelperRun alone = runWithThreshold(kNeverHelp, points, nullptr, 1e-9, 1000000);
    HelperRun helped;  // run in place: a copy of the record would have fresh memory
    {
        const EveryChunkSlow slow;
        const HelperThreshold scope(0);
        helped.record.cdtTolerance = 1e-9;
        helped.record.maxIterations = 1000000;
        std::srand(777);
        helped.status = helped.record.delaunayTriangulation(points);
        helped.nextRand = std::rand();
    }
    EXPECT_EQ(alone.status, helped.status);
    EXPECT_EQ(alone.nextRand, helped.nextRand);
    expectSameRecord(alone.record, helped.record, "small pages");
    const std::vector<PkMeshTriangle>& triangles = helped.record.triangles;
    ASSERT_GT(triangles.size() * sizeof(PkMeshTriangle), 3 * kHugePageBytes);
    // The first whole 2 MB page of the array lies inside the room's first chunk, which keeps
    // the advice.
    const std::uintptr_t first =
        (reinterpret_cast<std::uintptr_t>(triangles.data()) + kHugePageBytes - 1) &
        ~std::uintptr_t(kHugePageBytes - 1);
    const std::string head = rytest::mappingFlags(reinterpret_cast<const void*>(first));
    const std::string back = rytest::mappingFlags(&triangles[triangles.size() * 3 / 4]);
    if (head.find(" hg ") != std::string::npos) {
        EXPECT_NE(back.find(" nh "), std::string::npos) << back;
    }
}

TEST(HelperThread, ConstrainedTriangulationIsTheSameWithAndWithoutIt) {
    // Crossing chords of a point cloud, split where they cross: the constraint code works on the
    // mesh the helped insertion built.
    const Points points = rytest::uniformPoints(8000, 60);
    std::vector<PkMeshEdge> edges;
    rytest::Rng rng(61);
    for (int i = 0; i < 60; ++i) {
        edges.emplace_back(int(rng.below(points.size())), int(rng.below(points.size())));
    }
    for (bool sorted : {false, true}) {
        const HelperRun alone = runWithThreshold(kNeverHelp, points, &edges, 1e-9, 1000000, sorted);
        const HelperRun helped = runWithThreshold(0, points, &edges, 1e-9, 1000000, sorted);
        ASSERT_EQ(alone.status, StatusOk);
        EXPECT_EQ(helped.status, StatusOk);
        EXPECT_EQ(alone.nextRand, helped.nextRand);
        EXPECT_GT(alone.record.vertices.size(), points.size());  // the chords did cross
        expectSameRecord(alone.record, helped.record, modeName(sorted));
        RY_EXPECT_VALID_MESH(helped.record, MeshValidatorOptions{});
    }
}

// --- the first mesh --------------------------------------------------------------------------

void expectTriangle(const PkMeshTriangle& t, Triple v, Triple n, bool aux) {
    EXPECT_EQ((Triple{triVerts(t)[0], triVerts(t)[1], triVerts(t)[2]}), v);
    EXPECT_EQ((Triple{triNbrs(t)[0], triNbrs(t)[1], triNbrs(t)[2]}), n);
    EXPECT_EQ(PkMeshFields::flags(t), aux ? 1u : 0u);
}

TEST(FirstMesh, ThreePointsCounterClockwise) {
    RyTriangulation tri(false, true);
    ASSERT_EQ(tri.delaunayTriangulation({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}), StatusOk);
    const RyTriangulationImpl& mesh = recordOf(tri);
    ASSERT_EQ(mesh.triangles.size(), 4u);
    expectTriangle(mesh.triangles[0], {1, 2, 0}, {1, 2, 3}, false);
    expectTriangle(mesh.triangles[1], {2, 1, GhostVertex}, {0, 3, 2}, true);
    expectTriangle(mesh.triangles[2], {0, 2, GhostVertex}, {0, 1, 3}, true);
    expectTriangle(mesh.triangles[3], {1, 0, GhostVertex}, {0, 2, 1}, true);
    EXPECT_EQ(vertexTriangle(mesh.vertices[0]), 2);
    EXPECT_EQ(vertexTriangle(mesh.vertices[1]), 0);
    EXPECT_EQ(vertexTriangle(mesh.vertices[2]), 1);
    RY_EXPECT_VALID_MESH(mesh, MeshValidatorOptions{});
}

TEST(FirstMesh, ThreePointsClockwiseAreSwapped) {
    // Shuffled order (1, 2, 0) turns clockwise here, so the triangle is (2, 1, 0).
    RyTriangulation tri(false, true);
    ASSERT_EQ(tri.delaunayTriangulation({{0, 0, 0}, {0, 1, 0}, {1, 0, 0}}), StatusOk);
    const RyTriangulationImpl& mesh = recordOf(tri);
    ASSERT_EQ(mesh.triangles.size(), 4u);
    expectTriangle(mesh.triangles[0], {2, 1, 0}, {1, 2, 3}, false);
    EXPECT_EQ(vertexTriangle(mesh.vertices[2]), 0);
    EXPECT_EQ(vertexTriangle(mesh.vertices[1]), 1);
    EXPECT_EQ(vertexTriangle(mesh.vertices[0]), 2);
    RY_EXPECT_VALID_MESH(mesh, MeshValidatorOptions{});
}

// --- point location --------------------------------------------------------------------------

/// A square with one interior point: the Delaunay mesh is the fan around vertex 4.
struct LocateMesh {
    RyTriangulationImpl mesh;
    explicit LocateMesh(const Points& points) {
        std::srand(1);
        EXPECT_EQ(mesh.delaunayTriangulation(points), StatusOk);
        RY_EXPECT_VALID_MESH(mesh, MeshValidatorOptions{});
    }
    LocateMesh() : LocateMesh({{0, 0, 0}, {10, 0, 0}, {10, 10, 0}, {0, 10, 0}, {5, 4, 0}}) {}
    const double* at(int v) const { return vertexXY(mesh.vertices[std::size_t(v)]); }
    const PkMeshTriangle& tri(int t) const { return mesh.triangles[std::size_t(t)]; }
};

TEST(PointLocation, PointInsideATriangle) {
    LocateMesh m;
    const double q[2] = {5, 1};
    for (int start = 0; start < 5; ++start) {
        for (unsigned seed = 1; seed <= 20; ++seed) {
            std::srand(seed);
            PointSide sides[3];
            const int t = m.mesh.locatePoint(start, q, sides);
            ASSERT_GE(t, 0) << "start " << start << " seed " << seed;
            ASSERT_FALSE(isGhost(m.tri(t)));
            EXPECT_EQ(combineSides(sides), kInTriangle);
            const int* v = triVerts(m.tri(t));
            for (int k = 0; k < 3; ++k) {
                EXPECT_EQ(sides[k], kLeft);
                EXPECT_GT(orient2d(m.at(v[k]), m.at(v[nextLocalIndex(k)]), q), 0.0);
            }
        }
    }
}

TEST(PointLocation, PointOnAnEdge) {
    LocateMesh m;
    const double inner[2] = {2.5, 2};  // on the edge (0, 4)
    const double hull[2] = {5, 0};     // on the hull edge (0, 1)
    const std::pair<const double*, std::pair<int, int>> queries[] = {{inner, {0, 4}},
                                                                     {hull, {0, 1}}};
    for (const auto& [q, edge] : queries) {
        for (unsigned seed = 1; seed <= 20; ++seed) {
            std::srand(seed);
            PointSide sides[3];
            const int t = m.mesh.locatePoint(2, q, sides);
            ASSERT_GE(t, 0);
            ASSERT_FALSE(isGhost(m.tri(t)));
            const PointLocation location = combineSides(sides);
            ASSERT_TRUE(location == kOnEdge0 || location == kOnEdge1 || location == kOnEdge2);
            const int k = int(location) - int(kOnEdge0);
            const int* v = triVerts(m.tri(t));
            EXPECT_EQ(PkMeshEdge(v[k], v[nextLocalIndex(k)]), PkMeshEdge(edge.first, edge.second));
            EXPECT_EQ(sides[nextLocalIndex(k)], kLeft);
            EXPECT_EQ(sides[prevLocalIndex(k)], kLeft);
        }
    }
}

TEST(PointLocation, PointOnAVertex) {
    LocateMesh m;
    for (const int target : {4, 2, 0}) {
        for (unsigned seed = 1; seed <= 20; ++seed) {
            std::srand(seed);
            PointSide sides[3];
            const int t = m.mesh.locatePoint(target == 4 ? 1 : 4, m.at(target), sides);
            ASSERT_GE(t, 0);
            EXPECT_EQ(combineSides(sides), kOnVertex) << "vertex " << target;
            EXPECT_TRUE(hasCorner(m.mesh.triangles[std::size_t(t)], target));
        }
    }
}

TEST(PointLocation, PointOutsideTheHullEndsInAGhostTriangle) {
    LocateMesh m;
    const double queries[][2] = {{5, -3}, {-3, -3}, {13, 5}, {5, 40}, {-1e6, 2}};
    for (const auto& q : queries) {
        for (int start = 0; start < 5; ++start) {
            std::srand(unsigned(start) + 7);
            PointSide sides[3];
            const int t = m.mesh.locatePoint(start, q, sides);
            ASSERT_GE(t, 0);
            ASSERT_TRUE(hasCorner(m.tri(t), GhostVertex));
            EXPECT_EQ(combineSides(sides), kInGhostTriangle);
            const int* v = triVerts(m.tri(t));
            int k = 0;
            while (v[k] != GhostVertex) ++k;
            // The real edge (x, y) of the ghost triangle: the point lies beyond it.
            const int x = v[nextLocalIndex(k)], y = v[prevLocalIndex(k)];
            EXPECT_GT(orient2d(m.at(x), m.at(y), q), 0.0) << q[0] << ", " << q[1];
            EXPECT_EQ(sides[nextLocalIndex(k)], kLeft);
            EXPECT_EQ(sides[k], kGhostSide);
            EXPECT_EQ(sides[prevLocalIndex(k)], kGhostSide);
        }
    }
}

TEST(PointLocation, StartVertexRecordingAGhostTriangle) {
    LocateMesh m;
    int ghost = -1;
    for (int t = 0; t < int(m.mesh.triangles.size()); ++t) {
        if (hasCorner(m.tri(t), GhostVertex) && hasCorner(m.tri(t), 0)) ghost = t;
    }
    ASSERT_GE(ghost, 0);
    vertexTriangle(m.mesh.vertices[0]) = ghost;
    const double inside[2] = {9, 5}, outside[2] = {20, 5};
    for (unsigned seed = 1; seed <= 20; ++seed) {
        std::srand(seed);
        PointSide sides[3];
        int t = m.mesh.locatePoint(0, inside, sides);
        ASSERT_GE(t, 0);
        EXPECT_EQ(combineSides(sides), kInTriangle);
        EXPECT_TRUE(hasCorner(m.tri(t), 1) && hasCorner(m.tri(t), 2) && hasCorner(m.tri(t), 4));
        t = m.mesh.locatePoint(0, outside, sides);
        ASSERT_GE(t, 0);
        EXPECT_EQ(combineSides(sides), kInGhostTriangle);
        EXPECT_TRUE(hasCorner(m.tri(t), 1) && hasCorner(m.tri(t), 2));
    }
}

TEST(PointLocation, FailuresReturnMinusOne) {
    LocateMesh m;
    const double q[2] = {5, 1};
    PointSide sides[3];
    vertexTriangle(m.mesh.vertices[3]) = -1;
    EXPECT_EQ(m.mesh.locatePoint(3, q, sides), -1);
    vertexTriangle(m.mesh.vertices[3]) = int(m.mesh.triangles.size());
    EXPECT_EQ(m.mesh.locatePoint(3, q, sides), -1);
}

TEST(PointLocation, StepLimit) {
    // One real triangle: a point beyond only its edge (0, 1) leaves it at the first step, so the
    // walk ends in that ghost triangle even with no steps allowed; a point inside needs a step.
    LocateMesh m({{0, 0, 0}, {10, 0, 0}, {0, 10, 0}});
    const double beyond[2] = {3, -1}, inside[2] = {2, 2};
    for (unsigned seed = 1; seed <= 30; ++seed) {
        std::srand(seed);
        PointSide sides[3];
        m.mesh.maxIterations = 0;
        const int t = m.mesh.locatePoint(seed % 3, beyond, sides);
        ASSERT_GE(t, 0);
        EXPECT_TRUE(hasCorner(m.tri(t), GhostVertex) && hasCorner(m.tri(t), 0) &&
                    hasCorner(m.tri(t), 1));
        EXPECT_EQ(m.mesh.locatePoint(seed % 3, inside, sides), -1);
        m.mesh.maxIterations = 1;
        EXPECT_EQ(m.mesh.locatePoint(seed % 3, inside, sides), 0);
    }
}

// --- getters, copies, reuse ------------------------------------------------------------------

TEST(DelaunayObject, GettersAfterTriangulation) {
    const Points points = rytest::uniformPoints(500, 21);
    for (const bool sorted : {true, false}) {
        RyTriangulation tri(sorted, true);
        ASSERT_EQ(tri.delaunayTriangulation(points), StatusOk);
        EXPECT_TRUE(tri.getMeshTriangles().empty());

        const std::vector<PkMeshPoint3d> vertices = tri.getMeshVertices();
        const RyTriangulationImpl& mesh = recordOf(tri);
        ASSERT_EQ(vertices.size(), points.size());
        for (std::size_t i = 0; i < vertices.size(); ++i) {
            EXPECT_EQ(vertices[i].getPoint().x, points[i].x);
            const int t = vertices[i].getTriangleIndex();
            ASSERT_GE(t, 0);
            ASSERT_LT(t, int(mesh.triangles.size()));
            EXPECT_TRUE(hasCorner(mesh.triangles[std::size_t(t)], int(i)));
        }

        tri.deleteGhostTriangle();
        const std::vector<PkMeshTriangle> once = tri.getMeshTriangles();
        std::vector<const PkMeshTriangle*> real;
        for (const PkMeshTriangle& t : mesh.triangles) {
            if (!hasCorner(t, GhostVertex)) real.push_back(&t);
        }
        ASSERT_EQ(once.size(), real.size());
        for (std::size_t i = 0; i < real.size(); ++i) {
            expectTriangle(once[i],
                           {triVerts(*real[i])[0], triVerts(*real[i])[1], triVerts(*real[i])[2]},
                           {triNbrs(*real[i])[0], triNbrs(*real[i])[1], triNbrs(*real[i])[2]},
                           false);
        }
        tri.deleteGhostTriangle();
        const std::vector<PkMeshTriangle> twice = tri.getMeshTriangles();
        ASSERT_EQ(twice.size(), 2 * once.size());
        for (std::size_t i = 0; i < once.size(); ++i) {
            EXPECT_EQ(triVerts(twice[once.size() + i])[0], triVerts(once[i])[0]);
            EXPECT_EQ(triNbrs(twice[once.size() + i])[2], triNbrs(once[i])[2]);
        }
    }
}

TEST(DelaunayObject, CopiesAreIndependent) {
    RyTriangulation source(true, true);
    ASSERT_EQ(source.delaunayTriangulation(rytest::gaussianClusters(800, 4, 2)), StatusOk);
    RyTriangulation copy(source);
    RyTriangulation assigned(false, false);
    assigned = source;
    copy.deleteGhostTriangle();
    assigned.deleteGhostTriangle();
    EXPECT_TRUE(source.getMeshTriangles().empty());
    EXPECT_FALSE(copy.getMeshTriangles().empty());
    EXPECT_EQ(copy.getMeshTriangles().size(), assigned.getMeshTriangles().size());
    EXPECT_TRUE(realTriangles(recordOf(copy)) == realTriangles(recordOf(source)));
    RY_EXPECT_VALID_MESH(recordOf(copy), MeshValidatorOptions{});
    RY_EXPECT_VALID_MESH(recordOf(source), MeshValidatorOptions{});
}

TEST(DelaunayObject, SecondTriangulationStartsClean) {
    const Points first = rytest::uniformPoints(300, 31);
    const Points second = rytest::gaussianClusters(400, 3, 32);
    for (const bool sorted : {true, false}) {
        SCOPED_TRACE(modeName(sorted));
        RyTriangulation fresh(sorted, true), used(sorted, true);
        fresh.setCDTTolerence(0.0);
        used.setCDTTolerence(0.0);
        ASSERT_EQ(used.delaunayTriangulation(first), StatusOk);
        used.deleteGhostTriangle();
        std::srand(77);
        ASSERT_EQ(fresh.delaunayTriangulation(second), StatusOk);
        std::srand(77);
        ASSERT_EQ(used.delaunayTriangulation(second), StatusOk);

        const RyTriangulationImpl& a = recordOf(fresh);
        const RyTriangulationImpl& b = recordOf(used);
        EXPECT_EQ(b.cdtTolerance, 0.0);
        EXPECT_TRUE(b.meshTriangles.empty());
        ASSERT_EQ(a.triangles.size(), b.triangles.size());
        for (std::size_t t = 0; t < a.triangles.size(); ++t) {
            for (int k = 0; k < 3; ++k) {
                ASSERT_EQ(triVerts(a.triangles[t])[k], triVerts(b.triangles[t])[k]) << t;
                ASSERT_EQ(triNbrs(a.triangles[t])[k], triNbrs(b.triangles[t])[k]) << t;
            }
        }
        ASSERT_EQ(a.vertices.size(), b.vertices.size());
        for (std::size_t i = 0; i < a.vertices.size(); ++i) {
            EXPECT_EQ(vertexTriangle(a.vertices[i]), vertexTriangle(b.vertices[i]));
        }
        RY_EXPECT_VALID_MESH(b, MeshValidatorOptions{});
    }
}

}  // namespace

namespace {

/// A finished mesh seen the way the insertion scouts see one during a shuffled run: corner
/// positions per slot (zeros for the ghost vertex) and the vertices' triangle indices.
struct ScoutedMesh {
    RyTriangulation tri{true, true};
    std::vector<double> corners;
    std::vector<int> triangleOf;
    std::unique_ptr<CornerVertexView> view;

    explicit ScoutedMesh(const Points& points) {
        tri.setCDTTolerence(0.0);
        EXPECT_EQ(tri.delaunayTriangulation(points), StatusOk);
        RyTriangulationImpl& m = *RyTriangulationAccess::impl(tri);
        corners.assign(6 * m.triangles.size(), 0.0);
        for (std::size_t t = 0; t < m.triangles.size(); ++t) {
            for (int k = 0; k < 3; ++k) {
                const int v = triVerts(m.triangles[t])[k];
                if (v < 0) continue;
                corners[6 * t + 2 * std::size_t(k)] = vertexXY(m.vertices[std::size_t(v)])[0];
                corners[6 * t + 2 * std::size_t(k) + 1] = vertexXY(m.vertices[std::size_t(v)])[1];
            }
        }
        for (const PkMeshPoint3d& v : m.vertices) triangleOf.push_back(vertexTriangle(v));
        view.reset(new CornerVertexView{{m.vertices}, corners.data(), triangleOf.data()});
    }
    RyTriangulationImpl& impl() { return *RyTriangulationAccess::impl(tri); }
    ScoutMesh scoutMesh(std::vector<int>* fetched = nullptr) {
        return ScoutMesh{
            impl().triangles.data(), unsigned(impl().triangles.size()), view.get(), fetched};
    }
    const double* corner(int t, int k) const { return &corners[6 * std::size_t(t) + 2 * k]; }
    bool isReal(int t) {
        const int* v = triVerts(impl().triangles[std::size_t(t)]);
        return v[0] >= 0 && v[1] >= 0 && v[2] >= 0;
    }
    /// A point strictly inside real triangle t (barycentric weights of at least 0.1).
    std::array<double, 2> pointIn(int t, std::mt19937& rng) const {
        std::uniform_real_distribution<double> u(0.1, 0.8);
        const double a = u(rng), b = u(rng) * (0.9 - a);
        const double c = 1.0 - a - b;
        return {a * corner(t, 0)[0] + b * corner(t, 1)[0] + c * corner(t, 2)[0],
                a * corner(t, 0)[1] + b * corner(t, 1)[1] + c * corner(t, 2)[1]};
    }
};

}  // namespace

// The scouts only fetch memory for the insertions ahead, so a wrong turn costs speed and no
// comparison of results would see it. Their geometry is checked here on finished meshes.
TEST(InsertionScouts, WalkFromAnyTriangleEndsInTheOneHoldingThePoint) {
    ScoutedMesh mesh(rytest::uniformPoints(3000, 61, 0.0, 1000.0));
    const ScoutMesh scoutMesh = mesh.scoutMesh();
    const int count = int(mesh.impl().triangles.size());
    std::mt19937 rng(62);
    std::uniform_int_distribution<int> slot(0, count - 1);
    int walks = 0;
    while (walks < 2000) {
        const int target = slot(rng), start = slot(rng);
        if (!mesh.isReal(target) || !mesh.isReal(start)) continue;
        ++walks;
        const std::array<double, 2> p = mesh.pointIn(target, rng);
        Scout scout(1 << 20);
        scout.start(scoutMesh, start);
        int steps = 0;
        while (scout.active() && scout.found() < 0) {
            scout.advance(scoutMesh, p.data());
            ++steps;
        }
        ASSERT_EQ(scout.found(), target) << "from " << start << " after " << steps << " steps";
    }
}

// From the triangle holding p, the scout must fetch every neighbour of every triangle whose
// circumcircle holds p (the triangles the flips replace, and those they read beside them), up to
// the rings it grows. Exact incircle decides the region; a sample where plain arithmetic
// disagrees with it on a triangle met is skipped, and those must be rare.
TEST(InsertionScouts, GrowthFetchesTheRingAroundTheConflictRegion) {
    ScoutedMesh mesh(rytest::uniformPoints(3000, 63, 0.0, 1000.0));
    std::vector<int> fetched;
    const ScoutMesh scoutMesh = mesh.scoutMesh(&fetched);
    const int count = int(mesh.impl().triangles.size());
    std::mt19937 rng(64);
    std::uniform_int_distribution<int> slot(0, count - 1);
    int samples = 0, skipped = 0, grown = 0;
    while (samples < 3000) {
        const int t = slot(rng);
        if (!mesh.isReal(t)) continue;
        ++samples;
        const std::array<double, 2> p = mesh.pointIn(t, rng);
        fetched.clear();
        Scout scout;
        scout.start(scoutMesh, t);
        while (scout.active()) scout.advance(scoutMesh, p.data());
        ASSERT_EQ(scout.found(), t);
        // Breadth-first over the exact conflict region, rings counted from t's neighbours.
        std::vector<std::pair<int, int>> ring = {{t, -1}};
        std::set<int> expected;
        bool disagree = false;
        for (int depth = 0; depth <= Scout::kMaxRings && !ring.empty(); ++depth) {
            std::vector<std::pair<int, int>> next;
            for (const auto& [m, from] : ring) {
                if (depth > 0) {
                    if (!mesh.isReal(m)) continue;
                    const bool exact =
                        incircle(
                            mesh.corner(m, 0), mesh.corner(m, 1), mesh.corner(m, 2), p.data()) > 0;
                    disagree |= exact != Scout::insideCircle(scoutMesh, m, p.data());
                    if (!exact) continue;
                    grown += 1;
                }
                for (int k = 0; k < 3; ++k) {
                    const int w = triNbrs(mesh.impl().triangles[std::size_t(m)])[k];
                    if (w == from || w < 0) continue;
                    expected.insert(w);
                    next.emplace_back(w, m);
                }
            }
            ring = std::move(next);
        }
        if (disagree) {
            ++skipped;
            continue;
        }
        const std::set<int> got(fetched.begin(), fetched.end());
        for (int w : expected) ASSERT_TRUE(got.count(w)) << "sample " << samples << " slot " << w;
    }
    EXPECT_LT(skipped, samples / 100);
    EXPECT_GT(grown, samples);  // the region usually reaches beyond t
}
