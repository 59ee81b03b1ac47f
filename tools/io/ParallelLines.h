// Writing many lines of numbers on two cores: formatting costs more than the file system does, so
// a helper thread formats blocks of lines beside this one, which hands them to the file in order.
// The bytes are those of a single thread.
#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "io/OutputFile.h"
#include "io/Platform.h"

namespace rytri {

/// Writes lines [0, count) in order, `line(i, block)` formatting line i into a TextBlock; no
/// line is longer than `longest` characters.
template <class Line>
void writeLines(OutputFile& out, std::size_t count, std::size_t longest, Line line) {
    constexpr std::size_t kBlockBytes = std::size_t(1) << 20;
    const std::size_t perBlock = std::max<std::size_t>(1, kBlockBytes / longest);
    const std::size_t blocks = (count + perBlock - 1) / perBlock;
    auto format = [&](std::size_t b, TextBlock& text) {
        text.clear();
        const std::size_t end = std::min(count, (b + 1) * perBlock);
        for (std::size_t i = b * perBlock; i < end; ++i) line(i, text);
    };
    TextBlock own(perBlock * longest);
    auto alone = [&] {
        for (std::size_t b = 0; b < blocks; ++b) {
            format(b, own);
            out.write(own.text());
        }
    };
    if (blocks < 4 || !useSecondThread()) return alone();
    // The helper formats the odd blocks into two slots, taking turns, at most two blocks ahead.
    TextBlock slots[2] = {TextBlock(perBlock * longest), TextBlock(perBlock * longest)};
    bool ready[2] = {false, false};
    std::mutex mutex;
    std::condition_variable changed;
    auto helper = [&] {
        for (std::size_t b = 1; b < blocks; b += 2) {
            const int s = int((b / 2) % 2);
            {
                std::unique_lock<std::mutex> lock(mutex);
                changed.wait(lock, [&] { return !ready[s]; });
            }
            format(b, slots[s]);
            {
                std::lock_guard<std::mutex> lock(mutex);
                ready[s] = true;
            }
            changed.notify_all();
        }
    };
    std::thread thread;
    try {
        thread = std::thread(helper);
    } catch (const std::system_error&) {
        return alone();
    }
    for (std::size_t b = 0; b < blocks; b += 2) {
        format(b, own);
        out.write(own.text());
        if (b + 1 >= blocks) break;
        const int s = int((b / 2) % 2);
        {
            std::unique_lock<std::mutex> lock(mutex);
            changed.wait(lock, [&] { return ready[s]; });
        }
        out.write(slots[s].text());
        {
            std::lock_guard<std::mutex> lock(mutex);
            ready[s] = false;
        }
        changed.notify_all();
    }
    thread.join();
}

}  // namespace rytri
