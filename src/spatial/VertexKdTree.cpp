#include "spatial/VertexKdTree.h"

#include <cmath>
#include <limits>

#include "mesh/MeshFields.h"

namespace {

constexpr double kHuge = std::numeric_limits<double>::max();
constexpr int kMaxSplitDepth = 4400;

struct Box {
    double lo[2];
    double hi[2];
};

/// Midpoint of `box` along `axis`; a coordinate equal to it belongs to the high side.
inline double splitMid(const Box& box, int axis) {
    return (box.lo[axis] + box.hi[axis]) * 0.5;
}

inline const double* xyOf(const std::vector<PkMeshPoint3d>& vertices, int v) {
    return vertexXY(vertices[std::size_t(v)]);
}

inline void widenBox(double* lo, double* hi, const double* p) {
    lo[0] = p[0] < lo[0] ? p[0] : lo[0];
    lo[1] = p[1] < lo[1] ? p[1] : lo[1];
    hi[0] = p[0] > hi[0] ? p[0] : hi[0];
    hi[1] = p[1] > hi[1] ? p[1] : hi[1];
}

/// Extents are stored as (min x, min y, max x, max y).
inline void widen(double* extent, const double* p) {
    widenBox(extent, extent + 2, p);
}

/// A lower bound of the squared distance, as the search computes it, from q to any point inside
/// `extent`: rounding is monotone, so no point inside can compute a smaller distance.
inline double extentDistance(const double* extent, const double* q) {
    const double dx =
        extent[0] > q[0] ? extent[0] - q[0] : (q[0] > extent[2] ? q[0] - extent[2] : 0.0);
    const double dy =
        extent[1] > q[1] ? extent[1] - q[1] : (q[1] > extent[3] ? q[1] - extent[3] : 0.0);
    return dx * dx + dy * dy;
}

}  // namespace

VertexKdTree::VertexKdTree()
    : root(0),
      boxMin{-kHuge, -kHuge},
      boxMax{kHuge, kHuge},
      rootAxis(0),
      pointCount(0),
      boxFitted(false),
      searchStack(StackChunk) {
    root = newNode();
}

int VertexKdTree::newNode() {
    nodes.emplace_back();
    nodes.back().bucket.reserve(BucketReserve);
    return int(nodes.size()) - 1;
}

bool VertexKdTree::contains(const double* p) const {
    return boxMin[0] <= p[0] && p[0] <= boxMax[0] && boxMin[1] <= p[1] && p[1] <= boxMax[1];
}

// The old tree becomes one half of a box twice as large along the new root axis, split at the
// old box's edge on the side facing p. (In floating point that split can land an ulp off the
// old edge, so points on the edge may sit an ulp outside their derived box; the search then
// misjudges their distance by about an ulp, nothing more.)
//
// A box of zero extent along k (every point so far has the same coordinate c there) would never
// grow by doubling; it grows by the distance to p instead (1 when p is on the line), so growth
// always ends. Its points were all sent to the high side of every split along k (the midpoint
// was c itself), so the old tree stays consistent only as a high half whose upper edge remains c:
// such a box always grows downward, and a point above c is reached by the next growth along k.
void VertexKdTree::growBox(const double* p) {
    const int a = newNode();
    const int b = newNode();
    rootAxis = rootAxis == 0 ? 1 : 0;
    const int k = rootAxis;
    const double lo = boxMin[k];
    const double hi = boxMax[k];
    double extent = hi - lo;
    bool downward = lo > p[k];
    if (!(extent > 0.0)) {
        extent = std::fabs(p[k] - lo);
        if (!(extent > 0.0)) extent = 1.0;
        downward = true;
    }
    const double edge = downward ? lo - extent : hi + extent;
    if (downward) {
        nodes[std::size_t(a)].child0 = b;
        nodes[std::size_t(a)].child1 = root;
        boxMin[k] = edge;
    } else {
        nodes[std::size_t(a)].child0 = root;
        nodes[std::size_t(a)].child1 = b;
        boxMax[k] = edge;
    }
    // The new root holds the same points as the old one.
    for (int i = 0; i < 4; ++i)
        nodes[std::size_t(a)].extent[i] = nodes[std::size_t(root)].extent[i];
    root = a;
}

// Shrinks the tree box to the points of the root leaf. Before any growth the root is the one
// full leaf being split; after growth its bucket is empty and only the flag is set.
void VertexKdTree::fitBox() {
    const std::vector<double>& coords = nodes[std::size_t(root)].coords;
    if (!coords.empty()) {
        boxMin[0] = boxMax[0] = coords[0];
        boxMin[1] = boxMax[1] = coords[1];
        for (std::size_t i = 0; i < coords.size(); i += 2) widenBox(boxMin, boxMax, &coords[i]);
    }
    boxFitted = true;
}

void VertexKdTree::store(int node, int v, const double* p) {
    KdNode& n = nodes[std::size_t(node)];
    n.bucket.push_back(v);
    n.coords.push_back(p[0]);
    n.coords.push_back(p[1]);
    widen(n.extent, p);
}

void VertexKdTree::insertVertex(int v, const std::vector<PkMeshPoint3d>& vertices) {
    insertAt(v, xyOf(vertices, v));
}

void VertexKdTree::insertAt(int v, const double* p) {
    ++pointCount;
    while (!contains(p)) growBox(p);
    insertFrom(root, rootAxis, boxMin, boxMax, 0, v, p);
}

// The descent of insertAt from `node` (at `depth`, splitting along `axis`, with box lo..hi),
// which p lies in.
void VertexKdTree::insertFrom(
    int node, int axis, const double* lo, const double* hi, int depth, int v, const double* p) {
    Box box{{lo[0], lo[1]}, {hi[0], hi[1]}};
    // Bisection separates distinct doubles within about 2100 levels per axis; past that the
    // bucket holds (nearly) identical points that no split can separate, so it just grows.
    for (;; ++depth) {
        KdNode* n = &nodes[std::size_t(node)];
        if (n->child0 == n->child1) {
            if (int(n->bucket.size()) < BucketCapacity || depth > kMaxSplitDepth) {
                store(node, v, p);
                return;
            }
            if (!boxFitted) {
                fitBox();
                // The fit covers the leaf's points only; widen it to p, which is about to be
                // stored below this box and must lie inside it for later growth to keep it on the
                // side it was routed to.
                boxMin[0] = p[0] < boxMin[0] ? p[0] : boxMin[0];
                boxMin[1] = p[1] < boxMin[1] ? p[1] : boxMin[1];
                boxMax[0] = p[0] > boxMax[0] ? p[0] : boxMax[0];
                boxMax[1] = p[1] > boxMax[1] ? p[1] : boxMax[1];
                if (node == root) box = Box{{boxMin[0], boxMin[1]}, {boxMax[0], boxMax[1]}};
            }
            const int c0 = newNode();
            const int c1 = newNode();
            n = &nodes[std::size_t(node)];  // newNode may have moved the nodes
            n->child0 = c0;
            n->child1 = c1;
            const double mid = splitMid(box, axis);
            std::vector<int> bucket;
            std::vector<double> coords;
            bucket.swap(n->bucket);
            coords.swap(n->coords);
            for (std::size_t i = 0; i < bucket.size(); ++i) {
                const double* q = &coords[2 * i];
                store(mid > q[axis] ? c0 : c1, bucket[i], q);
            }
        }
        widen(nodes[std::size_t(node)].extent, p);
        const double mid = splitMid(box, axis);
        if (mid > p[axis]) {
            node = nodes[std::size_t(node)].child0;
            box.hi[axis] = mid;
        } else {
            node = nodes[std::size_t(node)].child1;
            box.lo[axis] = mid;
        }
        axis = axis == 0 ? 1 : 0;
    }
}

void VertexKdTree::build(const std::vector<int>& indices,
                         const std::vector<PkMeshPoint3d>& records) {
    if (records.empty()) return;
    const double* first = vertexXY(records.front());
    boxMin[0] = boxMax[0] = first[0];
    boxMin[1] = boxMax[1] = first[1];
    for (const PkMeshPoint3d& r : records) widenBox(boxMin, boxMax, vertexXY(r));
    for (std::size_t i = 0; i < indices.size() && i < records.size(); ++i) {
        insertAt(indices[i], vertexXY(records[i]));
    }
}

PkMeshPoint3d VertexKdTree::findNearestVertex(const PkMeshPoint3d& q,
                                              const std::vector<PkMeshPoint3d>& vertices,
                                              int& nearest) {
    const int found = nearestIndex(vertexXY(q));
    if (found < 0) return PkMeshPoint3d();
    nearest = found;
    return vertices[std::size_t(found)];
}

int VertexKdTree::nearestIndex(const double* qp) {
    return search(qp, nullptr);
}

// The search's first descent follows the same midpoint rule as an insertion of q, so it passes
// through every node that insertion would widen and stops at the leaf it would store q in
// (unless a distance test ends it early, which needs a squared distance that overflows): q's
// insertion then starts from that leaf.
void VertexKdTree::startScout(Scout& s, const double* q) const {
    s.node = kNoNode;
    s.leaf = kNoNode;
    if (nodes.empty() || !contains(q)) return;
    s.node = root;
    s.axis = rootAxis;
    s.lo[0] = boxMin[0], s.lo[1] = boxMin[1];
    s.hi[0] = boxMax[0], s.hi[1] = boxMax[1];
}

int VertexKdTree::nearestThenInsert(int v, const double* p) {
    if (!contains(p)) {
        const int found = search(p, nullptr);
        insertAt(v, p);
        return found;
    }
    DescentPath& path = descentPath;
    const int found = search(p, &path);
    ++pointCount;
    if (!path.reachedLeaf) {
        insertFrom(root, rootAxis, boxMin, boxMax, 0, v, p);
        return found;
    }
    for (const int node : path.inner) widen(nodes[std::size_t(node)].extent, p);
    insertFrom(path.leaf, path.axis, path.lo, path.hi, int(path.inner.size()), v, p);
    return found;
}

namespace {

/// Position of the bucket entry nearer to q than `best` (which it lowers), the nearest such;
/// `size` (the bucket's) when there is none. Which entry improves on the best is a coin toss for
/// the branch predictor: the position is kept without branches.
RY_INLINE std::size_t nearestInBucket(const KdNode& n,
                                      std::size_t size,
                                      const double* qp,
                                      double& best) {
    const double* c = n.coords.data();
    std::size_t at = size;
    for (std::size_t i = 0; i < size; ++i) {
        const double dx = qp[0] - c[2 * i];
        const double dy = qp[1] - c[2 * i + 1];
        const double d = dx * dx + dy * dy;
        const bool better = d < best;
        at = better ? i : at;
        best = better ? d : best;
    }
    return at;
}

/// Splits [lo, hi] (inner node n's box along its axis) at its midpoint: the near half stays in
/// lo, hi and its child in `node`; the far half and child go to the stack entry's fields.
/// `bound` becomes the squared distance from q to the split line.
RY_INLINE void splitBox(const KdNode& n,
                        double& lo,
                        double& hi,
                        double q,
                        double& farLo,
                        double& farHi,
                        int& farNode,
                        int& node,
                        double& bound) {
    const double mid = (lo + hi) * 0.5;
    const double gap = q - mid;
    bound = gap * gap;
    if (mid > q) {
        farNode = n.child1, farLo = mid, farHi = hi;
        hi = mid;
        node = n.child0;
    } else {
        farNode = n.child0, farLo = lo, farHi = mid;
        lo = mid;
        node = n.child1;
    }
}

}  // namespace

int VertexKdTree::search(const double* qp, DescentPath* path) {
    if (path) {
        path->inner.clear();
        path->reachedLeaf = false;
    }
    bool descending = path != nullptr;  // still on the first descent
    int foundLeaf = kNoNode;
    std::size_t foundAt = 0;
    double best = kHuge;
    searchStack[0] =
        KdSearchEntry{root, boxMin[0], boxMin[1], boxMax[0], boxMax[1], rootAxis, kHuge};
    const int nodeCount = int(nodes.size());
    int top = 0;
    while (top >= 0) {
        // Fields straight from the stack: a local copy of the whole entry went through 16-byte
        // stores that the next loads straddled, which stalls store forwarding.
        const KdSearchEntry& e = searchStack[std::size_t(top)];
        int node = e.node;
        int axis = e.axis;
        // The box as four scalars: indexed by axis it lives in memory, and each level's 8-byte
        // store into it followed by a 16-byte reload of it stalls store forwarding.
        double loX = e.boxMinX, loY = e.boxMinY, hiX = e.boxMaxX, hiY = e.boxMaxY;
        double bound = e.bound;
        --top;  // e is not read again: the pushes below may overwrite it
        // Below an inner node the child on the query's side is pushed last and popped at once;
        // going straight on to it is the same search without the round trip through the stack
        // (the far child is pushed, and the stack grows, exactly as for two pushes).
        for (;;) {
            if (bound > best) break;
            if (node < 0 || node >= nodeCount) {
                top = -1;  // ends the search
                break;
            }
            const KdNode& n = nodes[std::size_t(node)];
            if (descending && n.child0 == n.child1) {
                // The leaf q falls in, whether or not the extent test below skips it.
                path->reach(node, axis, loX, loY, hiX, hiY);
            }
            // Beyond the described pruning, skip a subtree whose points all lie at least `best`
            // away: only a strictly smaller distance replaces the best, so the sequence of
            // bests, and with it every later decision and the result, is unchanged.
            if (extentDistance(n.extent, qp) >= best) break;
            if (n.child0 == n.child1) {
                // Which entry improves on the best is a coin toss for the branch predictor: keep
                // the position of the best without branches and look its index up at the end.
                const std::size_t size = n.bucket.size();
                const std::size_t at = nearestInBucket(n, size, qp, best);
                if (at != size) {
                    // The index is needed only at the end: start its load and go on rather
                    // than wait here (a scout fetched the bucket of the query's own leaf, but
                    // not those of the leaves around it).
                    foundLeaf = node;
                    foundAt = at;
                    __builtin_prefetch(n.bucket.data() + at);
                }
                break;
            }
            // Both children are read soon (the far one unless pruned): start their loads now.
            __builtin_prefetch(&nodes[std::size_t(n.child0)]);
            __builtin_prefetch(&nodes[std::size_t(n.child1)]);
            if (descending) path->inner.push_back(node);
            const int next = axis == 0 ? 1 : 0;
            if (top + 2 >= int(searchStack.size()))
                searchStack.resize(searchStack.size() + StackChunk);
            KdSearchEntry& far = searchStack[std::size_t(++top)];
            far.axis = next;
            if (axis == 0) {
                far.boxMinY = loY, far.boxMaxY = hiY;
                splitBox(n, loX, hiX, qp[0], far.boxMinX, far.boxMaxX, far.node, node, bound);
            } else {
                far.boxMinX = loX, far.boxMaxX = hiX;
                splitBox(n, loY, hiY, qp[1], far.boxMinY, far.boxMaxY, far.node, node, bound);
            }
            far.bound = bound;
            axis = next;
        }
        descending = false;  // whatever ended it
    }
    return foundLeaf < 0 ? NoVertex : nodes[std::size_t(foundLeaf)].bucket[foundAt];
}
