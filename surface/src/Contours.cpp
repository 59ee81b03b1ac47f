// Contour lines of the kept triangles.
//
// At level L a vertex is "above" when z >= L, else "below". A triangle with vertices on both
// sides is crossed by the level on exactly two edges: one running (counter-clockwise) from above
// to below, where the line enters, and one from below to above, where it leaves. The edge
// between two triangles is the exit of one and the entry of the other, so following exits
// through the neighbours walks each line with the higher ground on its left, and no triangle
// has more than one piece: lines cannot branch. Lines entering from the border are walked
// first (open lines, ending on the border); what is left are closed rings.
//
// Treating a vertex exactly at L as above is the level taken an infinitesimal below L: the
// lines keep that level's structure and their crossing points move onto the vertex, which may
// repeat a point (dropped) or shrink a ring around a peak exactly at L to a point (left out).
#include <algorithm>
#include <cmath>

#include "RySurfaceProducts.h"

namespace ry {

namespace {

inline int nextCorner(int k) {
    return k == 2 ? 0 : k + 1;
}

/// The triangles crossed by each level: bucket i holds triangles[start[i] .. start[i + 1]).
struct LevelBuckets {
    std::vector<std::size_t> start;
    std::vector<std::int32_t> triangles;
};

/// A triangle crosses the levels L with zmin < L <= zmax: counted, then placed.
LevelBuckets bucketTriangles(const Surface& s, const std::vector<double>& levels) {
    const std::size_t m = s.triangleCount();
    std::vector<std::uint32_t> range(2 * m);
    LevelBuckets b;
    b.start.assign(levels.size() + 1, 0);
    for (std::size_t t = 0; t < m; ++t) {
        double lo = INFINITY, hi = -INFINITY;
        for (int k = 0; k < 3; ++k) {
            const double z = s.vertices[3 * std::size_t(s.triangles[3 * t + std::size_t(k)]) + 2];
            lo = std::min(lo, z);
            hi = std::max(hi, z);
        }
        const auto first = std::upper_bound(levels.begin(), levels.end(), lo) - levels.begin();
        const auto last =
            std::upper_bound(levels.begin() + first, levels.end(), hi) - levels.begin();
        range[2 * t] = std::uint32_t(first);
        range[2 * t + 1] = std::uint32_t(last);
        for (auto i = first; i < last; ++i) ++b.start[std::size_t(i) + 1];
    }
    for (std::size_t i = 0; i < levels.size(); ++i) b.start[i + 1] += b.start[i];
    b.triangles.resize(b.start.back());
    std::vector<std::size_t> fill(b.start.begin(), b.start.end() - 1);
    for (std::size_t t = 0; t < m; ++t) {
        for (std::uint32_t i = range[2 * t]; i < range[2 * t + 1]; ++i) {
            b.triangles[fill[i]++] = std::int32_t(t);
        }
    }
    return b;
}

/// Walks the lines of one level and appends them to the result.
class LevelTracer {
public:
    LevelTracer(const Surface& s, std::vector<std::int32_t>& stamp, Contours& out)
        : s(s), stamp(stamp), out(out) {}

    void trace(const std::int32_t* begin, const std::int32_t* end, double level, std::int32_t id);

private:
    std::int32_t corner(std::int32_t t, int k) const {
        return s.triangles[3 * std::size_t(t) + std::size_t(k)];
    }
    double z(std::int32_t v) const { return s.vertices[3 * std::size_t(v) + 2]; }
    bool above(std::int32_t t, int k) const { return z(corner(t, k)) >= L; }
    /// The edge k of a crossed triangle whose start is on side `fromAbove` and end on the other.
    int crossedEdge(std::int32_t t, bool fromAbove) const {
        for (int k = 0; k < 2; ++k) {
            if (above(t, k) == fromAbove && above(t, nextCorner(k)) != fromAbove) return k;
        }
        return 2;
    }
    std::int32_t ridgeEnd(std::int32_t t, int exit) const;
    void addCrossing(std::int32_t t, int k);
    void endPiece(bool closed, std::int64_t endKey);
    void walk(std::int32_t start, std::size_t limit);
    void join(std::size_t firstLine);
    void emitChain(const Contours& pieces,
                   const std::vector<std::int32_t>& next,
                   std::size_t first,
                   std::vector<char>& used);

    const Surface& s;
    std::vector<std::int32_t>& stamp;
    Contours& out;
    double L = 0.0;
    std::int32_t id = 0;
    /// Keys joining the pieces of this level cut at ridges (-1: none), by line from the first
    /// line of the level: a vertex, or for a closed walk that was cut, a key of its own (< -1).
    std::vector<std::int64_t> startKey, endKey;
    std::int64_t nextStartKey = -1;
    std::int64_t ownKeys = -1;
};

/// When the piece of a crossed triangle runs along its edge between two vertices at the level
/// and the triangle across that edge also lies below it there (a ridge of zero width exactly at
/// the level, the peak's case stretched), both sides would give the same segment: it is cut out,
/// and the vertex where the piece goes on is returned. Else -1.
std::int32_t LevelTracer::ridgeEnd(std::int32_t t, int exit) const {
    const int k = nextCorner(exit);  // edge k joins the two corners above: exit + 1 and exit + 2
    const std::int32_t w = corner(t, k), u = corner(t, nextCorner(k));
    if (z(w) != L || z(u) != L) return -1;
    const std::int32_t n = s.neighbors[3 * std::size_t(t) + std::size_t(k)];
    if (n < 0) return -1;
    for (int j = 0; j < 3; ++j) {
        const std::int32_t v = corner(n, j);
        if (v != u && v != w) return z(v) < L ? w : -1;
    }
    return -1;
}

/// The point of edge k where the level crosses it, computed from its lower end so both
/// triangles of the edge get the same bits; exactly the upper end when that lies at the level.
void LevelTracer::addCrossing(std::int32_t t, int k) {
    const double* a = &s.vertices[3 * std::size_t(corner(t, k))];
    const double* b = &s.vertices[3 * std::size_t(corner(t, nextCorner(k)))];
    if (a[2] >= L) std::swap(a, b);
    double x = b[0], y = b[1];
    if (b[2] != L) {
        const double f = (L - a[2]) / (b[2] - a[2]);
        x = a[0] + f * (b[0] - a[0]);
        y = a[1] + f * (b[1] - a[1]);
    }
    const std::size_t n = out.xy.size();
    if (n > 2 * out.offsets.back() && out.xy[n - 2] == x && out.xy[n - 1] == y) return;
    out.xy.push_back(x);
    out.xy.push_back(y);
}

/// Ends the line being walked. A piece to be joined is kept whatever its length; a whole line
/// that shrank to a point is dropped.
void LevelTracer::endPiece(bool closed, std::int64_t key) {
    const std::size_t first = out.offsets.back();
    std::size_t n = out.xy.size() / 2;
    const bool piece = key != -1 || nextStartKey != -1;
    if (closed && n - first > 1 && out.xy[2 * first] == out.xy[2 * n - 2] &&
        out.xy[2 * first + 1] == out.xy[2 * n - 1]) {
        --n;  // back at the first point
    }
    if (n - first < 2 && !piece) n = first;
    out.xy.resize(2 * n);
    if (n == first && !piece) return;
    out.offsets.push_back(n);
    out.level.push_back(L);
    out.closed.push_back(closed ? 1 : 0);
    startKey.push_back(nextStartKey);
    endKey.push_back(key);
    nextStartKey = -1;
}

/// One line from `start` (entered across its entry edge) until the border or back at `start`;
/// at most `limit` triangles, the number crossed by the level.
void LevelTracer::walk(std::int32_t start, std::size_t limit) {
    const std::size_t firstPiece = startKey.size();
    addCrossing(start, crossedEdge(start, true));
    bool closed = false;
    std::int32_t t = start;
    for (std::size_t step = 0; step < limit; ++step) {
        stamp[std::size_t(t)] = id;
        const int exit = crossedEdge(t, false);
        const std::int32_t ridge = ridgeEnd(t, exit);
        if (ridge >= 0) {
            endPiece(false, corner(t, nextCorner(nextCorner(exit))));
            nextStartKey = ridge;
        }
        addCrossing(t, exit);
        t = s.neighbors[3 * std::size_t(t) + std::size_t(exit)];
        if (t < 0 || stamp[std::size_t(t)] == id) {
            closed = t == start;
            break;
        }
    }
    if (closed && startKey.size() > firstPiece) {
        // Cut on the way round: the last piece goes on into the first.
        startKey[firstPiece] = --ownKeys;
        endPiece(false, ownKeys);
    } else {
        endPiece(closed, -1);
    }
}
/// Appends the chain of pieces from `first` through `next` as one line: closed when it comes
/// round to `first`, or when it is a single closed line.
void LevelTracer::emitChain(const Contours& pieces,
                            const std::vector<std::int32_t>& next,
                            std::size_t first,
                            std::vector<char>& used) {
    bool closed = pieces.closed[first] != 0;
    for (std::int32_t i = std::int32_t(first); i >= 0; i = next[std::size_t(i)]) {
        if (used[std::size_t(i)]) {
            closed = true;
            break;
        }
        used[std::size_t(i)] = 1;
        for (std::size_t p = pieces.offsets[std::size_t(i)]; p < pieces.offsets[std::size_t(i) + 1];
             ++p) {
            const std::size_t n = out.xy.size();
            const double x = pieces.xy[2 * p], y = pieces.xy[2 * p + 1];
            if (n > 2 * out.offsets.back() && out.xy[n - 2] == x && out.xy[n - 1] == y) continue;
            out.xy.push_back(x);
            out.xy.push_back(y);
        }
    }
    nextStartKey = -1;
    endPiece(closed, -1);
}

/// Joins the pieces of the level cut at ridges: a piece ending at a key goes on with a piece
/// starting at it. Chains without a start are open lines; the rest close.
void LevelTracer::join(std::size_t firstLine) {
    Contours pieces;
    const std::size_t firstPoint = out.offsets[firstLine];
    pieces.xy.assign(out.xy.begin() + std::ptrdiff_t(2 * firstPoint), out.xy.end());
    pieces.offsets.clear();
    for (std::size_t i = firstLine; i < out.offsets.size(); ++i) {
        pieces.offsets.push_back(out.offsets[i] - firstPoint);
    }
    pieces.closed.assign(out.closed.begin() + std::ptrdiff_t(firstLine), out.closed.end());
    const std::size_t n = pieces.closed.size();
    out.xy.resize(2 * firstPoint);
    out.offsets.resize(firstLine + 1);
    out.level.resize(firstLine);
    out.closed.resize(firstLine);
    std::vector<std::pair<std::int64_t, std::int32_t>> starts;
    for (std::size_t i = 0; i < n; ++i) {
        if (startKey[i] != -1) starts.emplace_back(startKey[i], std::int32_t(i));
    }
    std::sort(starts.begin(), starts.end());
    std::vector<std::int32_t> next(n, -1);
    std::vector<char> hasPrevious(n, 0), used(n, 0);
    for (std::size_t i = 0; i < n; ++i) {
        if (endKey[i] == -1) continue;
        auto match = std::lower_bound(
            starts.begin(), starts.end(), std::make_pair(endKey[i], std::int32_t(-1)));
        while (match != starts.end() && match->first == endKey[i] && match->second < 0) ++match;
        if (match == starts.end() || match->first != endKey[i]) continue;
        next[i] = match->second;
        hasPrevious[std::size_t(match->second)] = 1;
        match->second = -1;  // taken
    }
    startKey.clear();  // emitChain's lines are whole: their keys are not needed again
    endKey.clear();
    for (int pass = 0; pass < 2; ++pass) {
        for (std::size_t i = 0; i < n; ++i) {
            if (!used[i] && (pass == 1 || !hasPrevious[i])) emitChain(pieces, next, i, used);
        }
    }
}

void LevelTracer::trace(const std::int32_t* begin,
                        const std::int32_t* end,
                        double level,
                        std::int32_t levelId) {
    L = level;
    id = levelId;
    startKey.clear();
    endKey.clear();
    const std::size_t firstLine = out.lineCount();
    const std::size_t limit = std::size_t(end - begin);
    for (const std::int32_t* t = begin; t != end; ++t) {
        const int entry = crossedEdge(*t, true);
        if (s.neighbors[3 * std::size_t(*t) + std::size_t(entry)] < 0) walk(*t, limit);
    }
    for (const std::int32_t* t = begin; t != end; ++t) {
        if (stamp[std::size_t(*t)] != id) walk(*t, limit);
    }
    const bool cut =
        std::any_of(startKey.begin(), startKey.end(), [](std::int64_t k) { return k != -1; });
    if (cut) join(firstLine);
}

}  // namespace

bool contourLevels(const Surface& s,
                   double interval,
                   double base,
                   std::vector<double>& levels,
                   std::size_t limit) {
    levels.clear();
    if (!(interval > 0.0) || std::isinf(interval) || !std::isfinite(base)) return false;
    double lo = INFINITY, hi = -INFINITY;
    for (std::int32_t v : s.triangles) {
        lo = std::min(lo, s.vertices[3 * std::size_t(v) + 2]);
        hi = std::max(hi, s.vertices[3 * std::size_t(v) + 2]);
    }
    if (!(lo <= hi)) return true;
    const double first = std::ceil((lo - base) / interval);
    const double last = std::floor((hi - base) / interval);
    if (last < first) return true;
    if (!(last - first < double(limit))) return false;
    const std::size_t count = std::size_t(last - first) + 1;
    for (std::size_t i = 0; i < count; ++i) {
        const double level = base + (first + double(i)) * interval;
        if (level >= lo && level <= hi) levels.push_back(level);
    }
    return true;
}

Contours contourLines(const Surface& s, ArrayView<double> levels) {
    std::vector<double> sorted;
    for (std::size_t i = 0; i < levels.size; ++i) {
        if (std::isfinite(levels[i])) sorted.push_back(levels[i]);
    }
    std::sort(sorted.begin(), sorted.end());
    sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
    Contours out;
    if (s.triangles.empty() || sorted.empty()) return out;
    const LevelBuckets buckets = bucketTriangles(s, sorted);
    out.xy.reserve(2 * buckets.triangles.size() + 64);
    std::vector<std::int32_t> stamp(s.triangleCount(), -1);
    LevelTracer tracer(s, stamp, out);
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        tracer.trace(buckets.triangles.data() + buckets.start[i],
                     buckets.triangles.data() + buckets.start[i + 1],
                     sorted[i],
                     std::int32_t(i));
    }
    return out;
}

}  // namespace ry
