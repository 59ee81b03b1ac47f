// The zero-copy accessors against the copying getters: the same elements, byte for byte, before
// and after each finishing call, on plain and on constrained input (with crossing vertices); the
// list handed over; and what a returned reference shows until the next non-const call on its own
// object.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <vector>

#include "RyTriangulation.h"
#include "support/RingGenerator.h"
#include "support/TestSupport.h"

namespace {

template <class T>
bool sameBytes(const std::vector<T>& a, const std::vector<T>& b) {
    static_assert(std::is_trivially_copyable<T>::value, "compared as plain memory");
    return a.size() == b.size() &&
           (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

void expectAccessorsMatchGetters(RyTriangulation& t) {
    EXPECT_TRUE(sameBytes(t.meshTriangles(), t.getMeshTriangles()));
    EXPECT_TRUE(sameBytes(t.meshVertices(), t.getMeshVertices()));
}

TEST(Accessors, ReturnWhatTheGettersReturnAfterEachCall) {
    const rytest::RingInput rings = rytest::generateRings(3);
    const std::vector<PkGePoint3d> plain = rytest::uniformPoints(3000, 11);
    for (bool constrained : {false, true}) {
        SCOPED_TRACE(constrained ? "constrained" : "plain");
        std::srand(1);
        RyTriangulation t(true, true);
        expectAccessorsMatchGetters(t);
        t.setCDTTolerence(0.0);
        const PkTriangulationStatus status =
            constrained ? t.delaunayTriangulationWithConstraints(rings.points, rings.edges)
                        : t.delaunayTriangulation(plain);
        ASSERT_EQ(status, StatusOk);
        const std::size_t inputs = constrained ? rings.points.size() : plain.size();
        EXPECT_EQ(t.meshVertices().size() > inputs, constrained);  // crossing vertices
        EXPECT_TRUE(t.meshTriangles().empty());
        expectAccessorsMatchGetters(t);
        // The finishing calls append: each one's result must show, in full.
        std::size_t before = 0, first = 0;
        for (int call = 0; call < 2; ++call) {
            if (constrained && call == 0) {
                t.deleteOuterTrianglesAndHoles();
            } else {
                t.deleteGhostTriangle();
            }
            EXPECT_GT(t.meshTriangles().size(), before);
            before = t.meshTriangles().size();
            if (call == 0) first = before;
            expectAccessorsMatchGetters(t);
        }
        // Taking the list hands over all of it and leaves the object as if never finished: the
        // second call alone then gives the list's second part.
        const std::vector<PkMeshTriangle> all = t.getMeshTriangles();
        EXPECT_TRUE(sameBytes(t.takeMeshTriangles(), all));
        EXPECT_TRUE(t.meshTriangles().empty());
        t.deleteGhostTriangle();
        EXPECT_TRUE(sameBytes(t.meshTriangles(),
                              std::vector<PkMeshTriangle>(all.begin() + long(first), all.end())));
    }
}

TEST(Accessors, ReferencesShowTheirOwnObjectUntilItsNextNonConstCall) {
    RyTriangulation source;
    ASSERT_EQ(source.delaunayTriangulation(rytest::uniformPoints(500, 4)), StatusOk);
    source.deleteGhostTriangle();
    const std::vector<PkMeshTriangle> triangles = source.getMeshTriangles();
    const std::vector<PkMeshPoint3d> vertices = source.getMeshVertices();
    const std::vector<PkMeshTriangle>& fromSource = source.meshTriangles();
    const std::vector<PkMeshPoint3d>& verticesFromSource = source.meshVertices();

    // Const use of the source, and any call on a copy of it, leave the references as they were.
    RyTriangulation copy(source);
    const std::vector<PkMeshTriangle>& fromCopy = copy.meshTriangles();
    EXPECT_NE(&fromCopy, &fromSource);
    copy.deleteGhostTriangle();
    EXPECT_EQ(fromCopy.size(), 2 * triangles.size());
    ASSERT_EQ(copy.delaunayTriangulation(rytest::uniformPoints(300, 5)), StatusOk);
    EXPECT_TRUE(sameBytes(fromSource, triangles));
    EXPECT_TRUE(sameBytes(verticesFromSource, vertices));

    // And the copy's references, taken afresh, show the copy's state alone.
    EXPECT_TRUE(copy.meshTriangles().empty());
    EXPECT_EQ(copy.meshVertices().size(), 300u);
    expectAccessorsMatchGetters(copy);
}

}  // namespace
