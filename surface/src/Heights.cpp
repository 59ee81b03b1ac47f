// Heights for points that came without one (line vertices drawn in plan): the default when one
// is given, else the surface of the points that have heights, draped under them.
#include <cmath>

#include "MeshTopology.h"
#include "Orient.h"
#include "PointMerge.h"
#include "RyTriangulation.h"

namespace ry {

namespace {

/// The Delaunay triangulation of the points that have heights, or an empty mesh when there is
/// none (fewer than 3, or all on one line).
MeshTopology heightSurface(const MergedPoints& m, const SurfaceOptions& options) {
    MeshTopology mesh;
    std::vector<PkGePoint3d> points;
    for (std::size_t v = 0; v < m.size(); ++v) {
        if (!std::isnan(m.xyz[3 * v + 2])) {
            points.emplace_back(m.xyz[3 * v], m.xyz[3 * v + 1], m.xyz[3 * v + 2]);
            mesh.xyz.insert(mesh.xyz.end(), {points.back().x, points.back().y, points.back().z});
        }
    }
    RyTriangulation tri(true, false);
    tri.setCDTTolerence(options.cdtTolerance);
    if (points.size() < 3 || tri.delaunayTriangulation(points) != StatusOk) return MeshTopology();
    tri.deleteGhostTriangle();
    for (const PkMeshTriangle& t : tri.meshTriangles()) {
        for (int k = 0; k < 3; ++k) {
            mesh.triangles.push_back(t.getVertexIndexAt(k));
            mesh.working.push_back(t.getNeighborIndex(k));
        }
    }
    buildAdjacency(mesh);
    return mesh;
}

}  // namespace

void settleHeights(MergedPoints& m, const SurfaceOptions& options) {
    bool missing = false;
    for (std::size_t v = 0; v < m.size() && !missing; ++v) missing = std::isnan(m.xyz[3 * v + 2]);
    if (!missing) return;
    const bool fill = !std::isnan(options.defaultZ);
    const MeshTopology surface = fill ? MeshTopology() : heightSurface(m, options);
    std::int32_t near = 0;  // line vertices come in order: each walk starts from the last
    for (std::size_t v = 0; v < m.size(); ++v) {
        double* p = &m.xyz[3 * v];
        if (!std::isnan(p[2])) continue;
        const std::int32_t t = fill ? -1 : locateTriangle(surface, p, near);
        if (fill) {
            p[2] = options.defaultZ;
        } else if (t >= 0) {
            near = t;
            const std::int32_t* c = &surface.triangles[3 * std::size_t(t)];
            const double* a = surface.xy(c[0]);
            const double* b = surface.xy(c[1]);
            const double* d = surface.xy(c[2]);
            const double wa = orientValue(b, d, p), wb = orientValue(d, a, p),
                         wd = orientValue(a, b, p);
            p[2] = (wa * a[2] + wb * b[2] + wd * d[2]) / (wa + wb + wd);
        } else {
            if (m.missingHeight < 0) m.missingHeight = m.vertexSource[v];
            ++m.missingHeightCount;
        }
    }
}

}  // namespace ry
