#include "support/RingGenerator.h"

#include <algorithm>
#include <cmath>

#include "predicates/Predicates.h"
#include "support/TestSupport.h"

namespace rytest {

RingInput generateRings(std::uint64_t seed, const RingShape& shape) {
    Rng rng(seed);
    RingInput in;
    auto point = [&](double x, double y) {
        in.points.emplace_back(x, y, 0.0);
        return int(in.points.size()) - 1;
    };
    auto ring = [&](const std::vector<int>& corners) {
        for (std::size_t i = 0; i < corners.size(); ++i) {
            in.edges.emplace_back(corners[i], corners[(i + 1) % corners.size()]);
        }
    };
    const double half = shape.extent / 2;
    auto sign = [&] { return rng.below(2) ? 1.0 : -1.0; };
    // A point at centre + half * (sx * [lo, hi), sy * [lo, hi)), x drawn first.
    auto drawn = [&](double sx, double sy, double lo, double hi) {
        const double x = shape.centreX + sx * half * rng.uniform(lo, hi);
        return point(x, shape.centreY + sy * half * rng.uniform(lo, hi));
    };

    for (int r = 0; r < shape.tangles; ++r) {
        std::vector<int> corners;
        for (int i = 0; i < std::max(shape.tangleVertices, 3); ++i) {
            corners.push_back(drawn(1, 1, -1, 1));
        }
        ring(corners);
    }
    for (int r = 0; r < shape.spans; ++r) {
        // Corner to opposite corner and back through a point off the diagonal.
        const double sx = sign(), sy = sign();
        const double off = half * rng.uniform(0.02, 0.2) * sign();
        const int p = drawn(-sx, -sy, 0.9, 1);
        const int q = drawn(sx, sy, 0.9, 1);
        ring({p, point(shape.centreX + sy * off, shape.centreY - sx * off), q});
    }

    const std::size_t ringEdges = in.edges.size();
    for (int r = 0; r < shape.islets && ringEdges > 0; ++r) {
        const PkMeshEdge e = in.edges[std::size_t(rng.below(ringEdges))];
        const PkGePoint3d U = in.points[std::size_t(e.EdgeIndex1())];
        const PkGePoint3d W = in.points[std::size_t(e.EdgeIndex2())];
        const double t = rng.uniform(0.2, 0.8);
        double v[2] = {U.x + t * (W.x - U.x), U.y + t * (W.y - U.y)};
        // Step the coordinate that moves most across the edge, ulp by ulp, towards the chosen
        // side until the corner is strictly on it, then nearUlps to farUlps steps more.
        const double side = sign();
        const double nx = -side * (W.y - U.y), ny = side * (W.x - U.x);
        const int axis = std::fabs(nx) >= std::fabs(ny) ? 0 : 1;
        const double toward = (axis == 0 ? nx : ny) > 0 ? HUGE_VAL : -HUGE_VAL;
        const int spread = std::max(shape.farUlps - shape.nearUlps, 0) + 1;
        int extra = std::max(shape.nearUlps, 0) + int(rng.below(std::uint64_t(spread)));
        for (int guard = 0; guard < 1100; ++guard) {
            if (orient2d(&U.x, &W.x, v) * side > 0 && extra-- <= 0) break;
            v[axis] = std::nextafter(v[axis], toward);
        }
        // The islet opens away from the edge, between 0.3 and pi - 0.3 from its direction.
        const double size = shape.extent * rng.uniform(0.02, 0.1);
        const double along = std::atan2(W.y - U.y, W.x - U.x);
        const double a1 = along + side * rng.uniform(0.3, 1.4);
        const double a2 = along + side * rng.uniform(1.7, 2.8);
        const int c = point(v[0], v[1]);
        ring({c,
              point(v[0] + size * std::cos(a1), v[1] + size * std::sin(a1)),
              point(v[0] + size * std::cos(a2), v[1] + size * std::sin(a2))});
    }

    // Islets first: an islet corner then sits beside the edge before the edge is split, and
    // the pieces of the edge go round it. Inserted after the split, a piece that rounding moved
    // past the corner crosses the islet's edge within rounding of its start, which the library
    // refuses (a crossing at an end of the new segment).
    std::rotate(in.edges.begin(), in.edges.begin() + std::ptrdiff_t(ringEdges), in.edges.end());
    if (shape.shuffleEdges) {
        for (std::size_t i = in.edges.size(); i > 1; --i) {
            std::swap(in.edges[i - 1], in.edges[std::size_t(rng.below(i))]);
        }
    }
    return in;
}

RingShape ringShapeFromBytes(const std::uint8_t* data, std::size_t size, std::uint64_t& seed) {
    seed = 0;
    for (std::size_t i = 0; i < 8 && i < size; ++i) seed |= std::uint64_t(data[i]) << (8 * i);
    RingShape s;
    const std::uint8_t* b = size > 8 ? data + 8 : nullptr;
    const std::size_t n = size > 8 ? size - 8 : 0;
    if (n > 0) s.extent = std::pow(10.0, -3.0 + (b[0] % 51) / 10.0);  // 1e-3 to 1e2
    if (n > 1) s.centreX = -180.0 + 360.0 * b[1] / 255.0;
    if (n > 2) s.centreY = -90.0 + 180.0 * b[2] / 255.0;
    if (n > 3) s.tangles = b[3] % 4;
    if (n > 4) s.tangleVertices = 3 + b[4] % 14;
    if (n > 5) s.spans = b[5] % 3;
    if (n > 6) s.islets = b[6] % 9;
    if (n > 7) s.nearUlps = b[7] % 8, s.farUlps = s.nearUlps + b[7] / 32;
    if (n > 8) s.shuffleEdges = (b[8] & 1) != 0;
    return s;
}

}  // namespace rytest
