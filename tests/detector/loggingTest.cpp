#include "logging.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "detector/logPath.h"
#include "platform/DataFolder.h"
#include "support/expectFailure.h"

namespace fs = std::filesystem;

namespace {

class Logging : public testing::Test {
protected:
    Logging() {
        fs::create_directories(folder);
        spdlog::drop("QorLogger");
    }
    ~Logging() override {
        spdlog::drop("QorLogger");
        fs::remove_all(folder);
    }
    const fs::path folder = fs::temp_directory_path() / ("qrapi-log-" + std::to_string(::getpid()));
};

}  // namespace

TEST_F(Logging, FileLiesBelowTheDataFolder) {
    const platform::ScopedDataFolder data(folder.string());
    EXPECT_EQ(getLogPath(), (folder / "Selvo/QRAPI/qrapi_log.txt").string());
    EXPECT_EQ(getLogPath(), (folder / "Selvo/QRAPI/qrapi_log.txt").string()) << "directories that exist are fine";
}

TEST_F(Logging, FolderProblemsAreToldInTheirTexts) {
    {
        const platform::ScopedDataFolder data("", -13);
        support::expectFailure([] { getLogPath(); },
                               "Unable to get path to local AppData folder, SHGetKnownFolderPath() returned -13",
                               DerrFile);
    }
    std::ofstream(folder / "Selvo") << "in the way";
    const platform::ScopedDataFolder data(folder.string());
    const auto failure = support::expectFailure(
        [] { getLogPath(); },
        "Unable to create directory " + (folder / "Selvo/QRAPI").string() + ": error " + std::to_string(ENOTDIR),
        DerrFile);
    EXPECT_STREQ(failure->GetFunctionName(), "`anonymous-namespace'::getLogPath");
    const auto logger = createQorLogger();
    EXPECT_EQ(logger->name(), "NullQorLogger");
    EXPECT_EQ(logger->level(), spdlog::level::off);
}

TEST_F(Logging, FileLoggerLeavesTheApplicationsGlobalSettingsAlone) {
    const platform::ScopedDataFolder data(folder.string());
    spdlog::set_level(spdlog::level::critical);
    const auto logger = createQorLogger();
    spdlog::set_level(spdlog::level::info);
    EXPECT_EQ(logger->name(), "QorLogger");
    EXPECT_EQ(spdlog::get("QorLogger"), logger);
    EXPECT_EQ(logger->flush_level(), spdlog::level::off);
    ASSERT_EQ(logger->sinks().size(), 1U);
    auto* const sink = dynamic_cast<spdlog::sinks::rotating_file_sink_mt*>(logger->sinks().front().get());
    ASSERT_NE(sink, nullptr);
    EXPECT_EQ(createQorLogger()->name(), "NullQorLogger") << "the name is taken";
}

TEST_F(Logging, FileRotatesAtItsLargestSizeAndKeepsFiveOlderOnes) {
    const platform::ScopedDataFolder data(folder.string());
    const auto logger = createQorLogger();
    const std::string line(1U << 20U, 'x');
    for (int megabyte = 0; megabyte < 150; ++megabyte) logger->info(line);
    logger->flush();
    int files = 0;
    for (const auto& entry : fs::directory_iterator(folder / "Selvo/QRAPI")) {
        ++files;
        EXPECT_LE(entry.file_size(), 20971520U);
    }
    EXPECT_EQ(files, 6);
}

TEST_F(Logging, EveryThreadGetsTheSameLogger) {
    std::vector<std::shared_ptr<spdlog::logger>> got(4);
    std::vector<std::thread> threads;
    for (auto& logger : got) threads.emplace_back([&logger] { logger = getQorLogger(); });
    for (auto& thread : threads) thread.join();
    for (const auto& logger : got) EXPECT_EQ(logger, got.front());
}
