#include "accel/SortAhead.h"

#include <system_error>

#include "accel/HelperThread.h"
#include "accel/HugePages.h"

// The helper reads only x and y of the records; the caller writes only their triangle indices,
// distinct fields, so the two never race. Nothing here allocates, so the helper cannot throw.
SortAhead::SortAhead(std::vector<int>&& order,
                     const std::vector<PkMeshPoint3d>& vertices,
                     SortKey* keys,
                     bool helper,
                     const void* spare,
                     std::size_t spareBytes)
    : order_(std::move(order)),
      vertices_(vertices),
      keys_(keys),
      spare_(spare),
      spareBytes_(spareBytes) {
    if (helper) {
        try {
            thread_ = std::thread([this] {
                run();
                populatePages(spare_, spareBytes_);
            });
            return;
        } catch (const std::system_error&) {
            // No thread to be had: sort here.
        }
    }
    run();
}

SortAhead::~SortAhead() {
    if (thread_.joinable()) thread_.join();
}

void SortAhead::run() {
    makeKeys(order_.begin(), order_.end(), vertices_, keys_);
    const std::size_t n = order_.size();
    std::vector<int>().swap(order_);  // the keys hold the order now
    spatialSortKeys(keys_, keys_ + n, SortProgress{&ready_, keys_});
    ready_.store(n, std::memory_order_release);
}

void SortAhead::waitSlow(std::size_t position) {
    int spins = 0;
    for (;;) {
        seen_ = ready_.load(std::memory_order_acquire);
        if (position < seen_) return;
        waitStep(spins);
    }
}
