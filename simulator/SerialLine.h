#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Clock.h"
#include "platform/Mutex.h"
#include "simulator/CommandInterpreter.h"
#include "simulator/Faults.h"

namespace simulator {

/// What the controller answers to a command.
struct Reply {
    std::string text;         ///< without its carriage return
    bool toRead = false;      ///< answers a register read
    platform::Time delay{0};  ///< what the controller takes before it answers
    bool silent = false;      ///< nothing answers
};

/// A part of a reply, and how long after the reply's own time it arrives.
struct ReplyPiece {
    std::string bytes;
    platform::Time delay{0};
};

/// What the line makes of a reply under the faults that strike now; nothing when it stays silent.
std::vector<ReplyPiece> disturbedReply(const Reply& reply, Faults& faults);

/// The detector's serial port: bytes to commands, replies to bytes with their time of arrival. Any thread may call.
class SerialLine {
public:
    /// 0 carries bytes in no time.
    void setBaud(int newBaud);

    /// The commands that these bytes complete.
    std::vector<std::string> take(std::string_view bytes);

    /// Sends the pieces of the answer to a command of `commandBytes`. The line keeps its order: a piece arrives after
    /// all that were sent before.
    void answer(std::size_t commandBytes, platform::Time delay, const std::vector<ReplyPiece>& pieces);

    std::size_t read(char* buffer, std::size_t capacity, platform::Time deadline);
    void dropArrived();

private:
    struct Arrival {
        platform::Time due;
        std::string bytes;
    };
    platform::Time wireTime(std::size_t bytes) const REQUIRES(mutex);

    platform::Mutex mutex;
    platform::Condition arrived;
    CommandAssembler assembler GUARDED_BY(mutex);
    std::deque<Arrival> input GUARDED_BY(mutex);
    platform::Time lastByteAt GUARDED_BY(mutex){0};
    platform::Time lastDue GUARDED_BY(mutex){0};  ///< of the last piece in `input`
    int baud GUARDED_BY(mutex) = 0;
};

}  // namespace simulator
