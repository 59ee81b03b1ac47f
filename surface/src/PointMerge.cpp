// Points are hashed by position: with a merge distance d, by the cell of side d holding them,
// and a point merges into the earliest merged point within d among the nine cells around it;
// without one (d = 0), by their exact coordinates, and only identical positions merge. Either
// way one pass in input order, so "the first" is the earliest input point.
#include "PointMerge.h"

#include <cmath>
#include <cstring>

namespace ry {

namespace {

constexpr std::int64_t kProgressStride = 1 << 16;

std::uint64_t mix(std::uint64_t a, std::uint64_t b) {
    std::uint64_t h = a * 0x9E3779B97F4A7C15ull ^ (b + 0x632BE59BD9B4E019ull + (a << 6));
    h ^= h >> 31;
    h *= 0xBF58476D1CE4E5B9ull;
    return h ^ (h >> 29);
}

std::int64_t bitsOf(double v) {
    v += 0.0;  // -0 and +0 are one position
    std::int64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    return bits;
}

/// Open-addressing table from a cell to the most recent merged point in it; the points of one
/// cell are chained through `next`.
class CellTable {
public:
    CellTable(std::size_t points, double distance) : distance(distance) {
        std::size_t capacity = 16;
        while (capacity < 2 * points) capacity *= 2;
        heads.assign(capacity, -1);
        mask = capacity - 1;
    }

    struct Cell {
        std::int64_t x, y;
        bool operator==(const Cell& o) const { return x == o.x && y == o.y; }
    };

    Cell cellOf(const double* p) const {
        if (distance == 0.0) return {bitsOf(p[0]), bitsOf(p[1])};
        return {std::int64_t(std::floor(p[0] / distance)),
                std::int64_t(std::floor(p[1] / distance))};
    }

    /// The slot of `cell`: the one holding it, or the empty one where it would go.
    std::size_t slot(const Cell& cell, const std::vector<double>& xyz) const {
        std::size_t i = mix(std::uint64_t(cell.x), std::uint64_t(cell.y)) & mask;
        while (heads[i] >= 0 && !(cellOf(&xyz[3 * std::size_t(heads[i])]) == cell)) {
            i = (i + 1) & mask;
        }
        return i;
    }

    std::vector<std::int32_t> heads;
    std::vector<std::int32_t> next;
    std::size_t mask = 0;
    double distance;
};

/// The earliest merged point within the distance of p (identical to it when the distance is
/// 0), or -1.
std::int32_t findMatch(const CellTable& table, const double* p, const std::vector<double>& xyz) {
    const CellTable::Cell home = table.cellOf(p);
    const int reach = table.distance == 0.0 ? 0 : 1;
    const double d2 = table.distance * table.distance;
    std::int32_t best = -1;
    for (int dx = -reach; dx <= reach; ++dx) {
        for (int dy = -reach; dy <= reach; ++dy) {
            const CellTable::Cell cell{home.x + dx, home.y + dy};
            for (std::int32_t v = table.heads[table.slot(cell, xyz)]; v >= 0;
                 v = table.next[std::size_t(v)]) {
                const double* q = &xyz[3 * std::size_t(v)];
                const double ex = q[0] - p[0], ey = q[1] - p[1];
                const bool same = reach == 0 ? (ex == 0.0 && ey == 0.0) : ex * ex + ey * ey <= d2;
                if (same && (best < 0 || v < best)) best = v;
            }
        }
    }
    return best;
}

/// One pass over the points in input order.
struct Merger {
    const SurfaceOptions& options;
    MergedPoints& m;
    CellTable table;
    bool mean;
    std::vector<double> sums;  // heights summed per merged point (Duplicates::kMean)
    std::vector<std::int32_t> counts;

    Merger(const SurfaceOptions& o, MergedPoints& merged, std::size_t n)
        : options(o),
          m(merged),
          table(o.merge ? n : 0, o.mergeDistance > 0.0 ? o.mergeDistance : 0.0),
          mean(o.duplicates == Duplicates::kMean) {
        m.pointVertex.resize(n);
        m.xyz.reserve(3 * n);
        m.vertexSource.reserve(n);
        if (o.merge) table.next.reserve(n);
    }

    void add(std::int32_t i, const double* p) {
        const std::int32_t match = options.merge ? findMatch(table, p, m.xyz) : -1;
        if (match >= 0) {
            m.pointVertex[std::size_t(i)] = match;
            fold(i, match, p[2]);
            return;
        }
        const std::int32_t v = std::int32_t(m.vertexSource.size());
        m.pointVertex[std::size_t(i)] = v;
        m.vertexSource.push_back(i);
        m.xyz.insert(m.xyz.end(), {p[0], p[1], p[2]});
        if (options.merge) {
            const std::size_t s = table.slot(table.cellOf(p), m.xyz);
            table.next.push_back(table.heads[s]);
            table.heads[s] = v;
        }
        if (mean) {
            sums.push_back(std::isnan(p[2]) ? 0.0 : p[2]);
            counts.push_back(std::isnan(p[2]) ? 0 : 1);
        }
    }

    /// Point i (height z) joins merged point v: the first height stays, and a different one is
    /// a conflict; for kMean the heights are summed too.
    void fold(std::int32_t i, std::int32_t v, double z) {
        ++m.repeated;
        if (std::isnan(z)) return;
        double& first = m.xyz[3 * std::size_t(v) + 2];
        if (std::isnan(first)) {
            first = z;
        } else if (first != z) {
            if (m.conflicts.size() < options.conflictLimit) {
                m.conflicts.push_back({m.vertexSource[std::size_t(v)], i, first, z});
            }
            ++m.conflictCount;
        }
        if (mean) {
            sums[std::size_t(v)] += z;
            ++counts[std::size_t(v)];
        }
    }

    /// The means of the heights (Duplicates::kMean).
    void finish() {
        for (std::size_t v = 0; mean && v < m.size(); ++v) {
            if (counts[v] > 1) m.xyz[3 * v + 2] = sums[v] / counts[v];
        }
    }
};

}  // namespace

bool mergePoints(ArrayView<double> xyz, const SurfaceOptions& options, MergedPoints& m) {
    const std::size_t n = xyz.size / 3;
    Merger merger(options, m, n);
    for (std::size_t i = 0; i < n; ++i) {
        if (i % kProgressStride == 0 && options.progress &&
            !options.progress(
                options.progressContext, SurfacePhase::kMerge, std::int64_t(i), std::int64_t(n))) {
            return false;
        }
        merger.add(std::int32_t(i), &xyz.data[3 * i]);
    }
    merger.finish();
    return !options.progress ||
           options.progress(
               options.progressContext, SurfacePhase::kMerge, std::int64_t(n), std::int64_t(n));
}

}  // namespace ry
