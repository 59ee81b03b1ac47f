// Insertion order: a fixed SplitMix64 shuffle, then a multiscale Hilbert sort (the first eighth,
// recursively refined the same way, is sorted separately and stays ahead of the rest), so that
// each walk starts next to its target while the early vertices still spread over the domain.
#include "order/InsertionOrder.h"

#include <algorithm>
#include <cstdint>

#include "mesh/MeshFields.h"

namespace {

/// SplitMix64; restarts from state 0 on every shuffle, so a given length always gives the same
/// permutation.
struct SplitMix64 {
    std::uint64_t state = 0;
    std::uint64_t next() {
        state += 0x9E3779B97F4A7C15ull;
        std::uint64_t z = state;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
};

/// Orders [lo, hi) ascending (or descending when !up) along `axis`; for the small ranges left
/// by the selection below.
void insertionSort(SortKey* lo, SortKey* hi, int axis, double sign) {
    for (SortKey* i = lo + 1; i < hi; ++i) {
        // The key is read from the array, not from the copy below: indexing a local by the axis
        // would send the copy through the stack.
        const double key = sign * i->xy[axis];
        if (!(key < sign * i[-1].xy[axis])) continue;
        const SortKey v = *i;
        SortKey* j = i;
        do {
            *j = j[-1];
            --j;
        } while (j > lo && key < sign * j[-1].xy[axis]);
        *j = v;
    }
}

/// Puts the entry a full sort would put at `nth` there, with no entry after it ordered before it
/// and none before it ordered after it. Quickselect with a branchless Lomuto partition: the
/// comparisons on random coordinates are unpredictable, so avoiding the branch is what pays. The
/// direction is folded into a sign so that one loop serves both. After too many rounds (many
/// equal coordinates) it hands over to the library's introselect, which bounds the worst case.
/// Moves the entries whose signed key is below `pivot` (or not above it, when `orEqual`) to the
/// front of [lo, hi), branch-free; returns the end of that front part.
SortKey* partitionBelow(
    SortKey* lo, SortKey* hi, int axis, double sign, double pivot, bool orEqual) {
    SortKey* store = lo;
    for (SortKey* i = lo; i < hi; ++i) {
        const double key = sign * i->xy[axis];
        const bool before = orEqual ? key <= pivot : key < pivot;
        const SortKey tmp = *i;
        *i = *store;
        *store = tmp;
        store += before;
    }
    return store;
}

void selectNth(SortKey* lo, SortKey* nth, SortKey* hi, int axis, bool up) {
    const double sign = up ? 1.0 : -1.0;
    // Large ranges: bracket the wanted rank between two keys drawn from an evenly spaced sample,
    // and cut the range into below / between / above in two passes. The wanted entry almost
    // always falls in the thin middle part, so the range shrinks by about the sample's
    // resolution per round instead of by half.
    constexpr int kSample = 256;
    constexpr int kMargin = 24;
    while (hi - lo > 4096) {
        const std::ptrdiff_t m = hi - lo;
        double sample[kSample];
        for (int i = 0; i < kSample; ++i) {
            sample[i] = sign * lo[(m * i) / kSample + m / (2 * kSample)].xy[axis];
        }
        std::sort(sample, sample + kSample);
        const int rank = int(double(nth - lo) / double(m) * kSample);
        const double low = sample[std::max(rank - kMargin, 0)];
        const double high = sample[std::min(rank + kMargin, kSample - 1)];
        SortKey* a = partitionBelow(lo, hi, axis, sign, low, false);
        if (nth < a) {
            hi = a;
            continue;
        }
        SortKey* b = partitionBelow(a, hi, axis, sign, high, true);
        if (nth >= b) {
            lo = b;
            continue;
        }
        if (low == high) return;  // [a, b) holds one key only: any of its entries is the median
        lo = a;
        hi = b;
        break;
    }
    int rounds = 0;
    while (hi - lo > 16) {
        if (++rounds > 64) {
            auto cmp = [axis, sign](const SortKey& a, const SortKey& b) {
                return sign * a.xy[axis] < sign * b.xy[axis];
            };
            std::nth_element(lo, nth, hi, cmp);
            return;
        }
        SortKey* mid = lo + (hi - lo) / 2;
        const double a = sign * lo->xy[axis];
        const double b = sign * mid->xy[axis];
        const double c = sign * hi[-1].xy[axis];
        SortKey* median = (a < b) ? ((b < c) ? mid : (a < c ? hi - 1 : lo))
                                  : ((a < c) ? lo : (b < c ? hi - 1 : mid));
        std::swap(*median, hi[-1]);
        const double pivot = sign * hi[-1].xy[axis];
        SortKey* store = lo;  // invariant: [lo, store) holds the entries before the pivot
        for (SortKey* i = lo; i < hi - 1; ++i) {
            const bool before = sign * i->xy[axis] < pivot;
            const SortKey tmp = *i;
            *i = *store;
            *store = tmp;
            store += before;
        }
        std::swap(*store, hi[-1]);
        if (store == nth) return;
        if (nth < store) {
            hi = store;
        } else {
            lo = store + 1;
        }
    }
    insertionSort(lo, hi, axis, sign);
}

/// Puts the median of [lo, hi) by the axis and direction (ascending when `up`) at the middle,
/// lesser entries before it and greater after; returns the middle.
SortKey* hilbertSplit(SortKey* lo, SortKey* hi, int axis, bool up) {
    if (lo >= hi) return lo;
    SortKey* mid = lo + (hi - lo) / 2;
    selectNth(lo, mid, hi, axis, up);
    return mid;
}

// Median-split Hilbert curve: split along `axis`, then each half along the other axis; three
// quarters recurse and the fourth continues the loop, so the recursion depth stays logarithmic.
// Ranges are finished from the front: when a call returns, every position before its end is
// final.
void hilbertSortKeys(
    SortKey* begin, SortKey* end, int axis, bool ux, bool uy, const SortProgress& progress) {
    SortKey* const first = begin;
    while (end - begin > 1) {
        const int other = 1 - axis;
        SortKey* m2 = hilbertSplit(begin, end, axis, ux);
        SortKey* m1 = hilbertSplit(begin, m2, other, uy);
        SortKey* m3 = hilbertSplit(m2, end, other, !uy);
        hilbertSortKeys(begin, m1, other, uy, ux, progress);
        hilbertSortKeys(m1, m2, axis, ux, uy, progress);
        hilbertSortKeys(m2, m3, axis, ux, uy, progress);
        begin = m3;
        axis = other;
        const bool nextUx = !uy;
        uy = !ux;
        ux = nextUx;
    }
    progress.finished(first, end);
}

std::vector<SortKey> makeKeysOf(std::vector<int>::const_iterator begin,
                                std::vector<int>::const_iterator end,
                                const std::vector<PkMeshPoint3d>& vertices) {
    std::vector<SortKey> keys(std::size_t(end - begin));
    makeKeys(begin, end, vertices, keys.data());
    return keys;
}

constexpr SortProgress kUnpublished{nullptr, nullptr};

}  // namespace

void spatialSortKeys(SortKey* begin, SortKey* end, const SortProgress& progress) {
    SortKey* middle = begin;
    const std::ptrdiff_t m = end - begin;
    if (m > 64) {
        middle = begin + std::ptrdiff_t(double(m) * 0.125);
        spatialSortKeys(begin, middle, progress);
    }
    hilbertSortKeys(middle, end, 0, false, false, progress);
}

void makeKeys(std::vector<int>::const_iterator begin,
              std::vector<int>::const_iterator end,
              const std::vector<PkMeshPoint3d>& vertices,
              SortKey* keys) {
    constexpr std::ptrdiff_t kPrefetchDistance = 8;  // the order is shuffled: every read misses
    for (auto it = begin; it != end; ++it) {
        if (end - it > kPrefetchDistance)
            __builtin_prefetch(&vertices[std::size_t(it[kPrefetchDistance])]);
        const double* p = vertexXY(vertices[std::size_t(*it)]);
        *keys++ = SortKey{{p[0], p[1]}, *it};
    }
}

void shuffleIndices(std::vector<int>& order) {
    SplitMix64 generator;
    for (std::size_t i = 0; i < order.size(); ++i) {
        const std::uint64_t j = generator.next() % std::uint64_t(i + 1);
        std::swap(order[i], order[std::size_t(j)]);
    }
}

void hilbertSort(std::vector<int>::iterator begin,
                 std::vector<int>::iterator end,
                 const std::vector<PkMeshPoint3d>& vertices,
                 int axis,
                 bool ux,
                 bool uy) {
    std::vector<SortKey> keys = makeKeysOf(begin, end, vertices);
    hilbertSortKeys(keys.data(), keys.data() + keys.size(), axis, ux, uy, kUnpublished);
    for (const SortKey& k : keys) *begin++ = int(k.index);
}

void spatialSort(std::vector<int>& order, const std::vector<PkMeshPoint3d>& vertices) {
    std::vector<SortKey> keys = makeKeysOf(order.begin(), order.end(), vertices);
    spatialSortKeys(keys.data(), keys.data() + keys.size(), kUnpublished);
    for (std::size_t i = 0; i < keys.size(); ++i) order[i] = int(keys[i].index);
}
