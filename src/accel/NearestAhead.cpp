#include "accel/NearestAhead.h"

#include <algorithm>
#include <chrono>

#include "accel/HelperThread.h"
#include "accel/HugePages.h"
#include "mesh/MeshFields.h"

namespace {

/// Answers are published in batches: one release store per batch keeps the cache line holding
/// the counter from bouncing between the cores on every vertex.
constexpr std::size_t kBatch = 32;
/// Populate the spare memory this many positions beyond the helper's, in chunks of this size.
constexpr std::size_t kPopulateLead = 1 << 16;
constexpr std::size_t kPopulateChunk = std::size_t(2) << 20;
/// Queries ahead that a tree scout starts, and the levels it descends at once when it does.
/// A scout then goes one level a query, so the lead must cover the levels below the cached
/// ones: clustered points make deep trees, where a lead of 8 left scouts short of their leaf.
constexpr std::size_t kScoutLead = 16;
constexpr int kCachedLevels = 10;

}  // namespace

NearestAhead::NearestAhead(VertexKdTree&& tree,
                           const std::vector<int>& order,
                           std::size_t first,
                           const std::vector<PkMeshPoint3d>& vertices,
                           SpareRoom spare0,
                           SpareRoom spare1)
    : order_(order),
      vertices_(vertices),
      first_(first),
      spares_{spare0, spare1},
      claimed_{spare0.data ? 0 : spare0.bytes, spare1.data ? 0 : spare1.bytes},
      answers_(order.size()),
      ready_(first),
      readySeen_(first) {
    tree_ = std::move(tree);
    thread_ = std::thread([this] { run(); });
}

NearestAhead::~NearestAhead() {
    stop();
}

void NearestAhead::stop() {
    stopRequested_.store(true, std::memory_order_relaxed);
    if (thread_.joinable()) thread_.join();
}

// The helper reads only x and y of the records; the caller writes only their triangle indices,
// distinct fields, so the two never race.
void NearestAhead::run() {
    try {
        // Local copies of the arrays' addresses: the vectors' own headers share cache lines with
        // fields the caller writes on every insertion, and reading them through the references
        // each round (the calls and atomics below force the reloads) cost a cross-core miss.
        const std::size_t n = order_.size();
        const int* const order = order_.data();
        const PkMeshPoint3d* const vertices = vertices_.data();
        int* const answers = answers_.data();
        VertexKdTree::Scout scouts[kScoutLead];
        for (std::size_t i = first_; i < n; ++i) {
            if (stopRequested_.load(std::memory_order_relaxed)) return;
            // The insertions trail this loop; keep the memory they fill populated a stretch
            // beyond the position reached here, a chunk at a time.
            for (int k = 0; k < 2; ++k) {
                const SpareRoom& spare = spares_[k];
                const std::size_t wanted =
                    std::min(spare.bytes, (i - first_ + kPopulateLead) * spare.bytesPerPosition);
                while (claimed_[k].load(std::memory_order_relaxed) < wanted && populateChunk(k)) {
                }
            }
            // The order is shuffled, so every read misses: a scout descends the tree toward each
            // of the next kScoutLead points, one level a query below the top levels (which stay
            // cached), so that each query finds its way and its leaf fetched.
            if (i + kScoutLead + 2 < n) {
                __builtin_prefetch(&vertices[order[i + kScoutLead + 2]]);
            }
            if (i + kScoutLead < n) {
                VertexKdTree::Scout& scout = scouts[(i + kScoutLead) % kScoutLead];
                const double* q = vertexXY(vertices[order[i + kScoutLead]]);
                tree_.startScout(scout, q);
                tree_.advanceScout(scout, q, kCachedLevels);
            }
            for (std::size_t j = i + 1; j < i + kScoutLead && j < n; ++j) {
                VertexKdTree::Scout& scout = scouts[j % kScoutLead];
                if (scout.node >= 0) {
                    tree_.advanceScout(scout, vertexXY(vertices[order[j]]), 1);
                }
            }
            const int v = order[i];
            const double* p = vertexXY(vertices[v]);
            // The locator answers 0 for an empty tree (its caller starts from vertex 0).
            const int found = tree_.nearestThenInsert(v, p);
            answers[i] = found < 0 ? 0 : found;
            if ((i + 1) % kBatch == 0 || i + 1 == n) ready_.store(i + 1, std::memory_order_release);
        }
    } catch (...) {
        // An allocation failure in the tree: the caller goes on alone from the first position
        // not answered and meets the same failure itself if it recurs.
        failed_.store(true, std::memory_order_release);
    }
}

bool NearestAhead::populateChunk(int k) {
    const SpareRoom& spare = spares_[k];
    if (claimed_[k].load(std::memory_order_relaxed) >= spare.bytes) return false;
    const std::size_t at = claimed_[k].fetch_add(kPopulateChunk, std::memory_order_relaxed);
    if (at >= spare.bytes) return false;
    const auto start = std::chrono::steady_clock::now();
    populatePages(static_cast<const char*>(spare.data) + at,
                  std::min(kPopulateChunk, spare.bytes - at));
    const auto took = std::chrono::steady_clock::now() - start;
    // Both threads are busy in the shuffled mode, so population time is run time. Huge pages
    // made at a few hundred MB/s come from memory the host must back afresh (it took them back
    // while free); small pages are carved from the free fragments the guest still has, which
    // populate several times faster there. The rest of the room then gets small pages: a TLB
    // miss now and then costs less than the wait.
    if (took > slowPopulateChunkTime() &&
        !smallPages_[k].exchange(true, std::memory_order_relaxed)) {
        const std::size_t from = claimed_[k].load(std::memory_order_relaxed);
        if (from < spare.bytes) {
            adviseSmallPages(static_cast<const char*>(spare.data) + from, spare.bytes - from);
        }
    }
    return true;
}

bool NearestAhead::nearest(std::size_t position, int& vertex) {
    int spins = 0;
    while (position >= readySeen_) {
        readySeen_ = ready_.load(std::memory_order_acquire);
        if (position < readySeen_) break;
        if (failed_.load(std::memory_order_acquire)) {
            // The helper may have published more before failing.
            readySeen_ = ready_.load(std::memory_order_acquire);
            if (position < readySeen_) break;
            return false;
        }
        // Rather than wait, take over some of the helper's other work: populating the rooms.
        if (!populateChunk(0) && !populateChunk(1)) waitStep(spins);
    }
    vertex = answers_[position];
    return true;
}

bool NearestAhead::finish(VertexKdTree& tree) {
    stop();
    if (failed_.load(std::memory_order_acquire) || ready_.load() < order_.size()) return false;
    tree = std::move(tree_);
    return true;
}
