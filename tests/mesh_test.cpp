// Mesh records, the triangulation handle and its implementation record.
//
// The value types are checked by properties over small index ranges (normalisation, symmetry,
// clamping) rather than case by case. The handle's copies are checked field by field against the
// source and then mutated on both sides to prove they share nothing. Out of memory: this
// executable replaces the global operator new so that a test can make the N-th allocation throw;
// assignment is retried for N = 0, 1, 2, ... until it succeeds, and after every failure the target
// must be exactly as before and no allocation may be left behind.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "PkMeshEdge.h"
#include "PkMeshPoint3d.h"
#include "PkMeshTriangle.h"
#include "RyTriangulation.h"
#include "mesh/HugePages.h"
#include "mesh/LocalIndex.h"
#include "mesh/MeshFields.h"
#include "mesh/RyTriangulationAccess.h"
#include "mesh/RyTriangulationImpl.h"
#include "support/PeakMemory.h"

// ---- allocation hook ----------------------------------------------------------------------------

namespace {

/// Allocations still allowed before operator new throws; negative means no limit.
long gAllocationsLeft = -1;
/// Blocks handed out by operator new and not yet returned.
long gLiveBlocks = 0;

void* hookedAllocate(std::size_t size) {
    if (gAllocationsLeft == 0) throw std::bad_alloc();
    if (gAllocationsLeft > 0) --gAllocationsLeft;
    void* p = std::malloc(size == 0 ? 1 : size);
    if (!p) throw std::bad_alloc();
    ++gLiveBlocks;
    return p;
}

void hookedFree(void* p) {
    if (!p) return;
    --gLiveBlocks;
    std::free(p);
}

/// Arms the hook for one scope: at most `allowed` allocations succeed inside it.
struct AllocationLimit {
    explicit AllocationLimit(long allowed) { gAllocationsLeft = allowed; }
    ~AllocationLimit() { gAllocationsLeft = -1; }
};

}  // namespace

void* operator new(std::size_t size) {
    return hookedAllocate(size);
}
void* operator new[](std::size_t size) {
    return hookedAllocate(size);
}
void operator delete(void* p) noexcept {
    hookedFree(p);
}
void operator delete[](void* p) noexcept {
    hookedFree(p);
}
void operator delete(void* p, std::size_t) noexcept {
    hookedFree(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    hookedFree(p);
}

namespace {

// ---- helpers ------------------------------------------------------------------------------------

int clampPosition(int k) {
    return k < 0 ? 0 : (k > 2 ? 2 : k);
}

PkMeshTriangle makeTriangle(int v0, int v1, int v2, int n0, int n1, int n2) {
    PkMeshTriangle t;
    t.setVertexIndex(v0, v1, v2);
    t.setNeighborIndex(n0, n1, n2);
    return t;
}

bool sameTriangle(const PkMeshTriangle& a, const PkMeshTriangle& b) {
    for (int k = 0; k < 3; ++k) {
        if (a.getVertexIndexAt(k) != b.getVertexIndexAt(k)) return false;
        if (a.getNeighborIndex(k) != b.getNeighborIndex(k)) return false;
    }
    return PkMeshFields::flags(a) == PkMeshFields::flags(b);
}

bool sameBits(double a, double b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

bool sameVertex(const PkMeshPoint3d& a, const PkMeshPoint3d& b) {
    const PkGePoint3d p = a.getPoint();
    const PkGePoint3d q = b.getPoint();
    return PkMeshFields::flags(a) == PkMeshFields::flags(b) &&
           a.getTriangleIndex() == b.getTriangleIndex() && sameBits(p.x, q.x) &&
           sameBits(p.y, q.y) && sameBits(p.z, q.z);
}

template <class T, class Same>
bool sameList(const std::vector<T>& a, const std::vector<T>& b, Same same) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (!same(a[i], b[i])) return false;
    }
    return true;
}

bool sameTree(const VertexKdTree& a, const VertexKdTree& b) {
    if (a.root != b.root || a.rootAxis != b.rootAxis || a.pointCount != b.pointCount ||
        a.boxFitted != b.boxFitted || a.nodes.size() != b.nodes.size() ||
        a.searchStack.size() != b.searchStack.size()) {
        return false;
    }
    for (int k = 0; k < 2; ++k) {
        if (!sameBits(a.boxMin[k], b.boxMin[k]) || !sameBits(a.boxMax[k], b.boxMax[k]))
            return false;
    }
    for (std::size_t i = 0; i < a.nodes.size(); ++i) {
        if (a.nodes[i].child0 != b.nodes[i].child0 || a.nodes[i].child1 != b.nodes[i].child1 ||
            a.nodes[i].bucket != b.nodes[i].bucket) {
            return false;
        }
    }
    return true;
}

/// The first difference between the observable state of two records, or success.
testing::AssertionResult sameRecord(const RyTriangulationImpl& a, const RyTriangulationImpl& b) {
    if (a.options != b.options) return testing::AssertionFailure() << "options differ";
    if (!sameList(a.triangles, b.triangles, sameTriangle)) {
        return testing::AssertionFailure() << "triangles differ";
    }
    if (!sameList(a.vertices, b.vertices, sameVertex)) {
        return testing::AssertionFailure() << "vertices differ";
    }
    if (!sameList(a.meshTriangles, b.meshTriangles, sameTriangle)) {
        return testing::AssertionFailure() << "meshTriangles differ";
    }
    if (!sameTree(a.locator, b.locator)) return testing::AssertionFailure() << "locator differs";
    if (a.freeTriangles != b.freeTriangles) {
        return testing::AssertionFailure() << "freeTriangles differ";
    }
    if (a.constraintEdges != b.constraintEdges) {
        return testing::AssertionFailure() << "constraintEdges differ";
    }
    if (a.constraintRepeats != b.constraintRepeats) {
        return testing::AssertionFailure() << "constraintRepeats differ";
    }
    if (a.constraintOrigins.size() != b.constraintOrigins.size()) {
        return testing::AssertionFailure() << "constraintOrigins sizes differ";
    }
    for (const auto& entry : a.constraintOrigins) {
        const auto other = b.constraintOrigins.find(entry.first);
        if (other == b.constraintOrigins.end() || other->second.size() != entry.second.size()) {
            return testing::AssertionFailure() << "constraintOrigins differ";
        }
        for (std::size_t i = 0; i < entry.second.size(); ++i) {
            const PkMeshEdge& x = entry.second[i];
            const PkMeshEdge& y = other->second[i];
            if (x.EdgeIndex1() != y.EdgeIndex1() || x.EdgeIndex2() != y.EdgeIndex2()) {
                return testing::AssertionFailure() << "constraintOrigins lists differ";
            }
        }
    }
    if (a.constraintEdges.max_load_factor() != b.constraintEdges.max_load_factor() ||
        a.constraintRepeats.max_load_factor() != b.constraintRepeats.max_load_factor() ||
        a.constraintOrigins.max_load_factor() != b.constraintOrigins.max_load_factor()) {
        return testing::AssertionFailure() << "maximum load factors differ";
    }
    if (a.maxIterations != b.maxIterations) {
        return testing::AssertionFailure() << "maxIterations differ";
    }
    if (!sameBits(a.cdtTolerance, b.cdtTolerance)) {
        return testing::AssertionFailure() << "cdtTolerance differs";
    }
    return testing::AssertionSuccess();
}

/// Fills a record directly with `scale`-dependent content in every container.
void populate(RyTriangulationImpl& r, int scale, std::uint64_t seed) {
    std::mt19937_64 rng(seed);
    std::uniform_real_distribution<double> u(-10.0, 10.0);
    PkMeshPoint3d::Type type = PkMeshPoint3d::kExcluded;
    for (int i = 0; i < 40 * scale; ++i) {
        const double x = u(rng);
        const double y = u(rng);
        if (i % 7 == 3) {
            r.vertices.emplace_back(PkGePoint3d(x, y, double(i)), type);
        } else {
            r.vertices.emplace_back(PkGePoint3d(x, y, double(i)));
        }
        r.vertices.back().setTriangleIndex(i % 13);
        r.locator.insertVertex(i, r.vertices);
    }
    for (int i = 0; i < 70 * scale; ++i) {
        PkMeshTriangle t =
            makeTriangle(i, i + 1, i % 5 == 0 ? GhostVertex : i + 2, i - 1, i + 3, -1);
        t.setFlagbAux(i % 5 == 0);
        r.appendTriangle(t);
        if (i % 9 == 0) r.meshTriangles.push_back(t);
    }
    for (int i = 0; i < 5 * scale; ++i) r.freeTriangles.push_back(3 * i + 1);
    for (int i = 0; i < 12 * scale; ++i) {
        const PkMeshEdge e(i, i + 5);
        r.constraintEdges.insert(e);
        if (i % 2 == 0) r.constraintRepeats[e] = i + 1;
        if (i % 3 == 0) r.constraintOrigins[e] = {PkMeshEdge(i, i + 9), PkMeshEdge(i - 1, i + 11)};
    }
    r.constraintRepeats.max_load_factor(0.5f + 0.25f * float(scale));
    r.options = std::uint32_t(scale % 4);
    r.maxIterations = 1000 + scale;
    r.cdtTolerance = 1e-7 * scale;
}

/// Changes one thing in every member of the record.
void mutate(RyTriangulationImpl& r) {
    r.options ^= 1u;
    r.triangles[0].setVertexIndexAt(999, 1);
    r.triangles.emplace_back();
    r.vertices[0].setTriangleIndex(-55);
    PkMeshFields::point(r.vertices[1]).x += 1.0;
    r.meshTriangles.front().setNeighborIndexAt(777, 0);
    r.locator.insertVertex(2, r.vertices);
    r.freeTriangles.pop_back();
    r.constraintEdges.erase(r.constraintEdges.begin());
    r.constraintRepeats.begin()->second += 100;
    r.constraintOrigins.begin()->second.push_back(PkMeshEdge(500, 501));
    r.maxIterations += 1;
    r.cdtTolerance *= 3.0;
}

RyTriangulationImpl& recordOf(RyTriangulation& t) {
    return *RyTriangulationAccess::impl(t);
}

// ---- PkMeshEdge ---------------------------------------------------------------------------------

TEST(PkMeshEdge, ConstructorAndSetterNormaliseEveryPair) {
    for (int a = -4; a <= 6; ++a) {
        for (int b = -4; b <= 6; ++b) {
            SCOPED_TRACE("a " + std::to_string(a) + ", b " + std::to_string(b));
            const PkMeshEdge e(a, b);
            PkMeshEdge set(1, 2);
            set.setEdgeIndex(a, b);
            for (const PkMeshEdge& x : {e, set}) {
                if (a == b) {
                    EXPECT_EQ(x.EdgeIndex1(), -1);
                    EXPECT_EQ(x.EdgeIndex2(), -1);
                } else {
                    EXPECT_EQ(x.EdgeIndex1(), std::min(a, b));
                    EXPECT_EQ(x.EdgeIndex2(), std::max(a, b));
                    EXPECT_LT(x.EdgeIndex1(), x.EdgeIndex2());
                }
            }
            EXPECT_TRUE(PkMeshEdge(a, b) == PkMeshEdge(b, a));
            EXPECT_FALSE(PkMeshEdge(a, b) != PkMeshEdge(b, a));
        }
    }
    const PkMeshEdge ghost(GhostVertex, 4);
    EXPECT_EQ(ghost.EdgeIndex1(), -2);
    EXPECT_EQ(ghost.EdgeIndex2(), 4);
    const PkMeshEdge swapped(7, 3);
    EXPECT_EQ(swapped.EdgeIndex1(), 3);
    EXPECT_EQ(swapped.EdgeIndex2(), 7);
    const PkMeshEdge empty;
    EXPECT_EQ(empty.EdgeIndex1(), -1);
    EXPECT_EQ(empty.EdgeIndex2(), -1);
    EXPECT_TRUE(empty == PkMeshEdge(5, 5));
}

TEST(PkMeshEdge, EqualityIsAnEquivalenceAndInequalityItsNegation) {
    std::vector<PkMeshEdge> edges;
    for (int a = -3; a <= 4; ++a) {
        for (int b = -3; b <= 4; ++b) edges.emplace_back(a, b);
    }
    for (const PkMeshEdge& x : edges) {
        EXPECT_TRUE(x == x);
        for (const PkMeshEdge& y : edges) {
            const bool same = x.EdgeIndex1() == y.EdgeIndex1() && x.EdgeIndex2() == y.EdgeIndex2();
            EXPECT_EQ(x == y, same);
            EXPECT_EQ(x == y, y == x);
            EXPECT_EQ(x != y, !(x == y));
        }
    }
}

TEST(PkMeshEdge, CopyAndAssignmentKeepTheIndices) {
    static_assert(std::is_same<decltype(std::declval<PkMeshEdge&>() = std::declval<PkMeshEdge&>()),
                               void>::value,
                  "assignment returns nothing");
    const PkMeshEdge source(9, -2);
    const PkMeshEdge copy(source);
    EXPECT_EQ(copy.EdgeIndex1(), -2);
    EXPECT_EQ(copy.EdgeIndex2(), 9);
    PkMeshEdge target(1, 3);
    target = source;
    EXPECT_EQ(target.EdgeIndex1(), -2);
    EXPECT_EQ(target.EdgeIndex2(), 9);
    EXPECT_TRUE(PkMeshEdge(3, 7) == PkMeshEdge(PkMeshEdge(7, 3)));
}

TEST(PkMeshEdgeHash, FormulaOverSignExtendedIndicesIsSymmetric) {
    const std::uint64_t basis = 0xcbf29ce484222325ull;
    const std::uint64_t prime = 0x100000001b3ull;
    // Independent statement of the formula, over raw pairs in both orders.
    auto formula = [&](std::int32_t i1, std::int32_t i2) {
        const std::uint64_t a = std::uint64_t(std::int64_t(i1)) ^ basis;
        const std::uint64_t b = std::uint64_t(std::int64_t(i2)) ^ basis;
        return std::size_t((a + b) * prime);
    };
    const PkMeshEdgeHash hash;
    const std::int32_t samples[] = {-2, -1, 0, 1, 3, 9, 1000, INT_MAX, INT_MIN + 1};
    for (std::int32_t a : samples) {
        for (std::int32_t b : samples) {
            EXPECT_EQ(formula(a, b), formula(b, a));
            if (a == b) continue;
            const PkMeshEdge e(a, b);
            EXPECT_EQ(hash(e), formula(std::min(a, b), std::max(a, b)));
            EXPECT_EQ(hash(e), hash(PkMeshEdge(b, a)));
        }
    }
    // -1 sign-extends to all ones: (~0 ^ basis) + (~0 ^ basis) = 2 * ~basis.
    EXPECT_EQ(hash(PkMeshEdge()), std::size_t((2 * ~basis) * prime));
    EXPECT_EQ(formula(3, 9), formula(9, 3));

    EdgeSet set;
    set.insert(PkMeshEdge(3, 9));
    EXPECT_EQ(set.count(PkMeshEdge(9, 3)), 1u);
    set.insert(PkMeshEdge(9, 3));
    EXPECT_EQ(set.size(), 1u);
}

// ---- PkMeshTriangle -----------------------------------------------------------------------------

TEST(PkMeshTriangle, DefaultIsAnEmptyGhostWithoutAux) {
    PkMeshTriangle t;
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(t.getVertexIndexAt(k), -1);
        EXPECT_EQ(t.getNeighborIndex(k), -1);
    }
    EXPECT_EQ(PkMeshFields::flags(t), 0u);
    EXPECT_TRUE(t.isGhostTri());
    EXPECT_FALSE(t.isAux());
}

TEST(PkMeshTriangle, PositionsAreClamped) {
    for (int k = -10; k <= 10; ++k) {
        SCOPED_TRACE("position " + std::to_string(k));
        PkMeshTriangle t = makeTriangle(10, 11, 12, 20, 21, 22);
        EXPECT_EQ(t.getVertexIndexAt(k), t.getVertexIndexAt(clampPosition(k)));
        EXPECT_EQ(t.getVertexIndexAt(k), 10 + clampPosition(k));
        EXPECT_EQ(t.getNeighborIndex(k), 20 + clampPosition(k));
        t.setVertexIndexAt(42, k);
        t.setNeighborIndexAt(43, k);
        for (int j = 0; j < 3; ++j) {
            EXPECT_EQ(t.getVertexIndexAt(j), j == clampPosition(k) ? 42 : 10 + j);
            EXPECT_EQ(t.getNeighborIndex(j), j == clampPosition(k) ? 43 : 20 + j);
        }
    }
}

TEST(PkMeshTriangle, GhostMeansAnyNegativeVertex) {
    const int values[] = {-2, -1, 0, 5};
    for (int a : values) {
        for (int b : values) {
            for (int c : values) {
                PkMeshTriangle t = makeTriangle(a, b, c, 1, 2, 3);
                EXPECT_EQ(t.isGhostTri(), a < 0 || b < 0 || c < 0);
                EXPECT_FALSE(t.isAux()) << "aux is a flag, not derived from the vertices";
            }
        }
    }
}

TEST(PkMeshTriangle, SetFlagbAuxTouchesBitZeroOnly) {
    for (std::uint32_t pattern : {0u, 1u, 0x6u, 0xfffffffeu, 0xffffffffu, 0x80000001u}) {
        for (bool aux : {false, true}) {
            PkMeshTriangle t;
            PkMeshFields::flags(t) = pattern;
            t.setFlagbAux(aux);
            EXPECT_EQ(PkMeshFields::flags(t), (pattern & ~1u) | (aux ? 1u : 0u));
            EXPECT_EQ(t.isAux(), aux);
        }
    }
}

TEST(PkMeshTriangle, AssignmentCopiesEverythingAndReturnsTheTarget) {
    PkMeshTriangle source = makeTriangle(1, 2, GhostVertex, 4, 5, 6);
    PkMeshFields::flags(source) = 0x81u;
    PkMeshTriangle target;
    PkMeshTriangle& r = (target = source);
    EXPECT_EQ(&r, &target);
    EXPECT_TRUE(sameTriangle(target, source));
    PkMeshTriangle moved;
    PkMeshTriangle& m = (moved = PkMeshTriangle(source));
    EXPECT_EQ(&m, &moved);
    EXPECT_TRUE(sameTriangle(moved, source));
    const PkMeshTriangle copy(source);
    EXPECT_TRUE(sameTriangle(copy, source));
}

TEST(PkMeshTriangle, UpdateNeighborReplacesTheFirstMatchOnly) {
    const int values[] = {-1, 0, 1};
    for (int n0 : values) {
        for (int n1 : values) {
            for (int n2 : values) {
                for (int old : {-1, 0, 1, 2}) {
                    PkMeshTriangle t = makeTriangle(7, 8, 9, n0, n1, n2);
                    const int before[3] = {n0, n1, n2};
                    const bool changed = t.updateNeighborIndexAt(50, old);
                    int first = -1;
                    for (int k = 2; k >= 0; --k) {
                        if (before[k] == old) first = k;
                    }
                    EXPECT_EQ(changed, first >= 0);
                    for (int k = 0; k < 3; ++k) {
                        EXPECT_EQ(t.getNeighborIndex(k), k == first ? 50 : before[k]);
                    }
                }
            }
        }
    }
    PkMeshTriangle t = makeTriangle(0, 1, 2, -1, 5, -1);
    EXPECT_TRUE(t.updateNeighborIndexAt(8, -1));
    EXPECT_EQ(t.getNeighborIndex(0), 8);
    EXPECT_EQ(t.getNeighborIndex(1), 5);
    EXPECT_EQ(t.getNeighborIndex(2), -1);
}

TEST(PkMeshTriangle, OpposedTriangleIsTheNeighbourAfterTheCorner) {
    const PkMeshTriangle t = makeTriangle(10, 11, 12, 20, 21, 22);
    for (int k = 0; k < 3; ++k) {
        int out = -99;
        EXPECT_TRUE(t.getOpposedTriangle(10 + k, out));
        EXPECT_EQ(out, 20 + nextLocalIndex(k));
    }
    for (int notCorner : {-2, -1, 0, 13, 20}) {
        int out = 12345;
        EXPECT_FALSE(t.getOpposedTriangle(notCorner, out));
        EXPECT_EQ(out, 12345);
    }
    // A repeated corner answers for its first position.
    int out = 0;
    EXPECT_TRUE(makeTriangle(5, 5, 7, 1, 2, 3).getOpposedTriangle(5, out));
    EXPECT_EQ(out, 2);
}

TEST(PkMeshTriangle, CornerAndNeighbourLookups) {
    PkMeshTriangle t = makeTriangle(10, 11, 12, 20, 21, 22);
    for (int k = 0; k < 3; ++k) {
        EXPECT_TRUE(t.isContain(10 + k));
        EXPECT_EQ(t.getLocalVertexIndex(10 + k), k);
        EXPECT_EQ(t.getLocalNeighborIndex(20 + k), k);
        const int a = t.getVertexIndexAt(k);
        const int b = t.getVertexIndexAt(nextLocalIndex(k));
        EXPECT_EQ(t.getNeighborIndex(a, b), t.getNeighborIndex(k)) << "edge " << k;
        EXPECT_EQ(t.getNeighborIndex(b, a), t.getNeighborIndex(k)) << "edge " << k << " reversed";
    }
    for (int other : {-2, -1, 9, 13, 20}) {
        EXPECT_FALSE(t.isContain(other));
        EXPECT_EQ(t.getLocalVertexIndex(other), 2);
        EXPECT_EQ(t.getLocalNeighborIndex(other + 100), 2);
    }
    // Outside the domain (not two corners) the rule still answers: vertex 0 with a non-corner
    // gives neighbour 2, two non-corners give neighbour 1.
    EXPECT_EQ(t.getNeighborIndex(10, 99), 22);
    EXPECT_EQ(t.getNeighborIndex(99, 10), 22);
    EXPECT_EQ(t.getNeighborIndex(98, 99), 21);
}

TEST(LocalIndex, NextAndPrevAreInverseRotations) {
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(prevLocalIndex(nextLocalIndex(i)), i);
        EXPECT_EQ(nextLocalIndex(prevLocalIndex(i)), i);
        EXPECT_NE(nextLocalIndex(i), i);
        EXPECT_NE(prevLocalIndex(i), nextLocalIndex(i));
        EXPECT_EQ(nextLocalIndex(nextLocalIndex(nextLocalIndex(i))), i);
    }
    EXPECT_EQ(nextLocalIndex(2), 0);
    EXPECT_EQ(prevLocalIndex(0), 2);
}

// ---- Huge-page advice ---------------------------------------------------------------------------

// The aligned interior is the largest run of whole 2 MB pages inside the range: checked against
// the same bounds computed by division, on random ranges, ranges at page boundaries and ranges
// reaching the top of the address space (where rounding up must not wrap).
TEST(HugePages, InteriorIsTheLargestRunOfWholeAlignedPages) {
    constexpr std::uintptr_t H = kHugePageBytes;
    constexpr std::uintptr_t top = std::numeric_limits<std::uintptr_t>::max();
    auto check = [](std::uintptr_t address, std::size_t bytes) {
        SCOPED_TRACE(::testing::Message() << std::hex << address << " + " << bytes);
        const HugePageSpan s = hugePageInterior(address, bytes);
        // Oracle: first page start at or after address, last page end at or before the end.
        const bool wraps = bytes > top - address;
        const std::uintptr_t end = address + bytes;
        const bool firstExists = address / H + (address % H != 0) <= top / H;
        const std::uintptr_t first = (address / H + (address % H != 0)) * H;
        const std::uintptr_t last = (end / H) * H;
        if (wraps || !firstExists || last <= first) {
            EXPECT_EQ(s.begin, s.end);
            return;
        }
        EXPECT_EQ(s.begin, first);
        EXPECT_EQ(s.end, last);
        EXPECT_LE(address, s.begin);
        EXPECT_LE(s.end - address, bytes);
    };
    std::mt19937_64 rng(11);
    for (int i = 0; i < 2000; ++i) {
        const std::uintptr_t page = rng() % (std::uintptr_t(1) << 30);
        const std::uintptr_t offsets[] = {0, 1, H - 1, std::uintptr_t(rng() % H)};
        const std::size_t sizes[] = {0, 1, H - 1, H, 2 * H, std::size_t(rng() % (8 * H))};
        for (std::uintptr_t off : offsets) {
            for (std::size_t size : sizes) {
                check(page * H + off, size);
                check(page * H + off, size + H - off);  // ends exactly on a page boundary
            }
        }
    }
    for (std::uintptr_t a : {top, top - 1, top - H + 1, top - H, top - 2 * H - 5}) {
        for (std::size_t bytes : {std::size_t(0),
                                  std::size_t(1),
                                  std::size_t(H),
                                  std::size_t(3 * H),
                                  std::size_t(top)}) {
            check(a, bytes);
        }
    }
}

// Advice on a live buffer keeps its contents, whatever the system does with it.
TEST(HugePages, AdviceLeavesTheContentsAlone) {
    std::vector<std::uint32_t> buffer(3 * kHugePageBytes / sizeof(std::uint32_t));
    for (std::size_t i = 0; i < buffer.size(); ++i) buffer[i] = std::uint32_t(i * 2654435761u);
    adviseHugePages(buffer.data(), buffer.size() * sizeof(std::uint32_t));
    adviseHugePages(buffer.data() + 1, 7);  // too small: nothing to advise
    for (std::size_t i = 0; i < buffer.size(); ++i) {
        ASSERT_EQ(buffer[i], std::uint32_t(i * 2654435761u)) << i;
    }
}

// Withdrawing the advice covers exactly the whole pages inside the range: on a mapping advised
// throughout, the pages before the range's interior keep the advice and those inside lose it
// (the kernel splits the mapping), and the contents stay. Skipped where the kernel shows no
// huge-page advice on its mappings.
TEST(HugePages, SmallPageAdviceCoversTheInteriorOnly) {
    constexpr std::size_t H = kHugePageBytes;
    std::vector<char> storage(7 * H);
    char* const base = reinterpret_cast<char*>(
        (reinterpret_cast<std::uintptr_t>(storage.data()) + H - 1) & ~std::uintptr_t(H - 1));
    for (std::size_t i = 0; i < 5 * H; i += 4096) base[i] = char(i / 4096);
    adviseHugePages(base, 6 * H);
    if (rytest::mappingFlags(base + H).find(" hg ") == std::string::npos) {
        GTEST_SKIP() << "no huge-page advice visible: " << rytest::mappingFlags(base + H);
    }
    adviseSmallPages(base + 2 * H - 1, 2 * H + 2);  // interior: [2H, 4H)
    EXPECT_NE(rytest::mappingFlags(base + 2 * H - 1).find(" hg "), std::string::npos);
    for (std::size_t at : {2 * H, 3 * H, 4 * H - 1}) {
        const std::string flags = rytest::mappingFlags(base + at);
        EXPECT_NE(flags.find(" nh "), std::string::npos) << at << flags;
        EXPECT_EQ(flags.find(" hg "), std::string::npos) << at << flags;
    }
    EXPECT_NE(rytest::mappingFlags(base + 4 * H).find(" hg "), std::string::npos);
    adviseSmallPages(base + 5 * H + 1, H);  // no whole page inside: nothing changes
    EXPECT_NE(rytest::mappingFlags(base + 5 * H + 1).find(" hg "), std::string::npos);
    for (std::size_t i = 0; i < 5 * H; i += 4096) ASSERT_EQ(base[i], char(i / 4096)) << i;
}

// Population ahead of first touch must keep what is already written, whether it covers the
// buffer, a misaligned part of it, or the unwritten room behind a vector's end; ranges that
// wrap past the end of the address space are ignored.
TEST(HugePages, PopulationLeavesTheContentsAlone) {
    std::vector<std::uint32_t> buffer;
    buffer.reserve(3 * kHugePageBytes / sizeof(std::uint32_t));
    const std::size_t half = buffer.capacity() / 2;
    for (std::size_t i = 0; i < half; ++i) buffer.push_back(std::uint32_t(i * 2654435761u));
    populatePages(buffer.data(), buffer.capacity() * sizeof(std::uint32_t));
    populatePages(reinterpret_cast<const char*>(buffer.data()) + 4093, 3 * 4096 + 5);
    populatePages(buffer.data() + half, (buffer.capacity() - half) * sizeof(std::uint32_t));
    populatePages(buffer.data(), 0);
    populatePages(reinterpret_cast<const void*>(UINTPTR_MAX - 100), 4096);
    for (std::size_t i = half; i < buffer.capacity(); ++i) {
        buffer.push_back(std::uint32_t(i * 2654435761u));
    }
    for (std::size_t i = 0; i < buffer.size(); ++i) {
        ASSERT_EQ(buffer[i], std::uint32_t(i * 2654435761u)) << i;
    }
}

// ---- PkMeshPoint3d ------------------------------------------------------------------------------

TEST(PkMeshPoint3d, ConstructorsSetFlagsTriangleAndPoint) {
    const PkMeshPoint3d empty;
    EXPECT_EQ(PkMeshFields::flags(empty), 0u);
    EXPECT_EQ(empty.getTriangleIndex(), -1);
    EXPECT_EQ(empty.getPoint().x, 0.0);
    EXPECT_EQ(empty.getPoint().y, 0.0);
    EXPECT_EQ(empty.getPoint().z, 0.0);

    const PkMeshPoint3d plain(PkGePoint3d(1.5, -2.5, 3.25));
    EXPECT_EQ(PkMeshFields::flags(plain), 0u);
    EXPECT_EQ(plain.getType(), PkMeshPoint3d::kRegular);
    EXPECT_EQ(plain.getTriangleIndex(), -1);
    EXPECT_EQ(plain.getPoint().x, 1.5);
    EXPECT_EQ(plain.getPoint().y, -2.5);
    EXPECT_EQ(plain.getPoint().z, 3.25);

    for (int value = -9; value <= 20; ++value) {
        PkMeshPoint3d::Type type = PkMeshPoint3d::Type(value);
        const PkMeshPoint3d typed(PkGePoint3d(4, 5, 6), type);
        EXPECT_EQ(PkMeshFields::flags(typed), (std::uint32_t(value) & 7u) << 6) << value;
        EXPECT_EQ(int(typed.getType()), value & 7) << value;
        EXPECT_EQ(typed.getTriangleIndex(), -1);
        EXPECT_EQ(typed.getPoint().z, 6.0);
    }
    PkMeshPoint3d::Type nine = PkMeshPoint3d::Type(9);
    const PkMeshPoint3d typed(PkGePoint3d(), nine);
    EXPECT_EQ(typed.getType(), PkMeshPoint3d::kExcluded);
    EXPECT_EQ(PkMeshFields::flags(typed), 64u);
}

TEST(PkMeshPoint3d, CopyAndAssignmentCopyTheWholeRecord) {
    PkMeshPoint3d::Type type = PkMeshPoint3d::Type(5);
    PkMeshPoint3d source(PkGePoint3d(7, 8, 9), type);
    source.setTriangleIndex(31);
    EXPECT_EQ(source.getTriangleIndex(), 31);
    const PkMeshPoint3d copy(source);
    EXPECT_TRUE(sameVertex(copy, source));
    PkMeshPoint3d target(PkGePoint3d(1, 1, 1));
    PkMeshPoint3d& r = (target = source);
    EXPECT_EQ(&r, &target);
    EXPECT_TRUE(sameVertex(target, source));
    EXPECT_EQ(sizeof(PkMeshPoint3d), 32u);
}

// ---- RyTriangulation: construction --------------------------------------------------------------

void expectFreshRecord(RyTriangulation& t, std::uint32_t options) {
    const RyTriangulationImpl& r = recordOf(t);
    EXPECT_EQ(r.options, options);
    EXPECT_TRUE(r.triangles.empty());
    EXPECT_TRUE(r.vertices.empty());
    EXPECT_TRUE(r.meshTriangles.empty());
    EXPECT_TRUE(r.freeTriangles.empty());
    EXPECT_TRUE(r.constraintEdges.empty());
    EXPECT_TRUE(r.constraintRepeats.empty());
    EXPECT_TRUE(r.constraintOrigins.empty());
    EXPECT_EQ(r.maxIterations, 1000000);
    EXPECT_EQ(r.cdtTolerance, 1e-9);
    EXPECT_TRUE(sameTree(r.locator, VertexKdTree()));
    EXPECT_TRUE(r.locator.isEmpty());
    EXPECT_TRUE(t.getMeshTriangles().empty());
    EXPECT_TRUE(t.getMeshVertices().empty());
}

TEST(RyTriangulation, ConstructorsSetOptionsAndInitialValues) {
    {
        RyTriangulation t;
        expectFreshRecord(t, 3u);
    }
    for (bool sort : {false, true}) {
        for (bool split : {false, true}) {
            RyTriangulation t(sort, split);
            expectFreshRecord(t, (sort ? 1u : 0u) | (split ? 2u : 0u));
        }
    }
    {
        RyTriangulation t(100);
        expectFreshRecord(t, 0u);
        EXPECT_GE(recordOf(t).triangles.capacity(), 200u);
        EXPECT_GE(recordOf(t).vertices.capacity(), 100u);
    }
    {
        RyTriangulation t(0);
        expectFreshRecord(t, 0u);
    }
}

TEST(RyTriangulation, CountOutsideTheRangeThrowsLengthErrorWithoutLeaking) {
    for (int n : {-1, -100, INT_MIN, 1 << 30, (1 << 30) + 1, INT_MAX}) {
        const long live = gLiveBlocks;
        EXPECT_THROW(RyTriangulation t(n), std::length_error) << n;
        EXPECT_EQ(gLiveBlocks, live) << n;
    }
}

TEST(RyTriangulation, SetCDTTolerenceStoresAnyValue) {
    RyTriangulation t;
    const double values[] = {0.0, -1.0, 1e300, std::numeric_limits<double>::infinity(), 5e-324};
    for (double v : values) {
        t.setCDTTolerence(v);
        EXPECT_TRUE(sameBits(recordOf(t).cdtTolerance, v)) << v;
    }
    t.setCDTTolerence(std::nan(""));
    EXPECT_TRUE(std::isnan(recordOf(t).cdtTolerance));
}

TEST(RyTriangulationImpl, AllocateTriangleReusesReleasedSlotsFromTheBack) {
    RyTriangulation t;
    RyTriangulationImpl& r = recordOf(t);
    for (int i = 0; i < 12; ++i) r.appendTriangle(makeTriangle(i, i + 1, i + 2, 0, 0, 0));
    ASSERT_EQ(r.triangles.size(), 12u);
    r.freeTriangles = {4, 9};
    EXPECT_EQ(r.allocateTriangle(), 9);
    EXPECT_EQ(r.allocateTriangle(), 4);
    EXPECT_EQ(r.triangles.size(), 12u);
    EXPECT_EQ(r.triangles[9].getVertexIndexAt(0), 9) << "a reused slot keeps its contents";
    EXPECT_EQ(r.allocateTriangle(), 12);
    ASSERT_EQ(r.triangles.size(), 13u);
    EXPECT_TRUE(sameTriangle(r.triangles[12], PkMeshTriangle()));
    EXPECT_TRUE(r.freeTriangles.empty());
    EXPECT_EQ(r.allocateTriangle(), 13);
}

// ---- RyTriangulation: copies --------------------------------------------------------------------

void expectIndependent(RyTriangulation& a, RyTriangulation& b) {
    RyTriangulationImpl& ra = recordOf(a);
    RyTriangulationImpl& rb = recordOf(b);
    ASSERT_NE(&ra, &rb);
    ASSERT_TRUE(sameRecord(ra, rb));
    EXPECT_NE(ra.triangles.data(), rb.triangles.data());
    EXPECT_NE(ra.vertices.data(), rb.vertices.data());
    EXPECT_NE(ra.locator.nodes.data(), rb.locator.nodes.data());
    EXPECT_NE(ra.locator.searchStack.data(), rb.locator.searchStack.data());
    const RyTriangulationImpl snapshot(ra);
    mutate(rb);
    EXPECT_TRUE(sameRecord(ra, snapshot)) << "changing the copy changed the source";
    EXPECT_FALSE(sameRecord(rb, snapshot));
    const RyTriangulationImpl copySnapshot(rb);
    mutate(ra);
    EXPECT_TRUE(sameRecord(rb, copySnapshot)) << "changing the source changed the copy";
}

TEST(RyTriangulation, CopyConstructionIsDeepAndIndependent) {
    RyTriangulation source;
    populate(recordOf(source), 3, 1);
    RyTriangulation copy(source);
    expectIndependent(source, copy);
}

TEST(RyTriangulation, AssignmentIsDeepAndIndependent) {
    RyTriangulation source(true, false);
    populate(recordOf(source), 3, 2);
    RyTriangulation target(7);
    populate(recordOf(target), 1, 3);
    RyTriangulation& r = (target = source);
    EXPECT_EQ(&r, &target);
    expectIndependent(source, target);
}

TEST(RyTriangulation, SelfAssignmentChangesNothing) {
    RyTriangulation t;
    populate(recordOf(t), 2, 4);
    const RyTriangulationImpl snapshot(recordOf(t));
    const RyTriangulationImpl* record = RyTriangulationAccess::impl(t);
    RyTriangulation& alias = t;
    t = alias;
    EXPECT_EQ(RyTriangulationAccess::impl(t), record);
    EXPECT_TRUE(sameRecord(recordOf(t), snapshot));
}

TEST(RyTriangulation, CopyAfterTriangulationFinishesIndependently) {
    std::vector<PkGePoint3d> points;
    for (int i = 0; i < 12; ++i) points.emplace_back(double(i % 4) + 0.1 * i, double(i / 4), 0.0);
    RyTriangulation source;
    ASSERT_EQ(source.delaunayTriangulation(points), StatusOk);
    EXPECT_TRUE(source.getMeshTriangles().empty());
    RyTriangulation copy(source);
    copy.deleteGhostTriangle();
    EXPECT_FALSE(copy.getMeshTriangles().empty());
    EXPECT_TRUE(source.getMeshTriangles().empty());
    EXPECT_EQ(source.getMeshVertices().size(), points.size());
}

// ---- out of memory ------------------------------------------------------------------------------

// Every allocation of the copy fails in turn; the target must keep its old record untouched and
// nothing may leak. The loop ends with the first N at which the assignment succeeds.
TEST(RyTriangulation, AssignmentOutOfMemoryLeavesTheTargetAsItWas) {
    RyTriangulation source;
    populate(recordOf(source), 2, 5);
    RyTriangulation target(false, true);
    populate(recordOf(target), 1, 6);
    const RyTriangulationImpl snapshot(recordOf(target));
    const RyTriangulationImpl* record = RyTriangulationAccess::impl(target);
    int failures = 0;
    bool done = false;
    for (long n = 0; n < 100000 && !done; ++n) {
        const long live = gLiveBlocks;
        try {
            AllocationLimit limit(n);
            target = source;
            done = true;
        } catch (const std::bad_alloc&) {
            ++failures;
            EXPECT_EQ(gLiveBlocks, live) << "leak after failing at allocation " << n;
            EXPECT_EQ(RyTriangulationAccess::impl(target), record) << n;
            EXPECT_TRUE(sameRecord(recordOf(target), snapshot)) << "failing at allocation " << n;
        }
        if (HasFailure()) break;
    }
    ASSERT_TRUE(done);
    EXPECT_GT(failures, 20) << "the copy should need many allocations";
    EXPECT_TRUE(sameRecord(recordOf(target), recordOf(source)));
    std::printf("  assignment failed cleanly at each of its first %d allocations\n", failures);
}

TEST(RyTriangulation, ConstructorsOutOfMemoryLeakNothing) {
    RyTriangulation source;
    populate(recordOf(source), 2, 7);
    struct Case {
        const char* name;
        void (*make)(const RyTriangulation&);
    };
    const Case cases[] = {
        {"copy", [](const RyTriangulation& s) { RyTriangulation t(s); }},
        {"default", [](const RyTriangulation&) { RyTriangulation t; }},
        {"flags", [](const RyTriangulation&) { RyTriangulation t(false, true); }},
        {"count", [](const RyTriangulation&) { RyTriangulation t(50); }},
    };
    for (const Case& c : cases) {
        int failures = 0;
        bool done = false;
        for (long n = 0; n < 100000 && !done; ++n) {
            const long live = gLiveBlocks;
            try {
                AllocationLimit limit(n);
                c.make(source);
                done = true;
            } catch (const std::bad_alloc&) {
                ++failures;
            }
            EXPECT_EQ(gLiveBlocks, live) << c.name << ": leak with " << n << " allocations allowed";
            if (HasFailure()) break;
        }
        EXPECT_TRUE(done) << c.name;
        EXPECT_GT(failures, 0) << c.name;
    }
}

}  // namespace
