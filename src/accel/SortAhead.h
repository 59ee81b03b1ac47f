// The spatial sort run on a helper thread, with the insertions following right behind it.
#pragma once

#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

#include "PkMeshPoint3d.h"
#include "order/InsertionOrder.h"

/// The spatial sort of an order into keys[0, n), run on a helper thread when asked (and one can
/// be started), else at once. The caller reads a position once `waitFor` has returned for it:
/// the sort finishes the order from the front, and never touches a position again once it is
/// final, so the caller may also rewrite final positions.
class SortAhead {
public:
    /// Takes the order, and frees it once the keys are made.
    /// The helper then populates [spare, spare + spareBytes) (memory the insertions will fill;
    /// see populatePages).
    SortAhead(std::vector<int>&& order,
              const std::vector<PkMeshPoint3d>& vertices,
              SortKey* keys,
              bool helper,
              const void* spare = nullptr,
              std::size_t spareBytes = 0);
    ~SortAhead();  ///< joins the helper (after it finished the sort)
    SortAhead(const SortAhead&) = delete;
    SortAhead& operator=(const SortAhead&) = delete;
    /// Waits until positions up to and including `position` are final.
    void waitFor(std::size_t position) {
        if (position >= seen_) waitSlow(position);
    }

private:
    void run();
    void waitSlow(std::size_t position);

    std::vector<int> order_;
    const std::vector<PkMeshPoint3d>& vertices_;
    SortKey* keys_;
    const void* spare_;
    std::size_t spareBytes_;
    // The helper's counter and the caller's reading of it on lines of their own (the object
    // lives on the caller's stack, among locals it writes on every insertion).
    alignas(64) std::atomic<std::size_t> ready_{0};
    alignas(64) std::size_t seen_ = 0;
    std::thread thread_;
};
