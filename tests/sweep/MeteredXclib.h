#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "VirtualGrabber.h"
#include "detector/xclib.h"
#include "platform/Clock.h"
#include "sweep/Meter.h"
#include "sweep/MeteredPleora.h"

namespace sweep {

/// The frame grabber's seam with every call counted, and struck as the meter says; and with it the calls that the
/// transport makes past the seam, which the grabber's stand-in reports.
class MeteredXclib final : public xclib {
public:
    static constexpr int refusal = -23;
    static constexpr int timeout = -24;

    MeteredXclib(std::shared_ptr<xclib> seam, Meter& faults) : real(std::move(seam)), meter(faults) {}

    /// Counts the calls past the seam from now on.
    static void watch(Meter& meter) {
        grabber::VirtualGrabber::setWatcher([&meter](std::string_view function) -> std::optional<int> {
            if (withinSeam) return std::nullopt;
            // These functions are C: they fail, and throw nothing.
            if (meter.enter(std::string(function).c_str(), "", CanFail)) return refusal;
            return std::nullopt;
        });
    }

    int openEvents() const { return events; }

    int PIXCIopen(pxdstate* state, const char* parameters, const char* name, const char* file) override {
        return number("PIXCIopen", [&] { return real->PIXCIopen(state, parameters, name, file); });
    }
    void* eventCapturedFieldCreate2(pxdstate* state, int unitMap, int kind) override {
        if (meter.enter("eventCapturedFieldCreate2", "", CanThrow | CanFail)) return failedEvent();
        const Within seam;
        void* const event = real->eventCapturedFieldCreate2(state, unitMap, kind);
        if (event != nullptr) ++events;
        return event;
    }
    void eventCapturedFieldClose(pxdstate* state, int unitMap, void* event) override {
        effective("eventCapturedFieldClose", [&] {
            --events;
            real->eventCapturedFieldClose(state, unitMap, event);
        });
    }
    int setCameraLinkCCOut(pxdstate* state, int unitMap, int level) override {
        return number("setCameraLinkCCOut", [&] { return real->setCameraLinkCCOut(state, unitMap, level); });
    }
    int serialConfigure(pxdstate* state, int unitMap, int port, double baud, int dataBits, int parity, int stopBits,
                        int a, int b, int c) override {
        return number("serialConfigure", [&] {
            return real->serialConfigure(state, unitMap, port, baud, dataBits, parity, stopBits, a, b, c);
        });
    }
    int mesgFaultText(pxdstate* state, int unitMap, char* buffer, std::size_t size) override {
        const std::optional<Kind> kind = meter.enter("mesgFaultText", "", CanThrow | CanBeGarbage);
        if (kind) {
            meter.noteSpoiled("mesgFaultText", "", *kind);
            std::memset(buffer, '?', size);
            return 1;
        }
        if (!std::exchange(faultText, false)) {
            const Within seam;
            return real->mesgFaultText(state, unitMap, buffer, size);
        }
        std::strncpy(buffer, vendorText, size);
        return 1;
    }
    int imageZdims(pxdstate* state, int unitMap) override {
        return number(
            "imageZdims", [&] { return real->imageZdims(state, unitMap); }, CanBeShort, [] { return 1; });
    }
    int setVideoResolution(pxdstate* state, int unitMap, int width, int height, int a, int b) override {
        return number("setVideoResolution",
                      [&] { return real->setVideoResolution(state, unitMap, width, height, a, b); });
    }
    int setPixelFormatGrey(pxdstate* state, int unitMap, int bits, int a, int b, int taps, int c, int d) override {
        return number("setPixelFormatGrey",
                      [&] { return real->setPixelFormatGrey(state, unitMap, bits, a, b, taps, c, d); });
    }
    int goSnap(pxdstate* state, int unitMap, long buffer) override {
        return capture("goSnap", [&] { return real->goSnap(state, unitMap, buffer); });
    }
    int goLiveSeq(pxdstate* state, int unitMap, long start, long end, long increment, long count, int period) override {
        return capture("goLiveSeq",
                       [&] { return real->goLiveSeq(state, unitMap, start, end, increment, count, period); });
    }
    int capturedBuffer(pxdstate* state, int unitMap) override {
        return value("capturedBuffer", [&] { return real->capturedBuffer(state, unitMap); });
    }
    int capturedFieldCount(pxdstate* state, int unitMap) override {
        return value("capturedFieldCount", [&] { return real->capturedFieldCount(state, unitMap); });
    }
    int serialRead(pxdstate* state, int unitMap, int port, char* buffer, int size) override {
        const std::optional<Kind> kind = meter.enter(
            "serialRead", command, CanThrow | CanFail | CanTimeOut | TouchesDevice | CanBeShort | CanBeGarbage);
        if (kind == Kind::FailsOnce || kind == Kind::FailsOnward) return fail(refusal);
        if (kind == Kind::TimesOutOnce || kind == Kind::TimesOutOnward) {
            platform::sleepFor(std::chrono::milliseconds(timeoutMs));
            return 0;
        }
        const Within seam;
        const int count = real->serialRead(state, unitMap, port, buffer, size);
        if (count == 0 && meter.isGone()) meter.noteGone("serialRead", command);
        if (count == 0) platform::sleepFor(std::chrono::milliseconds(idleMs));
        if (!kind) return count;
        if (count >= 2) meter.noteSpoiled("serialRead", command, *kind);
        return static_cast<int>(MeteredPleora::spoil(*kind, buffer, static_cast<std::uint32_t>(std::max(count, 0))));
    }
    int serialWrite(pxdstate* state, int unitMap, int port, char* buffer, int size) override {
        command.assign(buffer, buffer + size - 1);
        platform::sleepFor(std::chrono::milliseconds(1));  // on the line
        const auto write = [&](int bytes) { return real->serialWrite(state, unitMap, port, buffer, bytes); };
        return number(
            "serialWrite", [&] { return write(size); }, CanBeShort, [&] { return write(size - 1); });
    }
    int writeuchar(pxdstate* state, int unitMap, long buffer, int x0, int y0, int x1, int y1, unsigned char* data,
                   std::size_t count, char* colour) override {
        const auto move = [&] { return real->writeuchar(state, unitMap, buffer, x0, y0, x1, y1, data, count, colour); };
        return number("writeuchar", move, CanBeShort, [&] { return move() / 2; });
    }
    int readuchar(pxdstate* state, int unitMap, long buffer, int x0, int y0, int x1, int y1, unsigned char* data,
                  std::size_t count, char* colour) override {
        const auto move = [&] { return real->readuchar(state, unitMap, buffer, x0, y0, x1, y1, data, count, colour); };
        return number("readuchar", move, CanBeShort, [&] { return move() / 2; });
    }
    int imageXdims(pxdstate* state, int unitMap) override {
        return number("imageXdims", [&] { return real->imageXdims(state, unitMap); });
    }
    int imageYdims(pxdstate* state, int unitMap) override {
        return number("imageYdims", [&] { return real->imageYdims(state, unitMap); });
    }
    int goUnLive(pxdstate* state, int unitMap) override {
        return number("goUnLive", [&] { return real->goUnLive(state, unitMap); });
    }
    int goAbortLive(pxdstate* state, int unitMap) override {
        return number("goAbortLive", [&] { return real->goAbortLive(state, unitMap); });
    }
    int setExsyncPrincMode(pxdstate* state, int unitMap, unsigned mode, unsigned princ) override {
        return number("setExsyncPrincMode", [&] { return real->setExsyncPrincMode(state, unitMap, mode, princ); });
    }
    int setExsyncPrin(pxdstate* state, int unitMap, unsigned exsync, unsigned prin) override {
        return number("setExsyncPrin", [&] { return real->setExsyncPrin(state, unitMap, exsync, prin); });
    }
    int imageZdim(pxdstate* state) override {
        return number("imageZdim", [&] { return real->imageZdim(state); });
    }
    int PIXCIclose(pxdstate* state) override {
        return number("PIXCIclose", [&] { return real->PIXCIclose(state); });
    }
    int videoFormatAsIncluded(pxdstate* state, int a) override { return real->videoFormatAsIncluded(state, a); }
    int videoFormatAsIncludedInit(pxdstate* state, int a) override { return real->videoFormatAsIncludedInit(state, a); }
    int goneLive(pxdstate* state, int unitMap) override {
        return value("goneLive", [&] { return real->goneLive(state, unitMap); });
    }
    pxdstate* XCLIBinstantiate() override {
        if (meter.enter("XCLIBinstantiate", "", CanThrow | CanFail)) return nullptr;
        const Within seam;
        return real->XCLIBinstantiate();
    }
    void XCLIBuninstantiate(pxdstate* state) override {
        effective("XCLIBuninstantiate", [&] { real->XCLIBuninstantiate(state); });
    }

private:
    /// While a call of the seam is on its way: what the stand-in reports then was counted here.
    struct Within {
        Within() { withinSeam = true; }
        ~Within() { withinSeam = false; }
        Within(const Within&) = delete;
        Within& operator=(const Within&) = delete;
    };

    int fail(int result) {
        platform::sleepFor(std::chrono::milliseconds(1));  // or a call that is repeated at once would stop time
        faultText = true;
        return result;
    }
    void* failedEvent() {
        faultText = true;
        return nullptr;
    }
    template <class Call, class Spoiled>
    int number(const char* name, Call&& call, unsigned further, Spoiled&& spoiled) {
        const std::optional<Kind> kind = meter.enter(name, command, CanThrow | CanFail | CanTimeOut | further);
        if (kind == Kind::FailsOnce || kind == Kind::FailsOnward) return fail(refusal);
        if (kind == Kind::TimesOutOnce || kind == Kind::TimesOutOnward) {
            platform::sleepFor(std::chrono::milliseconds(timeoutMs));
            return fail(timeout);
        }
        const Within seam;
        if (kind) {
            meter.noteSpoiled(name, command, *kind);
            return spoiled();
        }
        return call();
    }
    template <class Call>
    int number(const char* name, Call&& call) {
        return number(name, std::forward<Call>(call), 0U, [] { return 0; });
    }
    /// A capture that times out is one that is accepted and brings no frame.
    template <class Call>
    int capture(const char* name, Call&& call) {
        const std::optional<Kind> kind = meter.enter(name, "", CanThrow | CanFail | CanTimeOut | TouchesDevice);
        if (kind == Kind::FailsOnce || kind == Kind::FailsOnward) return fail(refusal);
        if (kind) return 0;
        if (meter.isGone()) meter.noteGone(name, "");
        const Within seam;
        return call();
    }
    /// A call without a result has had its effect when it throws.
    template <class Call>
    void effective(const char* name, Call&& call) {
        struct After {
            Call& call;
            ~After() {
                const Within seam;
                call();
            }
        } const after{call};
        meter.enter(name, "", CanThrow);
    }
    template <class Call>
    int value(const char* name, Call&& call) {
        meter.enter(name, "", CanThrow);
        const Within seam;
        return call();
    }

    static constexpr int timeoutMs = 10;
    static constexpr int idleMs = 5;  ///< fewer empty reads, each of which is swept
    inline static thread_local bool withinSeam = false;
    inline static thread_local bool faultText = false;  ///< by thread, so that no other takes it

    const std::shared_ptr<xclib> real;
    Meter& meter;
    std::atomic<int> events{0};
    std::string command;  ///< the newest on the serial line; under the library's own lock
};

}  // namespace sweep
