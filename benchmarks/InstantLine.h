#pragma once

#include <array>
#include <string_view>

#include "benchmarks/Board.h"
#include "detector/baseDetector.h"
#include "detector/baseDetector/serialProtocol.h"
#include "detector/xclib_real.h"

namespace bench {

/// A detector with Kestrane electronics on Camera Link, whose serial line answers at once and costs nothing.
class InstantLine {
public:
    InstantLine() : real(Board::grabberSeam(*board.facade)) {
        Board::grabberSeam(*board.facade) = std::make_shared<Seam>();
    }
    ~InstantLine() { Board::grabberSeam(*board.facade) = real; }
    InstantLine(const InstantLine&) = delete;
    InstantLine& operator=(const InstantLine&) = delete;

    void exchange() {
        std::array<char, serial::replySize> reply{};
        board.core().SendCommandWithoutFlashStatusCheck(command.data(), command.size(), reply.data(),
                                                        serial::kestranePollDelayMs);
    }

    /// The two calls of the seam alone.
    void bareExchange() {
        std::array<char, serial::replySize> reply{};
        std::array<char, serial::commandSize> sent{};
        command.copy(sent.data(), command.size());
        xclib& seam = *Board::grabberSeam(*board.facade);
        seam.serialWrite(nullptr, 1, 0, sent.data(), static_cast<int>(command.size()) + 1);
        seam.serialRead(nullptr, 1, 0, reply.data(), static_cast<int>(reply.size()));
    }

private:
    static constexpr std::string_view command = "R1123";

    class Seam : public xclib_real {
    public:
        int serialRead(pxdstate* /*state*/, int /*unitMap*/, int /*port*/, char* buffer, int /*size*/) override {
            constexpr std::string_view reply = "S00042\r";
            return static_cast<int>(reply.copy(buffer, reply.size()));
        }
        int serialWrite(pxdstate* /*state*/, int /*unitMap*/, int /*port*/, char* /*buffer*/, int /*size*/) override {
            return 0;
        }
    };

    Board board{{TransportCL, "5101-kestrane"}};
    const std::shared_ptr<xclib> real;
};

}  // namespace bench
