// Bucket KD-tree over vertex indices answering "which inserted vertex is nearest to p".
//
// Splits are implicit: a node stores no split value, its split is the midpoint of its box along
// its axis, and boxes are derived while descending from the tree box. Axes alternate by level.
// The tree box starts as the whole plane, is fitted to the points at the first split, and doubles
// toward any later point outside it (adding a root level each time). Nodes are never removed.
#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include "PkMeshPoint3d.h"
#include "platform/Prefetch.h"

/// What a descent reads (children, extent) comes first and together, the leaf's lists after it:
/// a search through inner nodes touches 40 contiguous bytes per level.
struct KdNode {
    int child0 = 0;  ///< child on the low side of the split
    int child1 = 0;  ///< child on the high side; child0 == child1 marks a leaf
    /// Bounding box of every point stored below this node (min x, min y, max x, max y; empty
    /// when min > max). Only used to skip subtrees that cannot hold a strictly nearer point.
    double extent[4] = {std::numeric_limits<double>::infinity(),
                        std::numeric_limits<double>::infinity(),
                        -std::numeric_limits<double>::infinity(),
                        -std::numeric_limits<double>::infinity()};
    /// x, y of each bucket entry, in bucket order: a leaf scan reads no vertex records.
    std::vector<double> coords;
    std::vector<int> bucket;
};

struct KdSearchEntry {
    int node;
    double boxMinX;
    double boxMinY;
    double boxMaxX;
    double boxMaxY;
    int axis;
    double bound;  ///< squared distance from the query to the parent's splitting line
};

class VertexKdTree {
public:
    static constexpr int BucketCapacity = 64;
    static constexpr int BucketReserve = 32;
    static constexpr int StackChunk = 32;

    VertexKdTree();

    /// Adds vertex v (its x and y). The caller rejects non-finite points: they lie in no box.
    void insertVertex(int v, const std::vector<PkMeshPoint3d>& vertices);
    /// The same with v's x and y given (reads no record).
    void insertPoint(int v, const double* xy) { insertAt(v, xy); }
    /// Nearest inserted vertex to q's x and y: writes its index to `nearest` and returns a copy of
    /// its record; on an empty tree leaves `nearest` alone and returns a default record.
    PkMeshPoint3d findNearestVertex(const PkMeshPoint3d& q,
                                    const std::vector<PkMeshPoint3d>& vertices,
                                    int& nearest);
    /// Index of the nearest inserted vertex to (q[0], q[1]) by the same search; NoVertex when
    /// empty.
    int nearestIndex(const double* q);
    /// nearestIndex(p), then insertPoint(v, p), in one descent where they share it.
    int nearestThenInsert(int v, const double* p);
    /// Sets the tree box to the records' bounding box and inserts indices[i] at records[i].
    void build(const std::vector<int>& indices, const std::vector<PkMeshPoint3d>& records);
    bool isEmpty() const { return pointCount == 0; }

    /// A descent toward a point made a few levels at a time ahead of that point's query, so that
    /// the query finds the nodes on its way, and its leaf's coordinates, in the cache. Reads the
    /// tree only; whatever the tree does in between costs a miss and nothing else.
    /// A node index naming none.
    static constexpr int kNoNode = -1;
    struct Scout {
        int node = kNoNode;  ///< kNoNode: done
        int leaf = kNoNode;  ///< the leaf it ended at, if it got there
        int axis = 0;
        double lo[2] = {0.0, 0.0};
        double hi[2] = {0.0, 0.0};
    };
    /// Places s at the root, or ends it when q lies outside the tree box.
    void startScout(Scout& s, const double* q) const;
    /// Moves s down by up to `levels` nodes toward q and fetches the node reached; at a leaf,
    /// fetches the leaf's coordinates and ends. Inline: it runs for every query in flight.
    void advanceScout(Scout& s, const double* q, int levels) const {
        const KdNode* const base = nodes.data();
        const int nodeCount = int(nodes.size());
        for (int level = 0; s.node >= 0; ++level) {
            if (s.node >= nodeCount) {
                s.node = kNoNode;
                return;
            }
            const KdNode& n = base[s.node];
            if (level == levels) {
                const char* at = reinterpret_cast<const char*>(&n);
                prefetchLine(at);
                prefetchLine(at + sizeof(KdNode) - 1);
                return;
            }
            if (n.child0 == n.child1) {
                // The leaf: its coordinates are the query's next reads (16 bytes a point), and
                // its bucket holds the answer (4 bytes a point).
                const char* c = reinterpret_cast<const char*>(n.coords.data());
                const std::size_t bytes = n.coords.size() * sizeof(double);
                for (std::size_t at = 0; at < bytes; at += 64) prefetchLine(c + at);
                const char* b = reinterpret_cast<const char*>(n.bucket.data());
                const std::size_t indexBytes = n.bucket.size() * sizeof(int);
                for (std::size_t at = 0; at < indexBytes; at += 64) prefetchLine(b + at);
                if (indexBytes > 0) prefetchLine(b + indexBytes - 1);
                s.leaf = s.node;
                s.node = kNoNode;
                return;
            }
            // The split is the box's midpoint (a coordinate equal to it goes high); the side is
            // a coin toss, so it is chosen without a branch.
            const double mid = (s.lo[s.axis] + s.hi[s.axis]) * 0.5;
            const bool low = mid > q[s.axis];
            double* const moved = low ? s.hi : s.lo;
            moved[s.axis] = mid;
            s.node = low ? n.child0 : n.child1;
            s.axis ^= 1;
        }
    }

    int root;
    std::vector<KdNode> nodes;
    double boxMin[2];
    double boxMax[2];
    int rootAxis;
    int pointCount;
    bool boxFitted;
    std::vector<KdSearchEntry> searchStack;

private:
    /// The nodes a search's first descent passed through, and the leaf it reached.
    struct DescentPath {
        std::vector<int> inner;
        bool reachedLeaf = false;
        int leaf = 0;
        int axis = 0;
        double lo[2] = {0.0, 0.0};
        double hi[2] = {0.0, 0.0};
        /// The first descent reached leaf `node`, with this axis and box.
        void reach(int node, int nodeAxis, double loX, double loY, double hiX, double hiY) {
            reachedLeaf = true;
            leaf = node;
            axis = nodeAxis;
            lo[0] = loX, lo[1] = loY;
            hi[0] = hiX, hi[1] = hiY;
        }
    };

    /// Working storage of nearestThenInsert (kept between calls, like the search stack).
    DescentPath descentPath;

    int search(const double* q, DescentPath* path);
    void insertFrom(
        int node, int axis, const double* lo, const double* hi, int depth, int v, const double* p);
    int newNode();
    void growBox(const double* p);
    void fitBox();
    bool contains(const double* p) const;
    void insertAt(int v, const double* p);
    void store(int node, int v, const double* p);
};
