// Hint walks that run a few insertions ahead of the shuffled insertion loop.
//
// In the shuffled order each insertion lands in a part of a large mesh that no cache holds, and
// its reads form chains (a triangle gives its neighbour's index, that one the next), each link a
// full memory latency. The walks start at vertices the helper thread named long ago, so the same
// chains can be followed early: a scout per position in flight takes one step per insertion, and
// each step reads only what the step before fetched. First it walks to the triangle holding the
// point, then it grows the region of triangles whose circumcircle holds the point (those the
// flips will replace) a ring per step, fetching each ring's neighbours and the triangle indices
// of their vertices. Scouts use plain arithmetic and only read the mesh: an insertion in between
// may change what a scout reads, which costs a miss and nothing else.
#pragma once

#include <cstddef>
#include <vector>

#include "accel/CornerVertexView.h"
#include "accel/NearestAhead.h"
#include "mesh/LocalIndex.h"
#include "mesh/MeshFields.h"
#include "platform/Prefetch.h"

/// The mesh as a scout reads it: triangle slots [0, count) and their corner positions.
struct ScoutMesh {
    const PkMeshTriangle* triangles;
    unsigned count;
    const CornerVertexView* view;
    std::vector<int>* fetched = nullptr;  ///< when set (tests), every slot fetch() is given

    const double* corner(int t, int k) const { return view->corners + 6 * std::size_t(t) + 2 * k; }
    /// Starts the loads of slot t's record and corner positions (both may straddle two lines).
    void fetch(int t) const {
        if (fetched) fetched->push_back(t);
        const char* record = reinterpret_cast<const char*>(triangles + t);
        prefetchLine(record);
        prefetchLine(record + sizeof(PkMeshTriangle) - 1);
        prefetchLine(corner(t, 0));
        prefetchLine(corner(t, 2) + 1);
    }
    /// Starts the loads of the triangle indices of t's real corners (the insertion rewrites them).
    void fetchVertexTriangles(int t) const {
        const int* v = triVerts(triangles[t]);
        for (int k = 0; k < 3; ++k) {
            if (v[k] >= 0) prefetchLine(&view->triangleIndex[v[k]]);
        }
    }
};

class Scout {
public:
    static constexpr int kMaxRings = 4;
    static constexpr int kMaxFront = 12;

    explicit Scout(int maxSteps = 6) : maxSteps_(maxSteps) {}

    /// Starts at slot t (fetching it); the next advance reads it.
    void start(const ScoutMesh& mesh, int t) {
        phase_ = kDone;
        found_ = NoTriangle;
        if (unsigned(t) >= mesh.count) return;
        mesh.fetch(t);
        triangle_ = t;
        steps_ = 0;
        phase_ = kWalk;
    }
    void stop() { phase_ = kDone; }
    bool active() const { return phase_ != kDone; }
    /// The triangle the walk ended in (p inside or on its boundary, as far as plain arithmetic
    /// tells), or NoTriangle while walking or when the walk gave up (a ghost triangle or too many
    /// steps).
    int found() const { return found_; }

    /// One step toward p.
    void advance(const ScoutMesh& mesh, const double* p) {
        if (phase_ == kWalk) {
            walk(mesh, p);
        } else if (phase_ == kGrow) {
            grow(mesh, p);
        }
    }

    /// The neighbour of t across the first edge (in index order) with p strictly on its outer
    /// side, or NoTriangle when there is none; t must be a real triangle.
    static int stepToward(const ScoutMesh& mesh, int t, const double* p) {
        const int* nb = triNbrs(mesh.triangles[t]);
        for (int k = 0; k < 3; ++k) {
            const double* a = mesh.corner(t, k);
            const double* b = mesh.corner(t, nextLocalIndex(k));
            if ((b[0] - a[0]) * (p[1] - a[1]) - (b[1] - a[1]) * (p[0] - a[0]) < 0) return nb[k];
        }
        return NoTriangle;
    }

    /// Whether p lies strictly inside the circle through t's corners (t real).
    static bool insideCircle(const ScoutMesh& mesh, int t, const double* p) {
        const double* a = mesh.corner(t, 0);
        const double* b = mesh.corner(t, 1);
        const double* c = mesh.corner(t, 2);
        const double adx = a[0] - p[0], ady = a[1] - p[1];
        const double bdx = b[0] - p[0], bdy = b[1] - p[1];
        const double cdx = c[0] - p[0], cdy = c[1] - p[1];
        return (adx * adx + ady * ady) * (bdx * cdy - cdx * bdy) +
                   (bdx * bdx + bdy * bdy) * (cdx * ady - adx * cdy) +
                   (cdx * cdx + cdy * cdy) * (adx * bdy - bdx * ady) >
               0;
    }

private:
    enum Phase { kWalk, kGrow, kDone };

    static bool isReal(const ScoutMesh& mesh, int t) {
        const int* v = triVerts(mesh.triangles[t]);
        return v[0] >= 0 && v[1] >= 0 && v[2] >= 0;
    }

    void walk(const ScoutMesh& mesh, const double* p) {
        const int t = triangle_;
        if (unsigned(t) >= mesh.count || !isReal(mesh, t) || ++steps_ > maxSteps_) {
            phase_ = kDone;
            return;
        }
        const int next = stepToward(mesh, t, p);
        if (next >= 0) {
            if (unsigned(next) < mesh.count) mesh.fetch(next);
            triangle_ = next;
            return;
        }
        // p lies in t: the flips start at its neighbours.
        found_ = t;
        mesh.fetchVertexTriangles(t);
        count_ = 0;
        const int* nb = triNbrs(mesh.triangles[t]);
        for (int k = 0; k < 3; ++k) {
            if (unsigned(nb[k]) >= mesh.count) continue;
            mesh.fetch(nb[k]);
            front_[count_] = nb[k];
            from_[count_] = t;
            ++count_;
        }
        steps_ = 0;
        phase_ = kGrow;
    }

    /// Tests last step's ring; the triangles in conflict with p pass the ring on to their other
    /// neighbours.
    void grow(const ScoutMesh& mesh, const double* p) {
        int front[kMaxFront], from[kMaxFront];
        int count = 0;
        for (int e = 0; e < count_; ++e) {
            const int m = front_[e];
            if (!isReal(mesh, m) || !insideCircle(mesh, m, p)) continue;
            mesh.fetchVertexTriangles(m);
            const int* nb = triNbrs(mesh.triangles[m]);
            for (int k = 0; k < 3 && count < kMaxFront; ++k) {
                const int w = nb[k];
                if (w == from_[e] || unsigned(w) >= mesh.count) continue;
                mesh.fetch(w);
                front[count] = w;
                from[count] = m;
                ++count;
            }
        }
        if (count == 0 || ++steps_ >= kMaxRings) {
            phase_ = kDone;
            return;
        }
        count_ = count;
        for (int e = 0; e < count; ++e) {
            front_[e] = front[e];
            from_[e] = from[e];
        }
    }

    int maxSteps_;
    Phase phase_ = kDone;
    int triangle_ = NoTriangle;  ///< walking: the current triangle
    int found_ = NoTriangle;
    int steps_ = 0;         ///< walk steps, then rings grown
    int count_ = 0;         ///< entries in front_
    int front_[kMaxFront];  ///< growing: the ring fetched last step, to be tested next
    int from_[kMaxFront];   ///< the triangle each was reached from
};

/// A scout for each of the next kLead positions of the insertion order, advanced once per
/// insertion. A scout starts kLead positions ahead, at the triangle of the vertex the helper
/// named for that position (its index was fetched a round earlier).
class InsertionScouts {
public:
    static constexpr int kLead = 8;

    InsertionScouts(NearestAhead& ahead,
                    const CornerVertexView& view,
                    const std::vector<PkMeshTriangle>& triangles,
                    const std::vector<int>& order)
        : ahead_(ahead), view_(view), triangles_(triangles), order_(order) {}

    /// One round, before the insertion at position i.
    void advance(std::size_t i) {
        const ScoutMesh mesh{triangles_.data(), unsigned(triangles_.size()), &view_};
        const std::size_t n = order_.size();
        int s = 0;
        if (i + kLead + 1 < n && ahead_.peek(i + kLead + 1, s)) prefetchLine(&view_.triangle(s));
        Scout& fresh = scouts_[(i + kLead) % kLead];  // position i's scout is done with
        fresh.stop();
        if (i + kLead < n && ahead_.peek(i + kLead, s)) fresh.start(mesh, view_.triangle(s));
        for (std::size_t j = i + 1; j < i + kLead && j < n; ++j) {
            Scout& scout = scouts_[j % kLead];
            if (scout.active()) scout.advance(mesh, view_.xy(order_[j]));
        }
    }

private:
    NearestAhead& ahead_;
    const CornerVertexView& view_;
    const std::vector<PkMeshTriangle>& triangles_;
    const std::vector<int>& order_;
    Scout scouts_[kLead];
};
