// What a host can observe of the library, as one hash per workload: statuses, output triangles,
// vertex records and the rand sequence after each call, over small awkward inputs (repeats,
// lines, circles, tiny spacing, constraints, rings, low iteration limits, both bands, stop
// requests) and inputs large enough for the helper thread. scripts/mutation-check --observe
// diffs this output between the unmutated library and a surviving mutant: a difference is a
// fault the suite missed; none suggests (it does not prove) that the mutant only changes speed
// or is unreachable.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <utility>
#include <vector>

#include "support/RingGenerator.h"
#include "support/TestSupport.h"

using namespace rytest;

namespace {

struct Hash {
    std::uint64_t h = 1469598103934665603ull;  // FNV-1a
    void add(std::uint64_t v) {
        for (int i = 0; i < 8; ++i) h = (h ^ ((v >> (8 * i)) & 255)) * 1099511628211ull;
    }
    void add(int v) { add(std::uint64_t(std::int64_t(v))); }
    void add(double d) {
        std::uint64_t u;
        std::memcpy(&u, &d, 8);
        add(u);
    }
};

void addOutput(Hash& h, RyTriangulation& t) {
    for (PkMeshTriangle tr : t.getMeshTriangles()) {
        for (int k = 0; k < 3; ++k) h.add(tr.getVertexIndexAt(k)), h.add(tr.getNeighborIndex(k));
        h.add(int(tr.isAux()));
    }
    for (const PkMeshPoint3d& v : t.getMeshVertices()) {
        const PkGePoint3d p = v.getPoint();
        h.add(v.getTriangleIndex()), h.add(int(v.getType())), h.add(p.x), h.add(p.y), h.add(p.z);
    }
    h.add(std::rand());
}

/// A progress callback that asks to stop at report number *context (counting down).
bool stopAtReport(void* context, PkProgressPhase, long long, long long) {
    return --*static_cast<int*>(context) != 0;
}

Points smallInput(Rng& g, int kind) {
    const int n = 3 + g.below(kind == 7 ? 1500 : 40);
    const int range = kind == 1 ? 4 : kind == 2 ? 8 : 64;
    const bool distinct = g.below(4) != 0;
    std::set<std::pair<double, double>> seen;
    Points p;
    for (int tries = 0; int(p.size()) < n && tries < 20 * n; ++tries) {
        double x = g.below(range), y = g.below(range);
        if (kind == 3) {  // on a circle, up to rounding
            const double a = g.below(360) * 3.14159265358979 / 180;
            x = 1e3 * std::cos(a), y = 1e3 * std::sin(a);
        }
        if (kind == 4) y = 2 * x + (g.below(4) == 0);  // mostly on a line
        if (kind == 5) x = x * 1e-7 + 1e6, y = y * 1e-7 - 1e6;
        if (distinct && !seen.insert({x, y}).second) continue;
        p.emplace_back(x, y, double(p.size()));
    }
    return p;
}

}  // namespace

int main(int argc, char** argv) {
    const int workloads = argc > 1 ? std::atoi(argv[1]) : 3000;
    Rng g(12345);
    for (int c = 0; c < workloads; ++c) {
        const int kind = c % 8;
        Points p = smallInput(g, kind);
        Edges e;
        if (c % 16 == 6) {  // crossing rings with islets a few ulps from their edges
            RingShape shape;
            shape.extent = g.below(2) ? 0.02 : 1e-3;
            shape.shuffleEdges = g.below(2) != 0;
            RingInput rings = generateRings(g.next(), shape);
            p = rings.points, e = rings.edges;
        } else if (c % 16 == 14) {  // a lattice with segments through its points
            p = integerGrid(8, 8);
        }
        const int n = int(p.size());
        if (kind == 6 && e.empty()) {  // a ring
            for (int i = 0, m = std::min(n, 3 + g.below(6)); i < m; ++i)
                e.emplace_back(i, (i + 1) % m);
        }
        for (int i = 0, k = (kind == 0 || kind == 6) ? g.below(8) : 0; i < k; ++i)
            e.emplace_back(g.below(n), g.below(n));
        RyTriangulation t(g.below(2) != 0, g.below(2) != 0);
        record(t).maxIterations = g.below(3) == 0 ? 1 + g.below(60) : 1000000;
        if (g.below(5) == 0) t.setCDTTolerence(g.below(2) ? 0.0 : 1e-3);
        int reportsLeft = 1 + g.below(5);
        if (c % 7 == 3) t.setProgressCallback(stopAtReport, &reportsLeft);
        std::srand(unsigned(g.below(1000)));
        Hash h;
        const int status = e.empty() && g.below(2) ? t.delaunayTriangulation(p)
                                                   : t.delaunayTriangulationWithConstraints(p, e);
        h.add(status);
        g.below(2) ? t.deleteGhostTriangle() : t.deleteOuterTrianglesAndHoles();
        addOutput(h, t);
        if (c % 5 == 0) {  // duplicate removal, in each plane in turn
            PkConvert2dVertex plane = PkConvert2dVertex(c / 5 % 3);
            PkGeTol tol;
            Edges f = e;
            RyTriangulation u;
            e.empty() ? u.deleteDuplicateVertices(p, plane, tol)
                      : u.deleteDuplicateVertices(p, f, plane, tol);
            for (const PkGePoint3d& q : p) h.add(q.x), h.add(q.y), h.add(q.z);
            for (const PkMeshEdge& f1 : f) h.add(f1.EdgeIndex1()), h.add(f1.EdgeIndex2());
        }
        std::printf("%d %d %016llx\n", c, status, (unsigned long long)h.h);
    }
    for (const bool sorted : {false, true}) {  // past the helper thread's threshold
        const Points p = uniformPoints(120000, 7);
        RyTriangulation t(sorted, true);
        std::srand(7);
        Hash h;
        const int status = t.delaunayTriangulation(p);
        t.deleteGhostTriangle();
        addOutput(h, t);
        std::printf("large %d %d %016llx\n", int(sorted), status, (unsigned long long)h.h);
    }
}
