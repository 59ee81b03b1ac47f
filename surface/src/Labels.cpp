// Labelling by one pass over the triangles, with no visit cap:
// - rings: a flood from the hull carries the set of rings around each triangle; crossing an edge
//   toggles the rings that run along it (a ring is closed, so the set is the same whichever way
//   a triangle is reached, and the flood checks that it is). The innermost ring of a set (the
//   smallest by area; of identical rings a hole) decides.
// - even-odd: the fewest crossings from outside the hull, by a bucketed breadth-first search
//   (an edge on k lines costs k); odd is kept.
// - hole points: a flood that crosses no constraint, from the hull's open edges and from the
//   triangles holding the hole points, removes what it reaches.
#include "Labels.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <map>
#include <unordered_map>

#include "Orient.h"

namespace ry {

EdgeGroups groupPieces(const MeshTopology& mesh, const TracedLines& traced) {
    // (edge, line) pairs sorted by edge, the edge named by its lower half-edge.
    std::vector<std::pair<std::int32_t, std::int32_t>> pairs(traced.pieceEdge.size());
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const std::int32_t h = traced.pieceEdge[i];
        const std::int32_t t = mesh.twin[std::size_t(h)];
        pairs[i] = {t >= 0 && t < h ? t : h, traced.pieceLine[i]};
    }
    std::sort(pairs.begin(), pairs.end());
    EdgeGroups groups;
    if (!pairs.empty()) groups.ofHalfEdge.assign(mesh.triangles.size(), -1);
    groups.line.reserve(pairs.size());
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        if (i > 0 && pairs[i].first != pairs[i - 1].first) groups.start.push_back(std::int32_t(i));
        groups.line.push_back(pairs[i].second);
        const std::int32_t h = pairs[i].first;
        const std::int32_t g = std::int32_t(groups.start.size()) - 1;
        groups.ofHalfEdge[std::size_t(h)] = g;
        if (mesh.twin[std::size_t(h)] >= 0) groups.ofHalfEdge[std::size_t(mesh.twin[h])] = g;
    }
    if (!pairs.empty()) groups.start.push_back(std::int32_t(pairs.size()));
    return groups;
}

namespace {

/// Per group: how many times lines that bound (all but breaklines and skipped lines) run along
/// its edge.
std::vector<std::int32_t> boundingCount(const EdgeGroups& groups,
                                        const LineChains& lines,
                                        const std::vector<char>& skip) {
    std::vector<std::int32_t> count(groups.start.size() - 1, 0);
    for (std::size_t g = 0; g + 1 < groups.start.size(); ++g) {
        for (std::int32_t i = groups.start[g]; i < groups.start[g + 1]; ++i) {
            const std::int32_t line = groups.line[std::size_t(i)];
            count[g] +=
                !skip[std::size_t(line)] && lines.role[std::size_t(line)] != Role::kBreakline;
        }
    }
    return count;
}

std::int32_t groupOf(const EdgeGroups& groups, std::int32_t h) {
    return groups.of(h);
}

/// The sets of rings met by the flood, interned, with the crossings between them cached.
class RingSets {
public:
    RingSets(const EdgeGroups& groups,
             const LineChains& lines,
             const std::vector<char>& skip,
             const std::vector<double>& area)
        : groups(groups), lines(lines), skip(skip), area(area) {
        sets.emplace_back();
        ids[sets[0]] = 0;
        hasBoundary = false;
        for (std::size_t l = 0; l < lines.size(); ++l) {
            hasBoundary |= isRing(std::int32_t(l)) && lines.role[l] == Role::kBoundary;
        }
    }

    bool isRing(std::int32_t line) const {
        const Role r = lines.role[std::size_t(line)];
        return !skip[std::size_t(line)] && (r == Role::kBoundary || r == Role::kHole);
    }

    /// The set on the other side of group g's edge (g < 0: no constraint there).
    std::int32_t cross(std::int32_t set, std::int32_t g) {
        if (g < 0) return set;
        const std::uint64_t key = (std::uint64_t(std::uint32_t(set)) << 32) | std::uint32_t(g);
        const auto found = transitions.find(key);
        if (found != transitions.end()) return found->second;
        std::vector<std::int32_t> next = sets[std::size_t(set)];
        for (std::int32_t i = groups.start[std::size_t(g)]; i < groups.start[std::size_t(g) + 1];
             ++i) {
            const std::int32_t line = groups.line[std::size_t(i)];
            if (!isRing(line)) continue;
            const auto at = std::lower_bound(next.begin(), next.end(), line);
            if (at != next.end() && *at == line) {
                next.erase(at);
            } else {
                next.insert(at, line);
            }
        }
        const auto inserted = ids.emplace(next, std::int32_t(sets.size()));
        if (inserted.second) sets.push_back(std::move(next));
        transitions.emplace(key, inserted.first->second);
        return inserted.first->second;
    }

    /// Kept when the innermost ring is a boundary; inside no ring, when there is no boundary.
    bool keeps(std::int32_t set) const {
        const std::vector<std::int32_t>& rings = sets[std::size_t(set)];
        if (rings.empty()) return !hasBoundary;
        auto before = [&](std::int32_t a, std::int32_t b) {
            const double aa = area[std::size_t(a)], ab = area[std::size_t(b)];
            if (aa != ab) return aa < ab;
            const bool ha = lines.role[std::size_t(a)] == Role::kHole;
            const bool hb = lines.role[std::size_t(b)] == Role::kHole;
            return ha != hb ? ha : a < b;
        };
        const std::int32_t inner = *std::min_element(rings.begin(), rings.end(), before);
        return lines.role[std::size_t(inner)] == Role::kBoundary;
    }

    std::size_t size() const { return sets.size(); }

private:
    const EdgeGroups& groups;
    const LineChains& lines;
    const std::vector<char>& skip;
    const std::vector<double>& area;
    std::vector<std::vector<std::int32_t>> sets;
    std::map<std::vector<std::int32_t>, std::int32_t> ids;
    std::unordered_map<std::uint64_t, std::int32_t> transitions;
    bool hasBoundary;
};

/// Area enclosed by each line (shoelace over its vertices; 0 for lines that are not rings).
std::vector<double> ringAreas(const MeshTopology& mesh, const LineChains& lines) {
    std::vector<double> area(lines.size(), 0.0);
    for (std::size_t l = 0; l < lines.size(); ++l) {
        long double twice = 0;
        const std::size_t first = lines.start[l], last = lines.start[l + 1];
        for (std::size_t i = first; i < last; ++i) {
            const double* a = mesh.xy(lines.chain[i]);
            const double* b = mesh.xy(lines.chain[i + 1 < last ? i + 1 : first]);
            twice += static_cast<long double>(a[0]) * b[1] - static_cast<long double>(b[0]) * a[1];
        }
        area[l] = double(std::fabs(twice) / 2);
    }
    return area;
}

void labelRings(const MeshTopology& mesh,
                const EdgeGroups& groups,
                const LineChains& lines,
                const std::vector<char>& skip,
                LabelResult& result) {
    const std::vector<double> area = ringAreas(mesh, lines);
    RingSets sets(groups, lines, skip, area);
    const std::size_t m = mesh.triangleCount();
    std::vector<std::int32_t> setOf(m, -1);
    std::vector<std::int32_t> stack;
    auto reach = [&](std::size_t t, std::int32_t set) {
        if (setOf[t] < 0) {
            setOf[t] = set;
            stack.push_back(std::int32_t(t));
        } else if (setOf[t] != set) {
            ++result.disagreements;
        }
    };
    for (std::size_t h = 0; h < mesh.twin.size(); ++h) {
        if (mesh.twin[h] < 0) reach(h / 3, sets.cross(0, groupOf(groups, std::int32_t(h))));
    }
    while (!stack.empty()) {
        const std::int32_t t = stack.back();
        stack.pop_back();
        for (std::int32_t h = 3 * t; h < 3 * t + 3; ++h) {
            const std::int32_t across = mesh.twin[std::size_t(h)];
            if (across < 0) continue;
            reach(std::size_t(across / 3), sets.cross(setOf[std::size_t(t)], groupOf(groups, h)));
        }
    }
    std::vector<char> keepSet(sets.size());
    for (std::size_t s = 0; s < sets.size(); ++s) keepSet[s] = sets.keeps(std::int32_t(s));
    result.kept.resize(m);
    for (std::size_t t = 0; t < m; ++t) result.kept[t] = setOf[t] >= 0 && keepSet[setOf[t]];
}

void labelEvenOdd(const MeshTopology& mesh,
                  const EdgeGroups& groups,
                  const std::vector<std::int32_t>& weight,
                  LabelResult& result) {
    const std::size_t m = mesh.triangleCount();
    std::vector<std::int32_t> depth(m, INT_MAX);
    std::vector<std::vector<std::int32_t>> buckets(1);
    auto offer = [&](std::int32_t t, std::int32_t d) {
        if (d >= depth[std::size_t(t)]) return;
        depth[std::size_t(t)] = d;
        if (std::size_t(d) >= buckets.size()) buckets.resize(std::size_t(d) + 1);
        buckets[std::size_t(d)].push_back(t);
    };
    auto cost = [&](std::int32_t h) {
        const std::int32_t g = groupOf(groups, h);
        return g < 0 ? 0 : weight[std::size_t(g)];
    };
    for (std::size_t h = 0; h < mesh.twin.size(); ++h) {
        if (mesh.twin[h] < 0) offer(std::int32_t(h / 3), cost(std::int32_t(h)));
    }
    for (std::size_t level = 0; level < buckets.size(); ++level) {
        while (!buckets[level].empty()) {
            const std::int32_t t = buckets[level].back();
            buckets[level].pop_back();
            if (std::size_t(depth[std::size_t(t)]) != level) continue;  // reached lower since
            for (std::int32_t h = 3 * t; h < 3 * t + 3; ++h) {
                const std::int32_t across = mesh.twin[std::size_t(h)];
                if (across >= 0) offer(across / 3, std::int32_t(level) + cost(h));
            }
        }
    }
    result.kept.resize(m);
    for (std::size_t t = 0; t < m; ++t) result.kept[t] = depth[t] != INT_MAX && depth[t] % 2 == 1;
}

void labelHolePoints(const MeshTopology& mesh,
                     const EdgeGroups& groups,
                     const std::vector<std::int32_t>& bounding,
                     ArrayView<double> holePoints,
                     LabelResult& result) {
    const std::size_t m = mesh.triangleCount();
    std::vector<char> removed(m, 0);
    std::vector<std::int32_t> stack;
    auto open = [&](std::int32_t h) {
        const std::int32_t g = groupOf(groups, h);
        return g < 0 || bounding[std::size_t(g)] == 0;
    };
    auto remove = [&](std::int32_t t) {
        if (removed[std::size_t(t)]) return;
        removed[std::size_t(t)] = 1;
        stack.push_back(t);
    };
    for (std::size_t h = 0; h < mesh.twin.size(); ++h) {
        if (mesh.twin[h] < 0 && open(std::int32_t(h))) remove(std::int32_t(h / 3));
    }
    for (std::size_t i = 0; i + 1 < holePoints.size; i += 2) {
        const std::int32_t t = locateTriangle(mesh, &holePoints.data[i]);
        if (t < 0) {
            ++result.ignoredHolePoints;
        } else {
            remove(t);
        }
    }
    while (!stack.empty()) {
        const std::int32_t t = stack.back();
        stack.pop_back();
        for (std::int32_t h = 3 * t; h < 3 * t + 3; ++h) {
            const std::int32_t across = mesh.twin[std::size_t(h)];
            if (across >= 0 && open(h)) remove(across / 3);
        }
    }
    result.kept.resize(m);
    for (std::size_t t = 0; t < m; ++t) result.kept[t] = !removed[t];
}

}  // namespace

LabelResult labelTriangles(KeepRule rule,
                           const MeshTopology& mesh,
                           const EdgeGroups& groups,
                           const LineChains& lines,
                           const std::vector<char>& skip,
                           ArrayView<double> holePoints) {
    LabelResult result;
    switch (rule) {
        case KeepRule::kRings:
            labelRings(mesh, groups, lines, skip, result);
            break;
        case KeepRule::kEvenOdd:
            labelEvenOdd(mesh, groups, boundingCount(groups, lines, skip), result);
            break;
        case KeepRule::kHolePoints:
            labelHolePoints(mesh, groups, boundingCount(groups, lines, skip), holePoints, result);
            break;
        default:
            result.kept.assign(mesh.triangleCount(), 1);
            break;
    }
    return result;
}

}  // namespace ry
