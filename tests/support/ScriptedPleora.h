#pragma once

#include <fmt/format.h>

#include <atomic>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "InternalUtils/Failure.h"
#include "detector/PleoraLib.h"
#include "platform/Mutex.h"
#include "support/RegisterScript.h"

namespace support {

/// The eBUS seam as a script: every call is written down as text, any call can be made to fail, the serial line is a
/// `RegisterScript`, frames are what a test puts into `frame`. Calls may come from any thread; the data is for a thread
/// that is alone.
class ScriptedPleora : public PleoraLib {
public:
    std::vector<std::string> calls;
    std::map<std::string, std::int64_t> integers{{"PayloadSize", 1536 * 864 * 2}};
    std::map<std::string, std::int64_t> traced;  ///< what the last read of a feature was given
    RegisterScript line;
    std::string failing;  ///< the call, as it is written down, that fails
    int failWith = 5;     ///< the code that it fails with
    std::atomic<bool> initialized{false};
    std::vector<std::uint8_t> frame;
    bool frameReady = true;
    int heldBuffers = 0;
    int roundWidthTo = 1;

    /// The calls that are neither serial traffic nor plain questions.
    std::vector<std::string> steps() const {
        std::vector<std::string> found;
        for (const std::string& call : calls)
            if (call.find("IP_Read") == std::string::npos && call.find("IP_Write") == std::string::npos &&
                call.find("IP_Flush") == std::string::npos)
                found.push_back(call);
        return found;
    }

    void init() override {
        initialized = true;
        note("init");
    }
    void deinit() override {
        initialized = false;
        note("deinit");
    }
    PvResult Dev_Connect(PvString address) override { return note(fmt::format("Dev_Connect {}", address.GetAscii())); }
    PvResult Dev_NegotiatePacketSize() override { return note("Dev_NegotiatePacketSize"); }
    PvResult Dev_SetStreamDestination(PvString address, std::uint16_t port) override {
        return note(fmt::format("Dev_SetStreamDestination {} {}", address.GetAscii(), port));
    }
    PvResult Dev_SetBooleanValue(PvString name, bool value) override {
        return note(fmt::format("{} = {}", name.GetAscii(), value));
    }
    PvResult Dev_SetEnumValue(PvString name, std::int64_t value) override {
        return note(fmt::format("{} = {}", name.GetAscii(), value));
    }
    PvResult Dev_SetEnumValue(PvString name, PvString value) override {
        return note(fmt::format("{} = {}", name.GetAscii(), value.GetAscii()));
    }
    PvResult Dev_GetIntegerValue(PvString name, std::int64_t& value) override {
        return note(fmt::format("{}?", name.GetAscii()),
                    [&] { traced[name.GetAscii()] = std::exchange(value, integers[name.GetAscii()]); });
    }
    PvResult Dev_SetIntegerValue(PvString name, std::int64_t value) override {
        const std::string feature = name.GetAscii();
        return note(fmt::format("{} = {}", feature, value), [&] {
            integers[feature] = feature == "Width" ? (value + roundWidthTo - 1) / roundWidthTo * roundWidthTo : value;
            integers["PayloadSize"] = integers["Width"] * integers["Height"] * 2;
        });
    }
    PvResult Dev_GetFloatValue(PvString name, double&) override { return note(fmt::format("{}?", name.GetAscii())); }
    bool Dev_IsConnected() override { return initialized; }
    PvResult Dev_Disconnect() override { return note("Dev_Disconnect"); }
    PvResult Stream_Open(PvString address) override { return note(fmt::format("Stream_Open {}", address.GetAscii())); }
    PvString Stream_GetLocalIPAddress() override {
        note("Stream_GetLocalIPAddress");
        return "10.0.0.1";
    }
    std::uint16_t Stream_GetLocalPort() override {
        note("Stream_GetLocalPort");
        return 4711;
    }
    PvResult Stream_SetIntegerValue(PvString name, std::int64_t value) override {
        return note(fmt::format("stream {} = {}", name.GetAscii(), value));
    }
    bool Stream_IsOpen() override { return initialized; }
    PvResult Stream_Close() override { return note("Stream_Close"); }
    void Pipeline_SetBufferSize(std::uint32_t size) override { note(fmt::format("Pipeline_SetBufferSize {}", size)); }
    PvResult Pipeline_SetBufferCount(std::uint32_t count) override {
        return note(fmt::format("Pipeline_SetBufferCount {}", count));
    }
    PvResult Pipeline_Start() override {
        started = true;
        return note("Pipeline_Start");
    }
    bool Pipeline_IsStarted() override { return started; }
    PvResult Pipeline_Stop() override {
        started = false;
        return note("Pipeline_Stop");
    }
    PvResult Pipeline_RetrieveNextBuffer(PvBuffer**, PvResult* operationResult, std::int32_t timeoutMs) override {
        *operationResult = resultFor("frame");
        if (!frameReady) return failed(30);
        ++heldBuffers;
        return note(fmt::format("Pipeline_RetrieveNextBuffer {}", timeoutMs));
    }
    PvResult Pipeline_RetrieveNextBuffer(PvBuffer** location, PvResult* result) override {
        return Pipeline_RetrieveNextBuffer(location, result, 0);
    }
    PvResult Pipeline_ReleaseBuffer(PvBuffer*) override {
        --heldBuffers;
        return note("Pipeline_ReleaseBuffer");
    }
    PvAcquisitionState State_GetState() override {
        return acquiring ? PvAcquisitionStateLocked : PvAcquisitionStateUnlocked;
    }
    PvResult State_Stop() override {
        acquiring = false;
        return note("State_Stop");
    }
    PvResult State_Start() override {
        acquiring = true;
        return note("State_Start");
    }
    PvResult IP_Open(PvDeviceSerial port) override { return note(fmt::format("IP_Open {}", static_cast<int>(port))); }
    bool IP_IsOpened() override { return initialized; }
    PvResult IP_Close() override { return note("IP_Close"); }
    PvResult IP_Read(std::uint8_t* target, std::uint32_t size, std::uint32_t& count) override {
        return IP_Read(target, size, count, 0);
    }
    PvResult IP_Read(std::uint8_t* target, std::uint32_t size, std::uint32_t& count, std::uint32_t timeoutMs) override {
        return note(fmt::format("IP_Read {}", timeoutMs), [&] {
            const std::string chunk = line.read();
            count = std::min(size, static_cast<std::uint32_t>(chunk.size()));
            std::copy_n(chunk.begin(), count, target);
        });
    }
    PvResult IP_FlushRxBuffer() override { return note("IP_FlushRxBuffer"); }
    PvResult IP_Write(const std::uint8_t* source, std::uint32_t size, std::uint32_t& count) override {
        count = size;
        return note("IP_Write", [&] { line.write(std::string(reinterpret_cast<const char*>(source), size)); });
    }
    PvString DevInfo_GetIPAddress() override { return ""; }
    std::uint32_t Interface_GetDeviceCount() override { return 0; }
    void Interface_GetDeviceInfo(std::uint32_t) override {}
    void System_SetDetectionTimeout(std::uint32_t) override {}
    PvResult System_Find() override { return note("System_Find"); }
    std::uint32_t System_GetInterfaceCount() override { return 0; }
    void System_GetInterface(std::uint32_t) override {}
    std::uint32_t System_GetDeviceCount() const override { return 0; }
    void System_GetDeviceInfo(std::uint32_t) override {}
    PvBuffer* Buffer_GetBuffer() override { return nullptr; }
    PvBuffer** Buffer_GetBufferPtr() override { return nullptr; }
    std::uint8_t* Buffer_GetImagePointer() override { return frame.data(); }

    static PvResult failed(int code) { return PvResult(static_cast<std::uint32_t>(code), "scripted failure"); }

protected:
    platform::Mutex mutex;

private:
    PvResult resultFor(const std::string& call) const { return call == failing ? failed(failWith) : PvResult(); }
    /// Writes the call down, makes its effect, and tells its result.
    PvResult note(const std::string& call, const std::function<void()>& effect = {}) {
        const platform::MutexLock lock(mutex);
        calls.push_back(call);
        if (effect) effect();
        return resultFor(call);
    }

    std::atomic<bool> started{false};
    std::atomic<bool> acquiring{false};
};

}  // namespace support
