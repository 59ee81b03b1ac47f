// Insertion order: a fixed shuffle, then a multiscale Hilbert sort on keys that carry each
// vertex's position beside its index.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "PkMeshPoint3d.h"

/// A vertex of the insertion order with its coordinates beside it, so that the sort reads
/// contiguous memory and the insertions read positions by rank. The index is as wide as the
/// coordinates: the partition loops copy whole keys as 8-byte words, and a narrower field stored
/// and then reloaded as part of a wider word stalls store forwarding.
struct SortKey {
    double xy[2];
    std::int64_t index;
};

/// Where a sort publishes how far from the front its order is final (nothing when `ready` is
/// null); lets another thread insert right behind the sort.
struct SortProgress {
    std::atomic<std::size_t>* ready;
    const SortKey* base;
    /// [.., end) is final. Small ranges are left to the enclosing one, which keeps the counter's
    /// cache line from moving between the cores on every vertex.
    void finished(const SortKey* begin, const SortKey* end) const {
        constexpr std::ptrdiff_t kMinPublished = 32;
        if (ready && end - begin >= kMinPublished) {
            ready->store(std::size_t(end - base), std::memory_order_release);
        }
    }
};

/// The same permutation for a given length on every call (SplitMix64 from state 0).
void shuffleIndices(std::vector<int>& order);
void spatialSort(std::vector<int>& order, const std::vector<PkMeshPoint3d>& vertices);
/// Hilbert order of [begin, end), first split along `axis` (0 = x, 1 = y): ascending along `axis`
/// when `ux`, along the other axis when `uy` (descending otherwise).
void hilbertSort(std::vector<int>::iterator begin,
                 std::vector<int>::iterator end,
                 const std::vector<PkMeshPoint3d>& vertices,
                 int axis,
                 bool ux,
                 bool uy);

/// Fills keys[0, end - begin) with the vertices of [begin, end) and their coordinates.
void makeKeys(std::vector<int>::const_iterator begin,
              std::vector<int>::const_iterator end,
              const std::vector<PkMeshPoint3d>& vertices,
              SortKey* keys);
/// The spatial sort of [begin, end), finished from the front and published as it goes.
void spatialSortKeys(SortKey* begin, SortKey* end, const SortProgress& progress);
