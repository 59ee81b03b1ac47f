// Bookkeeping of the constraint edges in the mesh: the set, how often each was given again,
// and which longer input pieces each was cut from; and the split of a constraint edge at the
// point where a new constraint crosses it.
#include "constraints/ConstraintRecords.h"

#include "constraints/ConstraintInsertion.h"

namespace {

/// Direction cross products within this of zero count as parallel (absolute, like the box test
/// of constraint insertion; not the determinant band).
constexpr double kParallelLimit = 1e-10;

}  // namespace

void ConstraintRecords::record(const PkMeshEdge& piece, const PkMeshEdge& origin) {
    record(piece);
    if (piece != origin) addOrigin(origins[piece], origin);
}

void ConstraintRecords::record(const PkMeshEdge& piece) {
    if (!edges.insert(piece).second) ++repeats[piece];
}

void ConstraintRecords::clear() {
    edges.clear();
    repeats.clear();
    origins.clear();
}

void addOrigin(std::vector<PkMeshEdge>& list, const PkMeshEdge& edge) {
    for (const PkMeshEdge& e : list) {
        if (e == edge) return;
    }
    list.push_back(edge);
}

void mergeOrigins(std::vector<PkMeshEdge>& destination, const std::vector<PkMeshEdge>& source) {
    if (destination.capacity() < destination.size() + source.size()) {
        destination.reserve(destination.size() + source.size());
    }
    for (const PkMeshEdge& e : source) addOrigin(destination, e);
}

// Crossing of the infinite lines a-b and u-w; z is the mean of the four ends' z.
bool intersectLines(const TriangleMesh& mesh, int a, int b, int u, int w, PkGePoint3d& p) {
    const std::vector<PkMeshPoint3d>& vertices = mesh.vertices;
    const PkGePoint3d& A = PkMeshFields::point(vertices[std::size_t(a)]);
    const PkGePoint3d& B = PkMeshFields::point(vertices[std::size_t(b)]);
    const PkGePoint3d& U = PkMeshFields::point(vertices[std::size_t(u)]);
    const PkGePoint3d& W = PkMeshFields::point(vertices[std::size_t(w)]);
    const double d1x = B.x - A.x, d1y = B.y - A.y;
    const double d2x = W.x - U.x, d2y = W.y - U.y;
    const double den = d1x * d2y - d1y * d2x;
    if (!(den > kParallelLimit) && !(den < -kParallelLimit)) {
        p = PkGePoint3d(0.0, 0.0, 0.0);
        return false;
    }
    const double s = ((U.x - A.x) * d2y - (U.y - A.y) * d2x) / den;
    p.x = d1x * s + A.x;
    p.y = d1y * s + A.y;
    p.z = (((B.z + A.z) + U.z) + W.z) * 0.25;
    return true;
}

// The halves u-v and v-w replace u-w and keep its repeat count and origins (u-w itself when it
// has none), so the crossing counts of hole removal stay as they were on either side.
void ConstraintRecords::split(const PkMeshEdge& edge, int v) {
    const PkMeshEdge low(edge.EdgeIndex1(), v);
    const PkMeshEdge high(v, edge.EdgeIndex2());
    edges.erase(edge);
    record(low);
    record(high);
    const auto repeat = repeats.find(edge);
    if (repeat != repeats.end()) {
        const int r = repeat->second;
        repeats[low] += r;
        repeats[high] += r;
        repeats.erase(edge);
    }
    std::vector<PkMeshEdge> from(1, edge);
    const auto found = origins.find(edge);
    if (found != origins.end()) {
        from = found->second;
        origins.erase(found);
    }
    mergeOrigins(origins[low], from);
    mergeOrigins(origins[high], from);
}

// The new vertex goes onto edge u-w of t and is legalised while u-w is still recorded; the
// halves u-nv and nv-w touch the new vertex, so the flips (which only touch edges opposite it)
// cannot remove them. Records change only after a successful legalisation.
int splitConstraintEdge(const ConstraintContext& c,
                        const PkMeshEdge& edge,
                        const PkGePoint3d& p,
                        int t) {
    const int nv = int(c.mesh.vertices.size());
    c.mesh.appendVertex(p);

    const int* v = triVerts(c.mesh.triangles[std::size_t(t)]);
    PointLocation location;
    if (PkMeshEdge(v[0], v[1]) == edge) {
        location = kOnEdge0;
    } else if (PkMeshEdge(v[1], v[2]) == edge) {
        location = kOnEdge1;
    } else if (PkMeshEdge(v[2], v[0]) == edge) {
        location = kOnEdge2;
    } else {
        return NoVertex;  // t does not hold the edge: an inconsistent caller, refused
    }

    CheckList list;
    PkTriangulationStatus status = insertVertexAt(c.mesh, list, t, nv, location);
    if (status == StatusOk) status = legalizeAroundVertex(c.delaunay(), nv, list);
    if (status != StatusOk) return NoVertex;

    c.records.split(edge, nv);
    return nv;
}
