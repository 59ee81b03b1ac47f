// Writers of the output formats: Wavefront .obj, the .node/.ele (and .poly) files of mesh
// generators, and an SVG picture. They write a surface in the plane of triangulation: its
// vertices are (u, v, h), u and v the plane's coordinates and h the remaining one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "RyGeometry.h"
#include "RySurface.h"
#include "RySurfaceProducts.h"
#include "io/OutputFile.h"
#include "io/TextFormat.h"

namespace rytri {

/// Contour lines to write or draw, with the index contours (every fifth level from the base)
/// marked.
struct ContourSet {
    ry::Contours lines;
    std::vector<std::uint8_t> index;  ///< per line
    double interval = 0.0;
};

/// A surface and how its plane maps back to space: 0 (u, v, h) = (x, y, z); 1 (x, z, y);
/// 2 (y, z, x). What some formats carry besides: contours, point ids (one per input point, or
/// empty), a name.
struct MeshOutput {
    const ry::Surface& surface;
    int plane = 0;
    const ContourSet* contours = nullptr;
    const std::vector<std::string>* ids = nullptr;
    std::string name = "surface";
};

/// (u, v, h) of the triangulation plane back to (x, y, z).
PkGePoint3d toSpace(const PkGePoint3d& p, int plane);

/// The constraint lines of a surface as chains of vertices, rebuilt from its edges (which come
/// line by line, in order): vertices[offsets[k] .. offsets[k + 1]) with role[k]; a closed line
/// repeats its first vertex at the end.
struct LinePaths {
    std::vector<std::int32_t> vertices;
    std::vector<std::size_t> offsets{0};
    std::vector<ry::Role> role;
    std::size_t count() const { return role.size(); }
};
LinePaths linePaths(const ry::Surface& surface);

/// `v x y z` for every vertex (back in 3D: the height returns to its own axis), `f a b c` for
/// every kept triangle (1-based, counter-clockwise seen from the height axis) and `l a b` for
/// every constraint edge, grouped by role (`g boundary`, `g hole`, `g breakline`) when lines
/// have roles.
void writeObj(const MeshOutput& mesh, const std::string& comment, OutputFile& out);

/// `index u v h` with the height as the one attribute; numbered from 1.
void writeNode(const MeshOutput& mesh, const std::string& comment, OutputFile& out);
/// `index a b c` per kept triangle, numbered from 1 like the .node file.
void writeEle(const MeshOutput& mesh, const std::string& comment, OutputFile& out);
/// The constraint edges as segments over the vertices of the .node file of the same name, and
/// a hole point in each region left out that the segments enclose.
void writePoly(const MeshOutput& mesh, const std::string& comment, OutputFile& out);

struct SvgOptions {
    std::string title;
    /// Above this many triangles the picture shows a grid of mean heights instead of triangles.
    std::size_t triangleLimit = 200000;
    /// Above this many constraint edges only an even subset is drawn.
    std::size_t edgeLimit = 50000;
    /// Pixel size of the plot area's longer side.
    double size = 1000.0;
};

/// Triangles in thin lines, kept triangles filled by height with a legend, constraint edges
/// bold by role, contours (index contours labelled) when given, scaled to fit. Very large meshes
/// are thinned, and the picture says so.
void writeSvg(const MeshOutput& mesh, const SvgOptions& options, OutputFile& out);

}  // namespace rytri
