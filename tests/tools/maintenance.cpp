#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <random>
#include <regex>
#include <sstream>
#include <utility>

#include "platform/VirtualClock.h"
#include "simulator/Rack.h"
#include "tests/tools/Signals.h"
#include "tests/tools/ToolRun.h"

namespace fs = std::filesystem;
using simulator::Fault;
using std::chrono::seconds;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

/// The maintenance commands on the virtual clock: they wait for seconds.
class MaintenanceCommands : public testing::Test {
protected:
    MaintenanceCommands() {
        simulator::Rack::instance().reset();
        fs::create_directories(folder);
    }
    ~MaintenanceCommands() override {
        simulator::Rack::instance().reset();
        fs::remove_all(folder);
    }
    std::string file(const char* name, const std::string& content) const {
        std::ofstream(folder / name, std::ios::binary) << content;
        return (folder / name).string();
    }
    static std::string image() {
        std::mt19937 random(3);
        std::string bytes(300000, '\0');
        for (char& byte : bytes) byte = static_cast<char>(random());
        return bytes;
    }
    std::shared_ptr<simulator::SimulatedDetector> hardware() const {
        return simulator::Rack::instance().find("sim:6112-kestrane");
    }
    platform::ScopedVirtualClock clock;
    const DefaultSignals signals;
    const fs::path folder = fs::temp_directory_path() / ("qrapi-maintenance-" + std::to_string(getpid()));
};

}  // namespace

TEST_F(MaintenanceCommands, FirmwareIsUploadedAndEqualsTheFile) {
    const std::string name = file("image.bin", image());
    const ToolRun dry = runTool({"firmware", "upload", name, "--sensor", "2", "--dry-run"});
    EXPECT_EQ(dry.status, 0);
    EXPECT_THAT(dry.out, HasSubstr("300000 bytes, 292 blocks of 1024 bytes will be sent to sensor 2, 992 bytes"));
    EXPECT_TRUE(hardware()->flashContent(2).empty());
    const ToolRun upload = runTool({"firmware", "upload", name, "--sensor", "2", "--yes"});
    EXPECT_EQ(upload.status, 0) << upload.err;
    EXPECT_THAT(upload.out, HasSubstr("292 blocks written to sensor 2"));
    EXPECT_EQ(hardware()->flashContent(2).size(), 292U * 1024U);
}

TEST_F(MaintenanceCommands, FailedUploadsSayWhatTheFlashHolds) {
    const std::string name = file("image.bin", image().substr(0, 10 * 1024));
    const struct {
        Fault fault;
        int occasion;
        const char* state;
    } cases[] = {
        {Fault::WrongChecksum, 7, "Stopped at block 7 of 10: the flash memory holds 6 blocks of the new firmware"},
        {Fault::SilentPacket, 3, "Stopped at block 3 of 10: the flash memory holds 2 blocks of the new firmware"},
        {Fault::RefusedErase, 1, "Nothing was erased"},
        {Fault::EndlessErase, 1, "The erase did not end"},
    };
    for (const auto& test : cases) {
        hardware()->faults().set(test.fault, {test.occasion});
        const ToolRun failed = runTool({"firmware", "upload", name, "--sensor", "2", "--yes"});
        EXPECT_EQ(failed.status, 1);
        EXPECT_THAT(failed.err, HasSubstr(test.state));
        hardware()->faults().clearAll();
        const ToolRun again = runTool({"firmware", "upload", name, "--sensor", "2", "--yes"});
        EXPECT_EQ(again.status, 0) << again.err;
    }
}

TEST_F(MaintenanceCommands, UploadAsksBeforeTheErase) {
    const std::string name = file("image.bin", image().substr(0, 2048));
    std::istringstream answer("no\n");
    std::streambuf* const before = std::cin.rdbuf(answer.rdbuf());
    const ToolRun declined = runTool({"firmware", "upload", name, "--sensor", "1"});
    std::cin.rdbuf(before);
    EXPECT_EQ(declined.status, 1);
    EXPECT_THAT(declined.out, HasSubstr("nothing was done"));
    EXPECT_TRUE(hardware()->flashContent(1).empty());
    EXPECT_EQ(runTool({"firmware", "upload", name, "--sensor", "10", "--yes"}).status, 2);
    EXPECT_EQ(runTool({"firmware", "upload", "/nonexistent", "--sensor", "1", "--yes"}).status, 1);
}

TEST_F(MaintenanceCommands, AnImageThatCannotBeWrittenIsRefusedUnlessAnEraseIsForced) {
    const std::pair<std::string, const char*> cases[] = {
        {"", "the file is empty"},
        {image().substr(0, 1023), "the file has 1023 bytes, less than one block of 1024"},
        {std::string(2048, '\xFF') + "tail", "no block of 1024 bytes holds anything but 255"},
        {std::string(16384 * 1024, '\xFF') + image().substr(0, 1024), "16385 blocks are too many: at most 16384"},
    };
    for (const auto& [content, reason] : cases) {
        SCOPED_TRACE(reason);
        const std::string name = file("useless.bin", content);
        for (const char* way : {"--yes", "--dry-run"}) {
            const ToolRun refused = runTool({"-d", "ge:nowhere", "firmware", "upload", name, "--sensor", "2", way});
            EXPECT_EQ(refused.status, 1);
            EXPECT_THAT(refused.err, HasSubstr(name + ": " + reason)) << "before the detector is opened";
        }
        const bool isErase = content.size() < 16384;
        EXPECT_EQ(runTool({"firmware", "upload", name, "--sensor", "2", "--yes", "--force"}).status, isErase ? 0 : 1);
    }
    EXPECT_THAT(runTool({"firmware", "upload", "/dev/null", "--sensor", "2"}).err, HasSubstr("not a regular file"));

    const std::string name = file("image.bin", image());
    actWhen([] { return true; }, [&] { file("image.bin", ""); });
    EXPECT_THAT(runTool({"firmware", "upload", name, "--sensor", "2", "--yes"}).err, HasSubstr("nothing was erased"));
}

TEST_F(MaintenanceCommands, AnImageIsDescribedByItsChecksumAndRecognisedAsText) {
    const std::string hex = ":10010000214601360121470136007EFE09D2190140\r\n";
    const std::pair<std::string, bool> cases[] = {
        {"123456789", true}, {hex + "K\xC3\xB6ln", true}, {hex + '\0', false}, {std::string(2048, '\xAA'), false}};
    for (const auto& [content, isText] : cases) {
        const std::string name = file("perhaps.hex", content);
        const ToolRun dry = runTool({"firmware", "upload", name, "--sensor", "1", "--dry-run", "--force"});
        EXPECT_EQ(dry.err.find("warning: " + name + " looks like text") != std::string::npos, isText) << content;
        EXPECT_EQ(dry.out.find("CRC-32 of the file 0xCBF43926,") != std::string::npos, content == "123456789");
    }
}

TEST_F(MaintenanceCommands, ASignalIsReportedImmediatelyAndObeyedWhereItIsSafe) {
    const std::vector<std::string> upload{"firmware", "upload", "", "--sensor", "2", "--yes"};
    const std::vector<std::string> reset{"power", "reset"};
    const std::vector<std::string> load{"config", "load", file("panel.cfg", "W000300004\nW000300004\nW001700005\n")};
    const auto blocks = [this] { return hardware()->flashContent(2).size() / 1024; };
    const auto exposures = [this] { return hardware()->readRegister(simulator::reg::exposureCount); };
    platform::Time start{};
    const auto after = [&](seconds time) { return [&, time] { return clock.now() > start + time; }; };
    const auto inTheOpen = [] { return true; };
    const struct {
        std::vector<std::string> line;
        int signal;
        std::function<bool()> when;
        const char* notice;
        std::function<bool()> isSafe;
    } cases[] = {
        {upload, SIGINT, inTheOpen, "ending before anything is erased", [&] { return blocks() == 0; }},
        {upload, SIGTERM, after(seconds(2)), "finishing the upload: the erase and 10", [&] { return blocks() == 10; }},
        {upload, SIGHUP, [&] { return blocks() == 3; }, "block 3 of 10; a second", [&] { return blocks() == 10; }},
        {reset, SIGTERM, inTheOpen, "ending before power reset", [&] { return exposures() == 12; }},
        {reset, SIGINT, after(seconds(3)), "finishing power reset", [&] { return exposures() == 1; }},
        {load, SIGHUP, inTheOpen, "ending before the first command", [&] { return exposures() == 12; }},
        {load, SIGTERM, [&] { return hardware()->readRegister(3) == 4; }, "finishing",
         [&] { return exposures() == 5; }},
    };
    for (auto test : cases) {
        SCOPED_TRACE(test.notice);
        simulator::Rack::instance().reset();
        hardware()->writeRegister(simulator::reg::exposureCount, 12);
        hardware()->setWireSpeed(115200);
        if (test.line.size() > 3) test.line[2] = file("image.bin", image().substr(0, 10 * 1024));
        start = clock.now();
        FlushedErrors errors;
        actWhen(test.when, [&] {
            // `timeout` sends its signal twice, and what reads the output may end by it.
            for (const int signal : {test.signal, test.signal, SIGPIPE}) std::raise(signal);
            EXPECT_TRUE(errors.waitForLine());
        });
        const ToolRun run = runTool(test.line, std::move(errors));
        EXPECT_EQ(run.status, 130) << run.err;
        EXPECT_THAT(run.err, HasSubstr(test.notice));
        EXPECT_TRUE(test.isSafe());
    }
}

TEST_F(MaintenanceCommands, ConfigurationIsCheckedLineByLineBeforeAnythingIsSent) {
    const std::string good = file("good.cfg", "# all sensors\nW000300004\r\nWC1\n");
    const std::string bad = file("bad.cfg", "W000300004\n\nnonsense\n# fine\n W100200005");
    const ToolRun checked = runTool({"config", "load", bad, "--check"});
    EXPECT_EQ(checked.status, 1);
    EXPECT_THAT(checked.out, StartsWith(bad + ":2: "));
    EXPECT_THAT(checked.out, HasSubstr(bad + ":3: "));
    EXPECT_THAT(checked.out, HasSubstr(bad + ":5: "));
    EXPECT_EQ(std::count(checked.out.begin(), checked.out.end(), '\n'), 3);
    EXPECT_EQ(runTool({"config", "load", bad}).status, 1);
    EXPECT_EQ(hardware()->readRegister(3), 0) << "not even the good line was sent";
    EXPECT_EQ(runTool({"config", "load", good, "--check"}).status, 0);
    EXPECT_EQ(hardware()->readRegister(3), 0);
    EXPECT_EQ(runTool({"config", "load", good}).status, 0);
    EXPECT_EQ(hardware()->readRegister(3), 4);
    EXPECT_EQ(runTool({"config", "load", folder.string(), "--check"}).status, 1);
    EXPECT_EQ(runTool({"config", "load", "/dev/zero"}).status, 1) << "a file without an end";
}

namespace {

/// Keeps what is printed, and interrupts the program after the second line.
class InterruptingText : public std::stringbuf {
protected:
    int sync() override {
        if (!wasRaised && std::count(view().begin(), view().end(), '\n') == 2) wasRaised = std::raise(SIGINT) == 0;
        return 0;
    }

private:
    bool wasRaised = false;
};

}  // namespace

TEST_F(MaintenanceCommands, WatchedTemperaturesHaveTheLocalTime) {
    setenv("TZ", "XST-03:30", 1);
    tzset();
    auto* const handlerBefore = std::signal(SIGINT, SIG_DFL);
    const std::string time = R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}\+03:30)";
    const struct {
        const char* form;
        std::string line;
    } rows[] = {
        {"--quiet", time + "  sensor 1: 35\\.0 C\n"},
        {"--json", R"(\{"time":")" + time + R"(","temperatures":\[\{"sensor":1,"temperature_celsius":35.0\}\]\}\n)"},
    };
    for (const auto& row : rows) {
        const std::array argv{"qrapi", "temperature", "--sensor", "1", "--watch", "5", row.form};
        InterruptingText text;
        std::ostream out(&text);
        std::ostringstream err;
        EXPECT_EQ(tool::run(static_cast<int>(argv.size()), argv.data(), out, err), tool::exitInterrupted);
        EXPECT_TRUE(std::regex_match(text.str(), std::regex("(" + row.line + "){2}"))) << text.str();
    }
    std::signal(SIGINT, handlerBefore);
    unsetenv("TZ");
    tzset();
}

TEST_F(MaintenanceCommands, RegistersCommandsTemperaturesAndPower) {
    const ToolRun write = runTool({"register", "write", "17", "12"});
    EXPECT_EQ(write.out, "12\n");
    EXPECT_EQ(hardware()->readRegister(17, 2), 12);
    EXPECT_EQ(runTool({"register", "read", "17", "--sensor", "2"}).out, "12\n");
    EXPECT_EQ(runTool({"send", "R1124"}).out, "S06112\n");
    const ToolRun dump = runTool({"register", "dump"});
    EXPECT_THAT(dump.out, HasSubstr("124   6112  model number"));
    hardware()->setTemperatures(41, 28);
    EXPECT_EQ(runTool({"temperature"}).out, "sensor 1: 41.0 C\nsensor 2: 41.0 C\nsensor 3: 28.0 C\n");
    EXPECT_EQ(runTool({"temperature", "--sensor", "3"}).out, "sensor 3: 28.0 C\n");
    for (const char* detector : {"ge:sim:6112", "ge:sim:6112-kestrane"}) {
        const ToolRun reset = runTool({"--detector", detector, "power", "reset"});
        EXPECT_EQ(reset.status, 0) << reset.err;
        EXPECT_THAT(reset.out, StartsWith("power on: binning mode 1, 3072 x 864 pixels"));
    }
    EXPECT_EQ(hardware()->readRegister(17), 1) << "power-on settings";
    const std::vector<std::vector<std::string>> refused{{"register", "read", "1000"},
                                                        {"register", "read", "5", "--sensor", "0"},
                                                        {"register", "write", "5", "65536"},
                                                        {"temperature", "--watch", "0"},
                                                        {"power"},
                                                        {"config"}};
    for (const auto& line : refused) EXPECT_EQ(runTool(line).status, 2) << line.front() << " " << line.back();
}
