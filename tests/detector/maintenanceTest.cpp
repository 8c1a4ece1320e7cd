#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <random>

#include "QuorinDetector.h"
#include "detector/baseDetector/temperature.h"
#include "maintenance.h"
#include "platform/VirtualClock.h"
#include "simulator/Rack.h"
#include "support/CoreDouble.h"
#include "support/LogCapture.h"
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

Bytes randomImage(std::size_t size) {
    std::mt19937 random(7);
    Bytes image(size);
    for (auto& byte : image) byte = static_cast<std::uint8_t>(random());
    return image;
}

Bytes blocks(std::initializer_list<int> fills) {
    Bytes image;
    for (const int fill : fills) image.insert(image.end(), firmwareBlockSize, static_cast<std::uint8_t>(fill));
    return image;
}

class Maintenance : public testing::Test {
protected:
    Maintenance() {
        simulator::Rack::instance().reset();
        CoreDouble::present(core, 6112);
    }
    ~Maintenance() override { simulator::Rack::instance().reset(); }

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
        Kind onGigE;
    } cases[] = {
        {"#W100200005\n", Kind::Comment, "", Kind::Comment},
        {"#\n", Kind::Comment, "", Kind::Comment},
        {"\n", Kind::Refused, "", Kind::Refused},
        {" #x\n", Kind::Refused, "", Kind::Refused},
        {"w100200005\n", Kind::Refused, "", Kind::Refused},
        {"M1\n", Kind::Refused, "", Kind::Refused},
        {"W100200005\n", Kind::Command, "W100200005", Kind::Command},
        {"W100200005\r\n", Kind::Command, "W100200005", Kind::Command},
        {"W100200005 remark\n", Kind::Command, "W100200005", Kind::Command},
        {"R1124\n", Kind::Command, "R1124\n", Kind::Command},
        {"WP1\n", Kind::Command, "WP1", Kind::Command},
        {"RP1 x\n", Kind::Command, "RP1", Kind::Command},
        {"WC1\n", Kind::Command, "WC1", Kind::Skipped},
        {"RC0\n", Kind::Command, "RC0", Kind::Skipped},
        {"WC\n", Kind::PauseOnly, "", Kind::PauseOnly},
        {"RC\n", Kind::PauseOnly, "", Kind::PauseOnly},
        {"W\n", Kind::PauseOnly, "", Kind::PauseOnly},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(ClassifyConfigLine(test.line, false).kind, test.kind) << test.line;
        EXPECT_EQ(ClassifyConfigLine(test.line, false).command, test.command) << test.line;
        EXPECT_EQ(ClassifyConfigLine(test.line, true).kind, test.onGigE) << test.line;
    }
}

TEST_F(Maintenance, ConfigurationFileIsReplayedLineByLine) {
    const std::string tooLong = "W200300007" + std::string(300, 'W') + "\n";
    const TemporaryFile file("# setup\nW100200005\r\nWC1\nRC\nWP1\n" + tooLong + "W000300004");
    core.IsKestrane();
    const auto cost = costOf([&] { core.LoadSensorConfigFile(file.path()); });
    EXPECT_THAT(core.line.commands, ElementsAre("R1129", "W100200005", "WP1", "W200300007", "W000300004"));
    EXPECT_EQ(cost, std::chrono::milliseconds(5 * 100 + 4 * 11));
}

TEST_F(Maintenance, BadConfigurationLineEndsTheFileBehindWhatWasSent) {
    const TemporaryFile file("W100200005\n\nW000300004\n");
    const auto failure =
        expectFailure([&] { core.LoadSensorConfigFile(file.path()); },
                      "The command being sent is not recognized as a valid command!", DerrSerialCommand);
    EXPECT_THAT(failure->what(), HasSubstr("through baseDetector::LoadSensorConfigFile"));
    EXPECT_THAT(core.line.writes(), ElementsAre("W100200005"));
    expectFailure([&] { core.LoadSensorConfigFile("/nonexistent/file"); }, "Unable to open file!", DerrFile);
    const TemporaryFile empty("");
    const std::size_t sent = core.line.commands.size();
    EXPECT_EQ(costOf([&] { core.LoadSensorConfigFile(empty.path()); }).count(), 0);
    EXPECT_EQ(core.line.commands.size(), sent);
}

TEST(Firmware, BlocksPacketsAndChecksums) {
    EXPECT_EQ(ReverseBits(0x01), 0x80);
    EXPECT_EQ(ReverseBits(0x0F), 0xF0);
    EXPECT_EQ(ReverseBits(0xA1), 0x85);
    EXPECT_EQ(ReverseBits(0xFF), 0xFF);
    EXPECT_EQ(CountFirmwareBlocks({}), 0U);
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

TEST_F(Maintenance, FirmwareReachesTheFlashOfItsSensor) {
    const auto hardware = simulator::Rack::instance().find("sim:6112-kestrane");
    QuorinDetector detector(TransportGE, 0, "sim:6112-kestrane");
    detector.OpenBoard();
    Bytes image = randomImage(300000);
    std::fill_n(image.begin() + 5 * 1024, 1024, std::uint8_t{255});
    image[0] = 0x0D;
    image[1] = 0x00;
    const TemporaryFile file(image);
    testing::internal::CaptureStdout();
    EXPECT_NO_THROW(detector.UploadFirmware(file.path(), 2, true));
    const std::string output = testing::internal::GetCapturedStdout();
    const std::size_t sent = 300000 / 1024;
    EXPECT_THAT(output, testing::StartsWith("Erase started\nErase completed\nWrite started\nBlock 1/292 written.\n\n"));
    EXPECT_THAT(output, HasSubstr("Block 292/292 written.\n\nWrite completed to sensor ID 2. Time taken "));
    EXPECT_THAT(output, testing::EndsWith(" ms\n"));
    Bytes expected(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(sent * 1024));
    for (auto& byte : expected) byte = ReverseBits(byte);
    EXPECT_EQ(hardware->flashContent(2), expected);
    EXPECT_TRUE(hardware->flashContent(1).empty());
}

TEST_F(Maintenance, FailedUploadsTellWhereTheyStoppedAndTheNextOneSucceeds) {
    using simulator::Fault;
    const auto hardware = simulator::Rack::instance().find("sim:6112-kestrane");
    QuorinDetector detector(TransportGE, 0, "sim:6112-kestrane");
    detector.OpenBoard();
    const Bytes image = randomImage(10 * 1024);
    const TemporaryFile file(image);
    const struct {
        Fault fault;
        int occasion;
        const char* text;
        Derr code;
        std::size_t written;
    } cases[] = {
        {Fault::WrongChecksum, 7, "Firmware write failed, bad checksum.", DerrTransport, 7 * 1024},
        {Fault::SilentPacket, 3, "Problem sending serial command WFD2", DerrSerialCommand, 10 * 1024},
        {Fault::RefusedErase, 1,
         "Received error from flash erase command, this detector may not support remote programming.", DerrTransport,
         0},
        {Fault::EndlessErase, 1, "Firmware erase failed.", DerrTransport, 0},
    };
    testing::internal::CaptureStdout();
    for (const auto& test : cases) {
        hardware->faults().set(test.fault, {test.occasion});
        const auto failure = support::failureOf([&] { detector.UploadFirmware(file.path(), 2, false); });
        ASSERT_TRUE(failure) << test.text;
        EXPECT_THAT(failure->what(), testing::StartsWith(test.text));
        EXPECT_EQ(failure->GetCode(), test.code);
        hardware->faults().clearAll();
        EXPECT_NO_THROW(detector.UploadFirmware(file.path(), 2, false)) << test.text;
        EXPECT_EQ(hardware->flashContent(2)[0], ReverseBits(image[0]));
    }
    testing::internal::GetCapturedStdout();
}

TEST_F(Maintenance, BadUploadsAreRefusedBeforeAnythingIsSent) {
    const TemporaryFile file(blocks({1}));
    for (const int sensor : {-1, 10})
        expectFailure([&] { core.UploadFirmware(file.path(), sensor, false); },
                      "Invalid sensor number. The sensor number for a firmware upload must be between 0-9!",
                      DerrBadRequest, sensor);
    expectFailure([&] { core.UploadFirmware("/nonexistent", 1, false); }, "Failed to open file.", DerrBadRequest,
                  ENOENT);
    expectFailure([&] { core.UploadFirmware("/tmp", 1, false); }, "Failed to open file.", DerrBadRequest, EISDIR);
    EXPECT_TRUE(core.line.commands.empty());
}

TEST_F(Maintenance, EraseIsPolledOnceASecondAndJudgedByItsStatus) {
    const TemporaryFile file(Bytes(2048, 255));
    core.IsKestrane();
    std::vector<std::string> statuses;
    core.line.hook = [&](const std::string& command) -> std::vector<std::string> {
        if (command.rfind("WFE", 0) == 0) return {"OK\r"};
        if (statuses.empty()) return {"S00002\r"};
        const std::string status = statuses.front();
        statuses.erase(statuses.begin());
        return {status + "\r"};
    };
    const auto upload = [&] {
        testing::internal::CaptureStdout();
        const auto failure = support::failureOf([&] { core.UploadFirmware(file.path(), 1, false); });
        return std::pair(failure, testing::internal::GetCapturedStdout());
    };
    statuses = {"S00001", "S0", "S000000", "X00003"};
    const auto cost = costOf([&] { EXPECT_FALSE(upload().first); });
    EXPECT_GE(cost, std::chrono::milliseconds(5 * 1000 + 5000)) << "four rounds that go on, one that ends, the pause";
    EXPECT_EQ(core.line.commands.back(), "RFS1") << "a blank image writes nothing";
    statuses = {"E"};
    EXPECT_THAT(upload().first->what(), testing::StartsWith("Received error from flash status command."));
    statuses = {"Sabcde"};
    testing::internal::CaptureStdout();
    EXPECT_THROW(
        {
            try {
                core.UploadFirmware(file.path(), 1, false);
            } catch (const std::invalid_argument& failure) {
                EXPECT_STREQ(failure.what(), "invalid stoi argument");
                throw;
            }
        },
        std::invalid_argument);
    testing::internal::GetCapturedStdout();
}

TEST_F(Maintenance, UploadPausesBeforeEachPollAndBeforeTheWritesWhateverIsWritten) {
    const TemporaryFile file(Bytes(1023, 7));
    core.IsKestrane();
    std::string status = "S00000\r";
    core.line.hook = [&](const std::string& command) -> std::vector<std::string> {
        return {command == "WFE9" ? "EE\r" : status};
    };
    testing::internal::CaptureStdout();
    const auto cost = costOf([&] { core.UploadFirmware(file.path(), 9, false); });
    EXPECT_EQ(cost.count(), 11 + 1000 + 11 + 5000);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Write completed to sensor ID 9. Time taken 6022 ms\n");
    EXPECT_THAT(core.line.commands, ElementsAre("R1129", "WFE9", "RFS9"));
    status = "S00003\r";
    core.line.commands.clear();
    const auto patience = costOf([&] {
        expectFailure([&] { core.UploadFirmware(file.path(), 9, false); }, "Firmware erase failed.", DerrTransport);
    });
    EXPECT_EQ(core.line.commands.size(), 1U + 60U);
    EXPECT_EQ(patience.count(), 11 + 60 * (1000 + 11));
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

TEST_F(Maintenance, PacketsOnTheLineEndByTheirLengthAndAStrayPartIsGivenUp) {
    const auto hardware = simulator::Rack::instance().find("sim:6112-kestrane");
    const auto ask = [&](const std::string& bytes) {
        hardware->serialWrite(bytes);
        std::array<char, 100> reply{};
        const std::size_t count =
            hardware->serialRead(reply.data(), reply.size(), clock.now() + std::chrono::milliseconds(10));
        return std::string(reply.data(), count);
    };
    std::string data = std::string("\r\0\r", 3) + "R1124\r" + std::string(1024 - 9, '\x5A');
    std::string packet = std::string("WFD2\0\0", 6) + data;
    EXPECT_EQ(ask("WFE2\r"), "A\r");
    EXPECT_EQ(ask("RFS2\r"), "S00001\r");
    EXPECT_EQ(ask(packet + "\r"), "E\r") << "the erase is running";
    EXPECT_EQ(ask("R1418\r"), "S00000\r") << "an erase is no flash register write";
    clock.advance(std::chrono::seconds(3));
    EXPECT_EQ(ask("RFS2\r"), "S00000\r");
    EXPECT_EQ(ask(packet.substr(0, 700)), "");
    EXPECT_EQ(ask("R1124\r"), "") << "taken for the packet's data";
    clock.advance(std::chrono::milliseconds(501));
    EXPECT_EQ(ask("R1124\r"), "S06112\r");
    EXPECT_EQ(ask(packet.substr(0, 3)), "");
    char checksum[16];
    std::snprintf(checksum, sizeof(checksum), "S%05d\r",
                  FirmwareChecksum(reinterpret_cast<const std::uint8_t*>(data.data()), data.size()));
    EXPECT_EQ(ask(packet.substr(3) + "\r"), checksum);
    EXPECT_EQ(hardware->flashContent(2), Bytes(data.begin(), data.end()));
    EXPECT_EQ(ask(packet + "x\r"), "E\r") << "one byte too many";
    EXPECT_EQ(ask("WFE3\r"), "E\r") << "there are two sensors";
}

TEST_F(Maintenance, ReplyWithoutTextIsTheStandardFailure) {
    const TemporaryFile file(blocks({1}));
    core.IsKestrane();
    core.line.hook = [](const std::string& command) -> std::vector<std::string> {
        if (command.rfind("RFS", 0) == 0) return {"S00000\r"};
        if (command.rfind("WFD", 0) == 0) return {std::string("\0\r", 2)};
        return {"A\r"};
    };
    EXPECT_THROW(
        {
            try {
                core.UploadFirmware(file.path(), 1, false);
            } catch (const std::out_of_range& failure) {
                EXPECT_STREQ(failure.what(), "invalid string position");
                throw;
            }
        },
        std::out_of_range);
}

TEST(Temperatures, RawReadingsBecomeDegrees) {
    const platform::ScopedVirtualClock clock;
    CoreDouble core;
    EXPECT_NEAR(core.ConvertTemp(2048, 12, 8250.0F, 25.0F, 3950), 25.0F, 0.001F);
    EXPECT_NEAR(core.ConvertTemp(2048, 12, 10000.0F, 25.0F, 3950), 1 / (std::log(0.825) / 3950 + 1 / 298.15) - 273.15,
                0.001);
    expectFailure([&] { core.ConvertTemp(1, 40, 1.0F, 25.0F, 1); }, "The converter must have between 1 and 30 bits!",
                  DerrBadRequest, 40);
    const struct {
        const char* reply;
        std::optional<int> reading;
    } cases[] = {{"Sx0123,x0,x0", 0x123},
                 {"Sx0,x0,x0", 0},
                 {"SxaF,x1,x2", 0xAF},
                 {"S0123,x0,x0", {}},
                 {"Sx,x0,x0", {}},
                 {"Sx1,x0", {}},
                 {"Sx1,x0,x0,x0", {}},
                 {"Xx1,x0,x0", {}},
                 {"Sx1,0,x0", {}},
                 {"Sx1,x0,x", {}},
                 {"", {}},
                 {"Sxg,x0,x0", {}},
                 {"Sx-1,x0,x0", {}},
                 {"Sx123456789AB,x0,x0", {}}};
    for (const auto& test : cases) EXPECT_EQ(parseAuxiliaryReading(test.reply), test.reading) << test.reply;
    EXPECT_EQ(auxiliaryTemperature(0), 0.0F);
    EXPECT_EQ(auxiliaryTemperature(721), 0.0F) << "colder than any resistance";
    EXPECT_EQ(auxiliaryTemperature(5406), 0.0F) << "no resistance left";
    const std::pair<int, float> auxiliary[] = {
        {722, -94.4544F}, {1000, -17.6726F}, {1500, 2.6214F}, {3000, 35.9353F}, {4095, 61.8986F}};
    for (const auto& [reading, celsius] : auxiliary) EXPECT_NEAR(auxiliaryTemperature(reading), celsius, 0.0001F);
    EXPECT_NEAR(core.ConvertTemp(1000, 10, 10000.0F, 25.0F, 3950), -37.8306F, 0.001F);
    EXPECT_NEAR(core.ConvertTemp(30000, 16, 5000.0F, 20.0F, 3435), 11.9364F, 0.001F);
}

TEST_F(Maintenance, ThermistorIsReadBetweenSettingAndClearingItsRequest) {
    core.line.registers[112] = 1500;
    core.line.registers[116] = 0x8002;
    core.IsKestrane();
    core.line.commands.clear();
    float celsius = 0;
    const auto cost = costOf([&] { celsius = core.GetDetectorTemp(-5); });
    EXPECT_NEAR(celsius, 42.6609F, 0.001F);
    EXPECT_THAT(core.line.commands, ElementsAre("R1116", "W011632771", "R1112", "W011632770"));
    EXPECT_EQ(cost.count(), 4 * 11 + 2 * 200 + 1) << "register 116 is kept in flash";
    core.line.hook = [](const std::string& command) {
        return command == "R1112" ? RegisterScript::silence() : std::vector<std::string>{};
    };
    const auto failure =
        expectFailure([&] { core.GetDetectorTemp(1); }, "Problem sending serial command R1112", DerrSerialCommand);
    EXPECT_THAT(failure->what(), HasSubstr("baseDetector::GetDetectorTemp"));
    EXPECT_EQ(core.line.registers[116], 0x8003) << "the request stays";
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
    const std::vector<std::vector<std::string>> bad{{"E"}, {"XX"}, {"X", "S5DC,x0,x0"}, {"X", "Sx0,x0,x0"}};
    const int reads[] = {0, 0, 1, 100};
    for (std::size_t each = 0; each < bad.size(); ++each) {
        expectFailure([&] { ask(3, bad[each]); }, "Problem sending serial command!", DerrSerialCommand);
        EXPECT_EQ(sent("RM8"), reads[each]) << each;
    }
    kestrane.modelNumber = 5309;
    EXPECT_EQ(ask(2, {"X"}), 0.0F);
    EXPECT_TRUE(kestrane.line.commands.empty()) << "no probe, no command";
}

TEST_F(Maintenance, TemperaturesFollowTheElectronics) {
    const struct {
        const char* address;
        std::vector<float> bySensor;  ///< sensors 0, 1, ...
    } cases[] = {
        {"sim:6112", {41.0F, 41.0F, 41.0F, 41.0F, 41.0F, 41.0F}},
        {"sim:6112-kestrane", {0.0F, 41.0F, 41.0F, 28.0F, 0.0F}},
        {"sim:5101-kestrane", {0.0F, 41.0F, 0.0F}},
    };
    for (const auto& test : cases) {
        simulator::Rack::instance().find(test.address)->setTemperatures(41, 28);
        QuorinDetector detector(TransportGE, 0, test.address);
        detector.OpenBoard();
        for (std::size_t sensor = 0; sensor < test.bySensor.size(); ++sensor)
            EXPECT_NEAR(detector.GetDetectorTemp(static_cast<int>(sensor)), test.bySensor[sensor], 0.05F)
                << test.address << " " << sensor;
        EXPECT_EQ(detector.ReadRegister(116, 1) & 1, 0);
    }
}

TEST_F(Maintenance, TemperatureThatNeverGetsReadyIsZeroOrAFailure) {
    const auto hardware = simulator::Rack::instance().find("sim:6112-kestrane");
    QuorinDetector detector(TransportGE, 0, "sim:6112-kestrane");
    detector.OpenBoard();
    hardware->faults().set(simulator::Fault::NoTemperature, {1, true});
    const auto cost = costOf([&] { EXPECT_EQ(detector.GetDetectorTemp(1), 0.0F); });
    EXPECT_GE(cost, std::chrono::milliseconds(1000));
    const auto failure =
        expectFailure([&] { detector.GetDetectorTemp(3); }, "Problem sending serial command!", DerrSerialCommand);
    EXPECT_THAT(failure->what(), HasSubstr("baseDetector::GetDetectorTemp"));
    CoreDouble other;
    CoreDouble::present(other, 8131, 1);
    EXPECT_THROW(other.GetDetectorTemp(1), std::out_of_range);
}

TEST_F(Maintenance, PowerCycleRebuildsWhatTheLibraryKnows) {
    for (const char* address : {"sim:6112", "sim:6112-kestrane"}) {
        const auto hardware = simulator::Rack::instance().find(address);
        QuorinDetector detector(TransportGE, 0, address);
        detector.OpenBoard();
        detector.SetBinningMode(Bin2x2);
        detector.SetExposureTime(700.0F);
        detector.SetTestMode(true);
        EXPECT_EQ(detector.GetBufferXdim(), 1536);
        const auto cost = costOf([&] { detector.SoftReset(); });
        EXPECT_GE(cost, std::chrono::milliseconds(8000)) << address;
        EXPECT_EQ(detector.GetBinningMode(), Bin1x1);
        EXPECT_EQ(detector.GetBufferXdim(), 3072);
        EXPECT_FALSE(detector.GetTestMode());
        EXPECT_LT(detector.GetExposureTime(), 200.0F);
        detector.Snap(0, 5000);
        QorImage image;
        EXPECT_NO_THROW(detector.ReadBuffer(0, image, 0));
        EXPECT_EQ(image.GetImageXdim(), 3072);
        detector.CloseBoard();
    }
}

TEST_F(Maintenance, PowerWithoutAnAnswerFailsAndKeepsTheCache) {
    CoreDouble kestrane;
    CoreDouble::present(kestrane, 6112, 1);
    kestrane.IsKestrane();
    kestrane.binningMode = Bin4x4;
    kestrane.line.hook = [](const std::string&) { return RegisterScript::silence(); };
    baseDetector& base = kestrane;
    const auto cost = costOf([&] {
        expectFailure([&] { base.PowerSwitch(false); }, "Detector was not responsive after switching to low power.",
                      DerrTransport);
    });
    EXPECT_GE(cost, std::chrono::milliseconds(7000));
    kestrane.line.hook = [](const std::string& command) -> std::vector<std::string> {
        if (command == "R1410") platform::sleepFor(std::chrono::milliseconds(500));
        return {};
    };
    expectFailure([&] { base.PowerSwitch(true); }, "Detector was not responsive after power-on.", DerrTransport);
    EXPECT_EQ(kestrane.binningMode.get(), Bin4x4);
    core.IsKestrane();
    core.line.commands.clear();
    EXPECT_EQ(costOf([&] { static_cast<baseDetector&>(core).PowerSwitch(false); }), std::chrono::milliseconds(4000));
    EXPECT_TRUE(core.line.commands.empty()) << "other electronics are sent nothing here";
}

TEST_F(Maintenance, DetectorThatStaysOffAfterPowerOnIsGivenUp) {
    const auto hardware = simulator::Rack::instance().find("sim:6112-kestrane");
    QuorinDetector detector(TransportGE, 0, "sim:6112-kestrane");
    detector.OpenBoard();
    detector.PowerSwitch(false);
    hardware->setBootTimeMs(60000);
    const auto failure = expectFailure([&] { detector.PowerSwitch(true); },
                                       "Detector was not responsive after power-on.", DerrTransport);
    EXPECT_STREQ(failure->GetFunctionName(), "PleoraDetector::PowerSwitchKestrane");
    clock.advance(std::chrono::minutes(2));
    EXPECT_NO_THROW(detector.PowerSwitch(true));
}

TEST_F(Maintenance, PowerOnForgetsTheSettingsThenTakesUpTheFrameSizeThenTheTiming) {
    struct Recorder : CoreDouble {
        void UpdateInterfaceImageSize() override { commandsBefore = line.commands.size(); }
        std::optional<std::size_t> commandsBefore;
    } detector;
    CoreDouble::present(detector, 6112);
    detector.IsKestrane();
    detector.GetModelNumber();
    detector.binningMode = Bin2x2;
    detector.sliceInterlacing = 1;
    detector.cachedROIArea = ROIArea{};
    detector.readoutTime = 1.0F;
    detector.line.commands.clear();
    const auto cost = costOf([&] { static_cast<baseDetector&>(detector).PowerSwitch(true); });
    EXPECT_EQ(detector.commandsBefore, 0U);
    const auto exchanges = static_cast<std::int64_t>(detector.line.commands.size());
    EXPECT_GE(exchanges, 2) << "binning and exposure are asked for";
    EXPECT_EQ(cost.count(), 2 * 2000 + 11 * exchanges);
    EXPECT_EQ(detector.sliceInterlacing, -1);
    EXPECT_FALSE(detector.cachedROIArea.get());
    EXPECT_EQ(detector.binningMode.get(), Bin1x1);
    EXPECT_EQ(detector.modelNumber.get(), 6112);
    EXPECT_FALSE(detector.line.wasSent("R1124")) << "the model stays known";
    EXPECT_GT(detector.readoutTime, 1.0F);
}

TEST_F(Maintenance, DetectorWithoutPowerIsSilentAndOneInLowPowerRefuses) {
    const struct {
        const char* address;
        const char* text;
        Derr code;
    } cases[] = {{"sim:6112", "Problem sending serial command R1036", DerrSerialCommand},
                 {"sim:6112-kestrane", "Problem performing serial read!", DerrTransport}};
    for (const auto& test : cases) {
        QuorinDetector detector(TransportGE, 0, test.address);
        detector.OpenBoard();
        EXPECT_GE(costOf([&] { detector.PowerSwitch(false); }).count(), 4000) << test.address;
        EXPECT_TRUE(support::failureOf([&] { detector.GetBinningMode(); }));
        EXPECT_NO_THROW(detector.PowerSwitch(true));
        EXPECT_EQ(detector.GetBinningMode(), Bin1x1);
        detector.PowerSwitch(false);
        detector.CloseBoard();
        const auto failure = support::failureOf([&] { detector.OpenBoard(); });
        ASSERT_TRUE(failure) << "a detector that was left without power cannot be opened";
        EXPECT_THAT(failure->what(), HasSubstr(test.text));
        EXPECT_EQ(failure->GetCode(), test.code);
        simulator::Rack::instance().find(test.address)->serialWrite("WP1\r");
        clock.advance(std::chrono::seconds(2));
        EXPECT_NO_THROW(detector.OpenBoard());
    }
}

TEST_F(Maintenance, FailedPowerChangesNameTheirLayers) {
    const auto hardware = simulator::Rack::instance().find("sim:6112");
    QuorinDetector detector(TransportGE, 0, "sim:6112");
    detector.OpenBoard();
    hardware->faults().set(simulator::Fault::SilentLine);
    const auto failure =
        expectFailure([&] { detector.SoftReset(); }, "Problem sending serial command WP0", DerrSerialCommand);
    for (const char* name : {"baseDetector::SendCommand1", "PleoraDetector::PowerSwitch", "baseDetector::SoftReset"})
        EXPECT_THAT(failure->what(), HasSubstr(name));
}
