#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <thread>

#include "detector/baseDetector/temperature.h"
#include "maintenance.h"
#include "platform/VirtualClock.h"
#include "support/CoreDouble.h"
#include "support/expectFailure.h"

using support::CoreDouble;
using support::expectFailure;
using support::RegisterScript;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

using Bytes = std::vector<std::uint8_t>;

/// A file that goes with the test.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& content)
        : name((std::filesystem::temp_directory_path() /
                ("qrapi-m-" + std::to_string(getpid()) + "-" + std::to_string(++count)))
                   .string()) {
        std::ofstream(name, std::ios::binary) << content;
    }
    explicit TemporaryFile(const Bytes& content) : TemporaryFile(std::string(content.begin(), content.end())) {}
    ~TemporaryFile() { std::filesystem::remove(name); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    const char* path() const { return name.c_str(); }

private:
    static inline int count = 0;
    std::string name;
};

Bytes blocks(std::initializer_list<int> fills) {
    Bytes image;
    for (const int fill : fills) image.insert(image.end(), firmwareBlockSize, static_cast<std::uint8_t>(fill));
    return image;
}

class Maintenance : public testing::Test {
protected:
    Maintenance() { CoreDouble::present(core, 6112); }

    std::chrono::milliseconds costOf(const std::function<void()>& call) {
        const platform::Time before = clock.now();
        call();
        return std::chrono::duration_cast<std::chrono::milliseconds>(clock.now() - before);
    }
    platform::ScopedVirtualClock clock;
    CoreDouble core;
};

}  // namespace

TEST(ConfigLines, AreClassifiedByTheirFirstCharacters) {
    using Kind = ConfigLineKind;
    const struct {
        std::string line;
        Kind kind;
        std::string command;
    } cases[] = {{"#W100200005\n", Kind::Comment, ""},
                 {"#\n", Kind::Comment, ""},
                 {"\n", Kind::Refused, ""},
                 {" #x\n", Kind::Refused, ""},
                 {"w100200005\n", Kind::Refused, ""},
                 {"M1\n", Kind::Refused, ""},
                 {"W100200005\n", Kind::Command, "W100200005"},
                 {"W100200005\r\n", Kind::Command, "W100200005"},
                 {"W100200005 remark\n", Kind::Command, "W100200005"},
                 {"R1124\n", Kind::Command, "R1124\n"},
                 {"WP1\n", Kind::Command, "WP1"},
                 {"RP1 x\n", Kind::Command, "RP1"},
                 {"WC1\n", Kind::Command, "WC1"},
                 {"RC0\n", Kind::Command, "RC0"},
                 {"WC\n", Kind::PauseOnly, ""},
                 {"RC\n", Kind::PauseOnly, ""},
                 {"W\n", Kind::PauseOnly, ""}};
    for (const auto& test : cases) {
        EXPECT_EQ(ClassifyConfigLine(test.line, false).kind, test.kind) << test.line;
        EXPECT_EQ(ClassifyConfigLine(test.line, false).command, test.command) << test.line;
        const bool skipped = test.command == "WC1" || test.command == "RC0";
        EXPECT_EQ(ClassifyConfigLine(test.line, true).kind, skipped ? Kind::Skipped : test.kind) << test.line;
    }
}

TEST_F(Maintenance, ConfigurationFileIsReplayedLineByLine) {
    const std::string tooLong = "W200300007" + std::string(300, 'W') + "\n";
    const TemporaryFile file("# setup\nW100200005\r\nWC1\nRC\nWP1\n" + tooLong + "W000300004");
    core.IsKestrane();
    const auto cost = costOf([&] { core.LoadSensorConfigFile(file.path()); });
    EXPECT_THAT(core.line.commands, ElementsAre("R1129", "W100200005", "WP1", "W200300007", "W000300004"));
    EXPECT_EQ(cost, std::chrono::milliseconds(5 * 100 + 4 * 11));
    const TemporaryFile bad("W100200005\n\nW000300004\n");
    core.line.commands.clear();
    const auto failure =
        expectFailure([&] { core.LoadSensorConfigFile(bad.path()); },
                      "The command being sent is not recognized as a valid command!", DerrSerialCommand);
    EXPECT_THAT(failure->what(), HasSubstr("through baseDetector::LoadSensorConfigFile"));
    EXPECT_THAT(core.line.commands, ElementsAre("W100200005")) << "the line ends the file behind what was sent";
    expectFailure([&] { core.LoadSensorConfigFile("/nonexistent/file"); }, "Unable to open file!", DerrFile);
}

TEST(Firmware, BlocksPacketsAndChecksums) {
    EXPECT_EQ(ReverseBits(0xA1), 0x85);
    EXPECT_EQ(CountFirmwareBlocks(Bytes(1023, 0)), 0U);
    EXPECT_EQ(CountFirmwareBlocks(Bytes(2048, 255)), 0U);
    EXPECT_EQ(CountFirmwareBlocks(blocks({255, 1, 255, 255})), 2U);
    EXPECT_EQ(CountFirmwareBlocks(Bytes(1024 * 3 + 100, 7)), 3U);
    Bytes image = blocks({3, 9});
    EXPECT_EQ(FirmwareChecksum(image.data(), 1024), 0);
    image[1500] ^= 0x42;
    EXPECT_EQ(FirmwareChecksum(&image[1024], 1024), 0x42);
    Bytes large(1024 * 65, 0);
    const auto fifth = MakeFirmwarePacket(large, 4, 2);
    EXPECT_EQ(std::string(fifth.begin(), fifth.begin() + 6), std::string("WFD2\x00\x10", 6));
    const auto last = MakeFirmwarePacket(large, 64, 9);
    EXPECT_EQ(std::string(last.begin(), last.begin() + 6), std::string("WFD9\x01\x00", 6));
    EXPECT_EQ(last.size(), 1030U);
}

/// Erased flash, with one other byte in it or none, read from a pipe: so much that no file of it is wanted.
class ErasedFlash {
public:
    ErasedFlash(std::size_t size, std::optional<std::size_t> otherByte) {
        if (pipe(ends.data()) != 0) throw std::runtime_error("no pipe");
        writer = std::thread([this, size, otherByte] {
            std::vector<char> chunk(65536);
            for (std::size_t sent = 0; sent < size; sent += chunk.size()) {
                chunk.assign(std::min(chunk.size(), size - sent), '\xFF');
                if (otherByte && *otherByte - sent < chunk.size()) chunk[*otherByte - sent] = 0;
                if (write(ends[1], chunk.data(), chunk.size()) < 0) break;
            }
            close(ends[1]);
        });
    }
    ~ErasedFlash() {
        for (std::vector<char> rest(65536); read(ends[0], rest.data(), rest.size()) > 0;) continue;
        writer.join();
        close(ends[0]);
    }
    ErasedFlash(const ErasedFlash&) = delete;
    ErasedFlash& operator=(const ErasedFlash&) = delete;
    std::string path() const { return "/dev/fd/" + std::to_string(ends[0]); }

private:
    std::array<int, 2> ends{};
    std::thread writer;
};

TEST_F(Maintenance, BehindTheLargestImageThereMayBeErasedFlashThatEnds) {
    constexpr std::size_t largest = 16384 * firmwareBlockSize;
    const struct {
        std::size_t size;
        std::optional<std::size_t> otherByte;
        std::optional<std::size_t> packets;  ///< none: refused
    } cases[] = {{firmwareBlockSize, 0, 1},
                 {largest + 3100, 0, 1},
                 {largest + firmwareBlockSize, largest, {}},
                 {largest + 100, largest + 50, 0},
                 {17 * largest, {}, {}}};
    core.IsKestrane();
    core.line.hook = [](const std::string& command) -> std::vector<std::string> {
        return {command.rfind("WFD", 0) == 0 ? "S00255\r" : "S00000\r"};
    };
    testing::internal::CaptureStdout();
    for (const auto& [size, otherByte, packets] : cases) {
        SCOPED_TRACE(size);
        const ErasedFlash flash(size, otherByte);
        core.line.commands.clear();
        const auto upload = [&] { core.UploadFirmware(flash.path().c_str(), 1, false); };
        if (packets) {
            upload();
            EXPECT_EQ(core.line.commands.size(), 2 + *packets);
        } else {
            expectFailure(upload,
                          "The firmware image is too large: at most 16384 blocks of 1024 bytes can be addressed!",
                          DerrBadRequest);
            EXPECT_TRUE(core.line.commands.empty()) << "nothing is erased for it";
        }
    }
    testing::internal::GetCapturedStdout();
}

TEST_F(Maintenance, EraseIsPolledOnceASecondAndJudgedByItsStatus) {
    const TemporaryFile blank(Bytes(2048, 255));
    core.IsKestrane();
    std::string eraseReply = "OK\r";
    std::vector<std::string> statuses;  ///< the last one stays
    core.line.hook = [&](const std::string& command) -> std::vector<std::string> {
        if (command.rfind("WFE", 0) == 0) return {eraseReply};
        const std::string status = statuses.front();
        if (statuses.size() > 1) statuses.erase(statuses.begin());
        return {status + "\r"};
    };
    std::string output;
    const auto upload = [&](std::vector<std::string> told) {
        statuses = std::move(told);
        core.line.commands.clear();
        testing::internal::CaptureStdout();
        const platform::Time before = clock.now();
        std::string text;
        try {
            core.UploadFirmware(blank.path(), 9, false);
        } catch (const std::exception& failure) {
            text = failure.what();
        }
        output = testing::internal::GetCapturedStdout();
        return std::pair(text.substr(0, text.find(" (code")),
                         std::chrono::duration_cast<std::chrono::milliseconds>(clock.now() - before).count());
    };
    using Ending = std::pair<std::string, std::int64_t>;
    constexpr int exchangeMs = 11;
    const auto rounds = [](int count) { return exchangeMs + count * (1000 + exchangeMs); };
    EXPECT_EQ(upload({"S00001", "S0", "S000000", "X00003", "S00002"}), Ending("", rounds(5) + 5000));
    EXPECT_THAT(core.line.commands, ElementsAre("WFE9", "RFS9", "RFS9", "RFS9", "RFS9", "RFS9"))
        << "a blank image writes nothing";
    EXPECT_EQ(output, "Write completed to sensor ID 9. Time taken " + std::to_string(rounds(5) + 5000) + " ms\n");
    EXPECT_EQ(upload({"S00003"}), Ending("Firmware erase failed.", rounds(60)));
    EXPECT_EQ(upload({"E"}), Ending("Received error from flash status command.", rounds(1)));
    EXPECT_EQ(upload({"Sabcde"}).first, "invalid stoi argument");
    eraseReply = "E\r";
    EXPECT_EQ(upload({"S00000"}).first,
              "Received error from flash erase command, this detector may not support remote programming.");
}

TEST_F(Maintenance, EachBlockIsSentInOrderUntilAReplyIsNotItsChecksum) {
    Bytes image = blocks({255, 1, 255, 2, 255});
    image[3 * 1024] = 0x40;  // makes the fourth block's checksum 0x40 ^ 2, which is 0x42 here as there
    const TemporaryFile file(image);
    core.IsKestrane();
    std::string fourth;
    core.line.hook = [&](const std::string& command) -> std::vector<std::string> {
        if (command.rfind("WFD", 0) != 0) return {"S00000\r"};
        return {command[5] == 12 ? fourth : "S00000\r"};
    };
    const auto upload = [&](const std::string& reply) {
        fourth = reply;
        core.line.commands.clear();
        testing::internal::CaptureStdout();
        const auto failure = support::failureOf([&] { core.UploadFirmware(file.path(), 1, false); });
        testing::internal::GetCapturedStdout();
        return failure;
    };
    for (const int sensor : {-1, 10})
        expectFailure([&] { core.UploadFirmware(file.path(), sensor, false); },
                      "Invalid sensor number. The sensor number for a firmware upload must be between 0-9!",
                      DerrBadRequest, sensor);
    for (const auto& [path, error] : {std::pair("/nonexistent", ENOENT), {"/tmp", EISDIR}})
        expectFailure([&, &name = path] { core.UploadFirmware(name, 1, false); }, "Failed to open file.",
                      DerrBadRequest, error);
    EXPECT_FALSE(upload("S00066\r"));
    ASSERT_EQ(core.line.commands.size(), 2U + 4U) << "blank blocks are sent, but not behind the last other one";
    for (std::size_t block = 0; block < 4; ++block) {
        const std::string& packet = core.line.commands[2 + block];
        EXPECT_EQ(packet.size(), firmwarePacketSize);
        EXPECT_EQ(packet.substr(0, 6), std::string("WFD1\0", 5) + static_cast<char>(4 * block));
    }
    for (const char* reply : {"S00067\r", "S66\r", "S00066x\r", "S00066\r\r", "X00066\r", "E\r", "\r"}) {
        const auto failure = upload(reply);
        ASSERT_TRUE(failure) << reply;
        EXPECT_THAT(failure->what(), testing::StartsWith("Firmware write failed, bad checksum. (code 5")) << reply;
        EXPECT_EQ(core.line.commands.size(), 2U + 4U) << "nothing is sent again";
    }
    fourth = std::string("\0\r", 2);
    testing::internal::CaptureStdout();
    EXPECT_THROW(core.UploadFirmware(file.path(), 1, false), std::out_of_range)
        << "the standard failure of a substring";
    testing::internal::GetCapturedStdout();
}

TEST_F(Maintenance, DiagnosticFileGrowsByEachPacketBeforeItIsSent) {
    namespace fs = std::filesystem;
    const TemporaryFile file(blocks({0, 1}));
    const fs::path before = fs::current_path();
    const fs::path folder = fs::temp_directory_path() / ("qrapi-m-" + std::to_string(getpid()) + "-diagnostics");
    fs::create_directories(folder / "C:" / "tmp");
    fs::current_path(folder);  // the name is relative where drives have no letters
    core.IsKestrane();
    core.line.hook = [](const std::string& command) -> std::vector<std::string> {
        if (command.rfind("WFD", 0) == 0) return RegisterScript::silence();
        return {"S00000\r"};
    };
    std::string expected = "87\n70\n68\n52\n0\n0\n";
    for (int byte = 0; byte < 1024; ++byte) expected += "0\n";
    expected += "\n";
    for (int upload = 0; upload < 2; ++upload)
        expectFailure([&] { core.UploadFirmware(file.path(), 4, false); }, "Problem sending serial command WFD4",
                      DerrSerialCommand);
    std::ifstream written(folder / "C:" / "tmp" / "flashcmd.txt", std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(written), {}), expected + expected);
    fs::current_path(before);
    fs::remove_all(folder);
}

TEST(Temperatures, RawReadingsBecomeDegrees) {
    const platform::ScopedVirtualClock clock;
    CoreDouble core;
    EXPECT_NEAR(core.ConvertTemp(2048, 12, 8250.0F, 25.0F, 3950), 25.0F, 0.001F);
    EXPECT_NEAR(core.ConvertTemp(2048, 12, 10000.0F, 25.0F, 3950), 1 / (std::log(0.825) / 3950 + 1 / 298.15) - 273.15,
                0.001);
    expectFailure([&] { core.ConvertTemp(1, 40, 1.0F, 25.0F, 1); }, "The converter must have between 1 and 30 bits!",
                  DerrBadRequest, 40);
    const std::pair<const char*, std::optional<int>> replies[] = {
        {"Sx0123,x0,x0", 0x123}, {"Sx0,x0,x0", 0},   {"SxaF,x1,x2", 0xAF},
        {"S0123,x0,x0", {}},     {"Sx,x0,x0", {}},   {"Sx1,x0", {}},
        {"Sx1,x0,x0,x0", {}},    {"Xx1,x0,x0", {}},  {"Sx1,0,x0", {}},
        {"Sx1,x0,x", {}},        {"", {}},           {"Sxg,x0,x0", {}},
        {"Sx-1,x0,x0", {}},      {"Sx-0,x0,x0", {}}, {"Sx123456789AB,x0,x0", {}}};
    for (const auto& [reply, reading] : replies) EXPECT_EQ(parseAuxiliaryReading(reply), reading) << reply;
    EXPECT_EQ(auxiliaryTemperature(0), 0.0F);
    EXPECT_EQ(auxiliaryTemperature(721), 0.0F) << "colder than any resistance";
    EXPECT_EQ(auxiliaryTemperature(5406), 0.0F) << "no resistance left";
    const std::pair<int, float> auxiliary[] = {
        {722, -94.4544F}, {1000, -17.6726F}, {1500, 2.6214F}, {3000, 35.9353F}, {4095, 61.8986F}};
    for (const auto& [reading, celsius] : auxiliary) EXPECT_NEAR(auxiliaryTemperature(reading), celsius, 0.0001F);
    EXPECT_NEAR(core.ConvertTemp(1000, 10, 10000.0F, 25.0F, 3950), -37.8306F, 0.001F);
    EXPECT_NEAR(core.ConvertTemp(30000, 16, 5000.0F, 20.0F, 3435), 11.9364F, 0.001F);
    CoreDouble other;
    CoreDouble::present(other, 8131, 1);
    EXPECT_THROW(other.GetDetectorTemp(1), std::out_of_range);
}

TEST_F(Maintenance, KestraneReadingsAskOnceAndPollAHundredTimes) {
    CoreDouble kestrane;
    CoreDouble::present(kestrane, 6112, 1);
    kestrane.IsKestrane();
    kestrane.GetModelNumber();
    std::vector<std::string> replies;  ///< to reads of register 109, to "M1" and "RM8"; the last one stays
    kestrane.line.hook = [&](const std::string& command) -> std::vector<std::string> {
        if (command != "R1109" && command != "M1" && command != "RM8") return {};
        const std::string reply = replies.front();
        if (replies.size() > 1) replies.erase(replies.begin());
        return {reply + "\r"};
    };
    const auto sent = [&](const std::string& command) {
        return std::count(kestrane.line.commands.begin(), kestrane.line.commands.end(), command);
    };
    const auto ask = [&](int sensor, std::vector<std::string> answers) {
        replies = std::move(answers);
        kestrane.line.commands.clear();
        return kestrane.GetDetectorTemp(sensor);
    };
    EXPECT_EQ(ask(2, {"S00517", "S32768", "S04863"}), 255.0F) << "of 0x12FF the low byte";
    EXPECT_THAT(kestrane.line.writes(), ElementsAre("W010933285")) << "the other bits of 517 are kept";
    EXPECT_EQ(sent("R2109"), 0);
    EXPECT_EQ(sent("R1109"), 3);
    EXPECT_EQ(costOf([&] { EXPECT_EQ(ask(1, {"S32800"}), 0.0F); }).count(), 100 * 10);
    EXPECT_EQ(sent("R1109"), 1 + 100);

    EXPECT_NEAR(ask(3, {"X", "Sx0,x0,x0", "Sx5DC,x0,x0"}), 2.6214F, 0.0001F);
    EXPECT_EQ(sent("RM8"), 2);
    const std::pair<std::vector<std::string>, int> bad[] = {
        {{"E"}, 0}, {{"X", "S5DC,x0,x0"}, 1}, {{"X", "Sx0,x0,x0"}, 100}};
    for (const auto& [answers, reads] : bad) {
        expectFailure([&, &told = answers] { ask(3, told); }, "Problem sending serial command!", DerrSerialCommand);
        EXPECT_EQ(sent("RM8"), reads);
    }
    kestrane.modelNumber = 5309;
    EXPECT_EQ(ask(2, {"X"}), 0.0F);
    EXPECT_TRUE(kestrane.line.commands.empty()) << "no probe, no command";
}

TEST_F(Maintenance, LowPowerWithoutAnAnswerFailsAndKeepsTheCache) {
    CoreDouble kestrane;
    CoreDouble::present(kestrane, 6112, 1);
    kestrane.IsKestrane();
    kestrane.binningMode = Bin4x4;
    kestrane.line.hook = [](const std::string&) { return RegisterScript::silence(); };
    const auto cost = costOf([&] {
        expectFailure([&] { static_cast<baseDetector&>(kestrane).PowerSwitch(false); },
                      "Detector was not responsive after switching to low power.", DerrTransport);
    });
    EXPECT_GE(cost, std::chrono::milliseconds(7000));
    EXPECT_EQ(kestrane.binningMode.get(), Bin4x4);
}

TEST_F(Maintenance, PowerOnForgetsTheSettingsThenTakesUpTheFrameSizeThenTheTiming) {
    core.GetModelNumber();
    core.binningMode = Bin2x2;
    core.line.commands.clear();
    core.transportCalls.clear();
    core.line.hook = [this](const std::string& command) -> std::vector<std::string> {
        EXPECT_THAT(core.transportCalls, ElementsAre("Update")) << command;
        return {};
    };
    static_cast<baseDetector&>(core).PowerSwitch(true);
    EXPECT_EQ(core.binningMode.get(), Bin1x1);
    EXPECT_FALSE(core.line.wasSent("R1124")) << "the model stays known";
}
