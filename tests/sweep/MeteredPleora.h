#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "detector/PleoraLib.h"
#include "platform/Clock.h"
#include "sweep/Meter.h"

namespace sweep {

/// The eBUS seam with every call counted, and struck as the meter says. A call that is struck doesn't reach the device.
class MeteredPleora final : public PleoraLib {
public:
    MeteredPleora(std::shared_ptr<PleoraLib> seam, Meter& faults) : real(std::move(seam)), meter(faults) {}

    /// Buffers that were handed over and not given back.
    int heldBuffers() const { return held; }

    static constexpr std::uint32_t refusal = PvResult::Refused;

    void init() override {
        plain("init", [&] { real->init(); });
    }
    void deinit() override {
        const auto call = [&] {
            held = 0;  // buffers go with their pipeline
            real->deinit();
        };
        try {
            meter.enter("deinit", "", CanThrow);
        } catch (...) {
            call();  // a call without a result has had its effect when it throws
            throw;
        }
        call();
    }

    PvResult Dev_Connect(PvString address) override {
        return result("Dev_Connect", "", [&] { return real->Dev_Connect(address); });
    }
    PvResult Dev_NegotiatePacketSize() override {
        return result("Dev_NegotiatePacketSize", "", [&] { return real->Dev_NegotiatePacketSize(); });
    }
    PvResult Dev_SetStreamDestination(PvString address, std::uint16_t port) override {
        return result("Dev_SetStreamDestination", "", [&] { return real->Dev_SetStreamDestination(address, port); });
    }
    PvResult Dev_SetBooleanValue(PvString name, bool value) override {
        return result("Dev_Set", name.GetAscii(), [&] { return real->Dev_SetBooleanValue(name, value); });
    }
    PvResult Dev_SetEnumValue(PvString name, std::int64_t value) override {
        return result("Dev_Set", name.GetAscii(), [&] { return real->Dev_SetEnumValue(name, value); });
    }
    PvResult Dev_SetEnumValue(PvString name, PvString value) override {
        return result("Dev_Set", name.GetAscii(), [&] { return real->Dev_SetEnumValue(name, value); });
    }
    PvResult Dev_SetIntegerValue(PvString name, std::int64_t value) override {
        return result("Dev_Set", name.GetAscii(), [&] { return real->Dev_SetIntegerValue(name, value); });
    }
    PvResult Dev_GetIntegerValue(PvString name, std::int64_t& value) override {
        constexpr std::int64_t nonsense[] = {-1, std::int64_t{1} << 40};
        return result(
            "Dev_Get", name.GetAscii(), [&] { return real->Dev_GetIntegerValue(name, value); }, CanBeGarbage,
            [&](Kind kind) {
                meter.noteSpoiled("Dev_Get", name.GetAscii(), kind);
                value = nonsense[nonsenseGiven++ % std::size(nonsense)];
                return PvResult();
            });
    }
    PvResult Dev_GetFloatValue(PvString name, double& value) override {
        return result(
            "Dev_Get", name.GetAscii(), [&] { return real->Dev_GetFloatValue(name, value); }, CanBeGarbage,
            [&](Kind kind) {
                meter.noteSpoiled("Dev_Get", name.GetAscii(), kind);
                value = std::numeric_limits<double>::quiet_NaN();
                return PvResult();
            });
    }
    bool Dev_IsConnected() override {
        return answer("Dev_IsConnected", [&] { return real->Dev_IsConnected(); });
    }
    PvResult Dev_Disconnect() override {
        return result("Dev_Disconnect", "", [&] { return real->Dev_Disconnect(); });
    }

    PvResult Stream_Open(PvString address) override {
        return result("Stream_Open", "", [&] { return real->Stream_Open(address); });
    }
    PvString Stream_GetLocalIPAddress() override {
        return value("Stream_GetLocalIPAddress", [&] { return real->Stream_GetLocalIPAddress(); });
    }
    std::uint16_t Stream_GetLocalPort() override {
        return value("Stream_GetLocalPort", [&] { return real->Stream_GetLocalPort(); });
    }
    PvResult Stream_SetIntegerValue(PvString name, std::int64_t number) override {
        return result("Stream_Set", name.GetAscii(), [&] { return real->Stream_SetIntegerValue(name, number); });
    }
    bool Stream_IsOpen() override {
        return answer("Stream_IsOpen", [&] { return real->Stream_IsOpen(); });
    }
    PvResult Stream_Close() override {
        return result("Stream_Close", "", [&] { return real->Stream_Close(); });
    }

    void Pipeline_SetBufferSize(std::uint32_t size) override {
        plain("Pipeline_SetBufferSize", [&] { real->Pipeline_SetBufferSize(size); });
    }
    PvResult Pipeline_SetBufferCount(std::uint32_t count) override {
        return result("Pipeline_SetBufferCount", "", [&] { return real->Pipeline_SetBufferCount(count); });
    }
    PvResult Pipeline_Start() override {
        return result("Pipeline_Start", "", [&] { return real->Pipeline_Start(); });
    }
    bool Pipeline_IsStarted() override {
        return answer("Pipeline_IsStarted", [&] { return real->Pipeline_IsStarted(); });
    }
    PvResult Pipeline_Stop() override {
        return result("Pipeline_Stop", "", [&] { return real->Pipeline_Stop(); });
    }
    PvResult Pipeline_RetrieveNextBuffer(PvBuffer** place, PvResult* frame, std::int32_t timeoutMs) override {
        const auto take = [&] {
            PvResult taken = real->Pipeline_RetrieveNextBuffer(place, frame, timeoutMs);
            if (taken.IsOK()) ++held;
            return taken;
        };
        return result(
            "Pipeline_RetrieveNextBuffer", "", take, CanBeShort | CanBeGarbage,
            [&](Kind kind) {
                PvResult taken = take();
                if (!taken.IsOK()) return taken;
                meter.noteSpoiled("Pipeline_RetrieveNextBuffer", "", kind);
                *frame = PvResult(kind == Kind::ShortData ? PvResult::FrameIncomplete : PvResult::BufferTooSmall,
                                  vendorText);
                return taken;
            },
            timeoutMs);
    }
    PvResult Pipeline_RetrieveNextBuffer(PvBuffer** place, PvResult* frame) override {
        return Pipeline_RetrieveNextBuffer(place, frame, -1);
    }
    PvResult Pipeline_ReleaseBuffer(PvBuffer* buffer) override {
        if (!leaksBuffers) --held;  // it was given back, whatever becomes of that
        return result("Pipeline_ReleaseBuffer", "", [&] { return real->Pipeline_ReleaseBuffer(buffer); });
    }

    PvAcquisitionState State_GetState() override {
        return value("State_GetState", [&] { return real->State_GetState(); });
    }
    PvResult State_Stop() override {
        return result("State_Stop", "", [&] { return real->State_Stop(); });
    }
    PvResult State_Start() override {
        return result("State_Start", "", [&] { return real->State_Start(); });
    }

    PvResult IP_Open(PvDeviceSerial port) override {
        return result("IP_Open", "", [&] { return real->IP_Open(port); });
    }
    bool IP_IsOpened() override {
        return answer("IP_IsOpened", [&] { return real->IP_IsOpened(); });
    }
    PvResult IP_Close() override {
        return result("IP_Close", "", [&] { return real->IP_Close(); });
    }
    PvResult IP_Read(std::uint8_t* target, std::uint32_t size, std::uint32_t& count) override {
        return IP_Read(target, size, count, 0);
    }
    PvResult IP_Read(std::uint8_t* target, std::uint32_t size, std::uint32_t& count, std::uint32_t timeoutMs) override {
        const auto read = [&] { return real->IP_Read(target, size, count, timeoutMs); };
        return result(
            "IP_Read", command, read, CanBeShort | CanBeGarbage,
            [&](Kind kind) {
                PvResult done = read();
                if (count >= 2) meter.noteSpoiled("IP_Read", command, kind);
                count = spoil(kind, reinterpret_cast<char*>(target), count);
                return done;
            },
            static_cast<int>(timeoutMs), PvResult::Ok);
    }
    PvResult IP_FlushRxBuffer() override {
        return result("IP_FlushRxBuffer", "", [&] { return real->IP_FlushRxBuffer(); });
    }
    PvResult IP_Write(const std::uint8_t* source, std::uint32_t size, std::uint32_t& count) override {
        command.assign(source, source + size - 1);
        platform::sleepFor(failureTime);  // on the line
        return result(
            "IP_Write", command, [&] { return real->IP_Write(source, size, count); }, CanBeShort,
            [&](Kind kind) {
                meter.noteSpoiled("IP_Write", command, kind);
                return real->IP_Write(source, size - 1, count);
            });
    }

    PvString DevInfo_GetIPAddress() override { return real->DevInfo_GetIPAddress(); }
    std::uint32_t Interface_GetDeviceCount() override { return real->Interface_GetDeviceCount(); }
    void Interface_GetDeviceInfo(std::uint32_t index) override { real->Interface_GetDeviceInfo(index); }
    void System_SetDetectionTimeout(std::uint32_t timeoutMs) override { real->System_SetDetectionTimeout(timeoutMs); }
    PvResult System_Find() override { return real->System_Find(); }
    std::uint32_t System_GetInterfaceCount() override { return real->System_GetInterfaceCount(); }
    void System_GetInterface(std::uint32_t index) override { real->System_GetInterface(index); }
    std::uint32_t System_GetDeviceCount() const override { return real->System_GetDeviceCount(); }
    void System_GetDeviceInfo(std::uint32_t index) override { real->System_GetDeviceInfo(index); }
    PvBuffer* Buffer_GetBuffer() override {
        return value("Buffer_GetBuffer", [&] { return real->Buffer_GetBuffer(); });
    }
    PvBuffer** Buffer_GetBufferPtr() override {
        return value("Buffer_GetBufferPtr", [&] { return real->Buffer_GetBufferPtr(); });
    }
    std::uint8_t* Buffer_GetImagePointer() override {
        if (meter.enter("Buffer_GetImagePointer", "", CanThrow | CanFail)) return nullptr;
        return real->Buffer_GetImagePointer();
    }

    /// Shortens a reply to half of it, or replaces it; the carriage return stays. The bytes that are left.
    static std::uint32_t spoil(Kind kind, char* bytes, std::uint32_t count) {
        if (count < 2) return count;
        if (kind == Kind::ShortData) {
            const std::uint32_t kept = (count - 1) / 2;
            bytes[kept] = bytes[count - 1];
            return kept + 1;
        }
        std::fill(bytes, bytes + count - 1, '?');
        return count;
    }

    /// @name A broken double, for the oracle's own test
    /// @{
    bool leaksBuffers = false;
    bool swallowsFailures = false;
    std::uint32_t toldCode = refusal;
    /// @}

private:
    /// What every call with a result has in common; `spoiled` makes the call that brings other data.
    template <class Call, class Spoiled>
    PvResult result(const char* name, const std::string& detail, Call&& call, unsigned further, Spoiled&& spoiled,
                    int timeoutMs = ownTimeoutMs, std::uint32_t timeoutCode = PvResult::Timeout) {
        const std::optional<Kind> kind =
            meter.enter(name, detail, CanThrow | CanFail | CanTimeOut | TouchesDevice | further);
        if (!kind) {
            PvResult done = call();
            if (!done.IsOK() && meter.isGone()) {
                meter.noteGone(name, detail);
                platform::sleepFor(failureTime);
            }
            return done;
        }
        switch (*kind) {
            case Kind::FailsOnce:
            case Kind::FailsOnward:
                platform::sleepFor(failureTime);
                return swallowsFailures ? PvResult() : PvResult(toldCode, vendorText);
            case Kind::TimesOutOnce:
            case Kind::TimesOutOnward:
                platform::sleepFor(std::chrono::milliseconds(std::max(timeoutMs, 0)));
                return timeoutCode == PvResult::Ok ? PvResult() : PvResult(timeoutCode, vendorText);
            default:
                return spoiled(*kind);
        }
    }
    template <class Call>
    PvResult result(const char* name, const std::string& detail, Call&& call) {
        return result(name, detail, std::forward<Call>(call), 0U, [](Kind) { return PvResult(); });
    }
    template <class Call>
    std::invoke_result_t<Call> value(const char* name, Call&& call) {
        meter.enter(name, "", CanThrow);
        return call();
    }
    template <class Call>
    bool answer(const char* name, Call&& call) {
        return !meter.enter(name, "", CanThrow | CanFail) && call();
    }
    template <class Call>
    void plain(const char* name, Call&& call) {
        meter.enter(name, "", CanThrow);
        call();
    }

    static constexpr int ownTimeoutMs = 20;
    static constexpr std::chrono::milliseconds failureTime{1};  ///< or a call that is repeated at once would stop time

    const std::shared_ptr<PleoraLib> real;
    Meter& meter;
    std::atomic<int> held{0};
    std::size_t nonsenseGiven = 0;
    std::string command;  ///< the newest on the serial line; under the library's own lock
};

}  // namespace sweep
