// A minimal host: a square site with a square hole and a few survey points inside, triangulated
// with the boundaries as constraints; prints the triangles that lie inside the site. Then the
// same site through the surface layer, which keeps the heights, gives the lines their roles and
// returns the adjacency of the kept triangles.
#include <cstdio>
#include <vector>

#include "RySurface.h"
#include "RyTriangulation.h"

/// The surface layer on the same points: boundary and hole as roles, heights kept, neighbours
/// indexed in the kept list. Returns 0 when all is as expected.
int surfaceLayer(const std::vector<PkGePoint3d>& points) {
    std::vector<double> xyz;
    for (const PkGePoint3d& p : points) xyz.insert(xyz.end(), {p.x, p.y, p.z});
    const std::vector<std::int32_t> lineVertices = {0, 1, 2, 3, 4, 5, 6, 7};
    ry::SurfaceInput input;
    input.xyz = xyz;
    input.lineVertices = lineVertices;
    input.lines = {{ry::Role::kBoundary, true, 0, 4}, {ry::Role::kHole, true, 4, 4}};
    const ry::Surface surface = ry::buildSurface(input);
    if (!surface.ok()) {
        std::fprintf(stderr, "surface: %s\n", surface.message.c_str());
        return 1;
    }
    int borders = 0;
    for (std::int32_t n : surface.neighbors) borders += n < 0;
    std::printf("surface: %zu triangles, area %.3f, %d border edges, height of vertex 8 %.1f\n",
                surface.triangleCount(),
                surface.keptArea,
                borders,
                surface.vertices[3 * 8 + 2]);
    return surface.keptArea == 96.0 && borders == 8 && surface.vertices[3 * 8 + 2] == 10.5 ? 0 : 1;
}

int main() {
    std::vector<PkGePoint3d> points = {
        // outer boundary 0..3
        {0, 0, 10},
        {10, 0, 11},
        {10, 10, 12},
        {0, 10, 11},
        // hole 4..7
        {4, 4, 9},
        {6, 4, 9},
        {6, 6, 9},
        {4, 6, 9},
        // survey points
        {2, 2, 10.5},
        {8, 2, 11.2},
        {8, 8, 11.8},
        {2, 8, 10.9},
        {5, 1.5, 10.4},
    };
    std::vector<PkMeshEdge> edges = {
        {0, 1},
        {1, 2},
        {2, 3},
        {3, 0},  // outer boundary
        {4, 5},
        {5, 6},
        {6, 7},
        {7, 4},  // hole
    };

    RyTriangulation triangulation;
    const PkTriangulationStatus status =
        triangulation.delaunayTriangulationWithConstraints(points, edges);
    if (status != StatusOk) {
        std::fprintf(stderr, "triangulation failed with status %d\n", int(status));
        return 1;
    }
    triangulation.deleteOuterTrianglesAndHoles();

    const std::vector<PkMeshPoint3d> vertices = triangulation.getMeshVertices();
    const std::vector<PkMeshTriangle> triangles = triangulation.getMeshTriangles();
    double area = 0.0;
    for (const PkMeshTriangle& t : triangles) {
        const PkGePoint3d a = vertices[t.getVertexIndexAt(0)].getPoint();
        const PkGePoint3d b = vertices[t.getVertexIndexAt(1)].getPoint();
        const PkGePoint3d c = vertices[t.getVertexIndexAt(2)].getPoint();
        area += 0.5 * ((b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x));
        std::printf("triangle %d %d %d\n",
                    t.getVertexIndexAt(0),
                    t.getVertexIndexAt(1),
                    t.getVertexIndexAt(2));
    }
    std::printf("%zu vertices, %zu triangles, area %.3f (expected 96)\n",
                vertices.size(),
                triangles.size(),
                area);
    if (!(area > 95.999 && area < 96.001)) return 1;
    return surfaceLayer(points);
}
