// Bookkeeping of the constraint edges in the mesh: the set, how often each was given again,
// and which longer input pieces each was cut from; and the split of a constraint edge at the
// point where a new constraint crosses it.
#include "state/RyTriangulationImpl.h"

namespace {

/// Direction cross products within this of zero count as parallel (absolute, like the box test
/// of constraint insertion; not the determinant band).
constexpr double kParallelLimit = 1e-10;

}  // namespace

void RyTriangulationImpl::recordConstraint(const PkMeshEdge& piece, const PkMeshEdge& origin) {
    recordConstraint(piece);
    if (piece != origin) addOrigin(constraintOrigins[piece], origin);
}

void RyTriangulationImpl::recordConstraint(const PkMeshEdge& piece) {
    if (!constraintEdges.insert(piece).second) ++constraintRepeats[piece];
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
bool RyTriangulationImpl::intersectLines(int a, int b, int u, int w, PkGePoint3d& p) const {
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

void RyTriangulationImpl::appendVertex(const PkGePoint3d& p) {
    vertices.emplace_back(p);
}

// The halves u-v and v-w replace u-w and keep its repeat count and origins (u-w itself when it
// has none), so the crossing counts of hole removal stay as they were on either side.
void RyTriangulationImpl::splitConstraintRecords(const PkMeshEdge& edge, int v) {
    const PkMeshEdge low(edge.EdgeIndex1(), v);
    const PkMeshEdge high(v, edge.EdgeIndex2());
    constraintEdges.erase(edge);
    recordConstraint(low);
    recordConstraint(high);
    const auto repeat = constraintRepeats.find(edge);
    if (repeat != constraintRepeats.end()) {
        const int r = repeat->second;
        constraintRepeats[low] += r;
        constraintRepeats[high] += r;
        constraintRepeats.erase(edge);
    }
    std::vector<PkMeshEdge> origins(1, edge);
    const auto found = constraintOrigins.find(edge);
    if (found != constraintOrigins.end()) {
        origins = found->second;
        constraintOrigins.erase(found);
    }
    mergeOrigins(constraintOrigins[low], origins);
    mergeOrigins(constraintOrigins[high], origins);
}

// The new vertex goes onto edge u-w of t and is legalised while u-w is still recorded; the
// halves u-nv and nv-w touch the new vertex, so the flips (which only touch edges opposite it)
// cannot remove them. Records change only after a successful legalisation.
int RyTriangulationImpl::splitConstraintEdge(const PkMeshEdge& edge, const PkGePoint3d& p, int t) {
    const int nv = int(vertices.size());
    appendVertex(p);

    const int* v = triVerts(triangles[std::size_t(t)]);
    PointLocation location;
    if (PkMeshEdge(v[0], v[1]) == edge) {
        location = kOnEdge0;
    } else if (PkMeshEdge(v[1], v[2]) == edge) {
        location = kOnEdge1;
    } else if (PkMeshEdge(v[2], v[0]) == edge) {
        location = kOnEdge2;
    } else {
        return -1;  // t does not hold the edge: an inconsistent caller, refused
    }

    CheckList list;
    PkTriangulationStatus status = insertVertexAt(list, t, nv, location);
    if (status == StatusOk) status = legalizeAroundVertex(nv, list);
    if (status != StatusOk) return -1;

    splitConstraintRecords(edge, nv);
    return nv;
}
