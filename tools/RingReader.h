#pragma once

#include <functional>

namespace tool {

/// Keeps track of the frames of one limited live run in the ring: which are there to be read, and which were
/// overwritten before they were.
///
/// The run fills the buffers 0 to `buffers` - 1 over and over, so frame `n` of it, from 0, is in buffer `n` modulo
/// `buffers`. The field count tells how far it is: each frame behind the first adds 1. It counts a frame once its
/// block is filled; the block after the newest is being filled meanwhile.
///
/// One thread at a time.
class RingReader {
public:
    /// @param firstFieldCount  the field count once the first frame is there
    RingReader(int buffers, int frameCount, int firstFieldCount)
        : buffers(buffers), frameCount(frameCount), firstFieldCount(firstFieldCount) {}

    struct Frame {
        int number = 0;  ///< within the run, from 0
        int buffer = 0;
        int fieldCount = 0;
    };

    /// Reads every frame that is there and wasn't read yet.
    /// @param fieldCount  asks the detector
    /// @param read        copies the frame's block
    /// @param keep        is called with what was read and is known to be whole
    void readAll(const std::function<int()>& fieldCount, const std::function<void(const Frame&)>& read,
                 const std::function<void(const Frame&)>& keep);

    bool isFinished() const { return next >= frameCount; }
    int delivered() const { return deliveredFrames; }  ///< frames that the field count has told of
    int skipped() const { return skippedFrames; }      ///< frames that were overwritten before they were read

private:
    /// How many frames the field count tells of.
    int deliveredAt(int fieldCount) const;
    /// The oldest frame that nobody overwrites once `count` frames are there.
    int oldestSafe(int count) const;

    const int buffers;
    const int frameCount;
    const int firstFieldCount;
    int next = 0;  ///< the frame to be read
    int deliveredFrames = 0;
    int skippedFrames = 0;
};

}  // namespace tool
