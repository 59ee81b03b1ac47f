// The shuffled insertion asks the locator, before each vertex, for the nearest vertex inserted so
// far; the answers depend only on the points and the order, not on the mesh. NearestAhead
// computes them on a helper thread, on its own tree fed exactly as the locator would be (the same
// tree, so the same answers, ties included), while the caller inserts the vertices behind it.
#pragma once

#include <atomic>
#include <cstddef>
#include <exception>
#include <thread>
#include <vector>

#include "PkMeshPoint3d.h"
#include "spatial/VertexKdTree.h"

/// Memory that the insertions fill front to back at `bytesPerPosition` bytes per position.
struct SpareRoom {
    const void* data = nullptr;
    std::size_t bytes = 0;
    std::size_t bytesPerPosition = 0;
};

class NearestAhead {
public:
    /// Starts the helper on `tree`, which answers for positions first, first + 1, ...
    /// of `order` and then receives that position's vertex. The three references must outlive
    /// this object and stay unchanged, except for the triangle indices of the records.
    /// Throws what starting a thread throws (nothing is started then). Along the way the helper
    /// populates each spare range a little ahead of the insertions (see populatePages).
    NearestAhead(VertexKdTree&& tree,
                 const std::vector<int>& order,
                 std::size_t first,
                 const std::vector<PkMeshPoint3d>& vertices,
                 SpareRoom spare0 = SpareRoom(),
                 SpareRoom spare1 = SpareRoom());
    /// Stops and joins the helper.
    ~NearestAhead();
    NearestAhead(const NearestAhead&) = delete;
    NearestAhead& operator=(const NearestAhead&) = delete;

    /// The nearest vertex before `position` (waits for the helper); false when the helper
    /// stopped early on an error and will not answer it.
    bool nearest(std::size_t position, int& vertex);
    /// The same without waiting: false when the answer is not there yet.
    bool peek(std::size_t position, int& vertex) {
        if (position >= readySeen_) {
            readySeen_ = ready_.load(std::memory_order_acquire);
            if (position >= readySeen_) return false;
        }
        vertex = answers_[position];
        return true;
    }
    /// Stops and joins the helper. When it answered every position, its tree (now holding every
    /// vertex of the order) is moved to `tree` and true is returned; otherwise `tree` is left
    /// alone.
    bool finish(VertexKdTree& tree);

private:
    void run();
    void stop();
    /// Populates the next unclaimed chunk of room k; false when none is left. The first chunk
    /// that populates slowly switches the rest of its room to small pages.
    bool populateChunk(int k);

    VertexKdTree tree_;
    const std::vector<int>& order_;
    const std::vector<PkMeshPoint3d>& vertices_;
    std::size_t first_;
    SpareRoom spares_[2];
    /// Bytes of each room handed out for populating (beyond the room's size when all are).
    /// Both threads take chunks: the helper as the insertions near them, the caller while it
    /// waits for an answer.
    std::atomic<std::size_t> claimed_[2];
    /// Set once a room's rest has been switched to small pages (see populateChunk).
    std::atomic<bool> smallPages_[2] = {false, false};
    std::vector<int> answers_;
    std::thread thread_;
    // What one thread writes sits on a cache line of its own, away from what the other reads
    // every round: a shared line would move between the cores on each write. (Padding rather
    // than alignas, which would send the object through the aligned operator new that not all
    // of the tests' allocation hooks provide.)
    /// Read by the helper every round, written only to stop it.
    std::atomic<bool> stopRequested_{false};
    [[maybe_unused]] char padBeforeReady_[64];
    /// Positions below it are answered (release by the helper, acquire by the caller).
    std::atomic<std::size_t> ready_;
    std::atomic<bool> failed_{false};
    [[maybe_unused]] char padBeforeCaller_[64];
    /// The caller's last reading of ready_.
    std::size_t readySeen_;
    [[maybe_unused]] char padAfterCaller_[64];
};
