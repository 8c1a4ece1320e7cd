#include "tools/RingReader.h"

#include <algorithm>

namespace tool {

int RingReader::deliveredAt(int fieldCount) const {
    return std::max(fieldCount - firstFieldCount + 1, 0);
}

int RingReader::oldestSafe(int count) const {
    // While the run goes on, the frame after the newest may be on its way into its block.
    const int begun = std::min(count + 1, frameCount);
    return std::max(begun - buffers, 0);
}

void RingReader::readAll(const std::function<int()>& fieldCount, const std::function<void(const Frame&)>& read,
                         const std::function<void(const Frame&)>& keep) {
    for (;;) {
        deliveredFrames = deliveredAt(fieldCount());
        const int safe = oldestSafe(deliveredFrames);
        if (next < safe) {
            skippedFrames += safe - next;
            next = safe;
        }
        if (next >= deliveredFrames) return;
        const Frame frame{next, next % buffers, firstFieldCount + next};
        read(frame);
        ++next;
        // Read while it was being overwritten? Then what was read is a mix of two frames.
        if (frame.number < oldestSafe(deliveredAt(fieldCount())))
            ++skippedFrames;
        else
            keep(frame);
    }
}

}  // namespace tool
