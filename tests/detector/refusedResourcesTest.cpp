#include <gtest/gtest.h>
#include <spdlog/spdlog.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "VirtualGrabber.h"
#include "logging.h"
#include "platform/DataFolder.h"
#include "support/FacadeCalls.h"
#include "support/TransportRig.h"

/// What the system refuses beside memory: files, room on the disk, a place for the log. Each case runs in a process of
/// its own, which is what the refusals are for and where no logger has been made yet.

namespace fs = std::filesystem;

using support::Road;

namespace {

/// Opens, snaps and reads on a fresh rack. Whatever is wrong is told.
void expectADetectorWorks(DetectorInterface transport) {
    const platform::ScopedVirtualClock clock;
    const Road road{transport, "5101-kestrane"};
    simulator::Rack::instance().reset();
    const auto hardware = road.hardware();
    hardware->setPicture(simulator::Picture::Pattern);
    {
        const auto detector = road.make();
        detector->OpenBoard(2);
        for (int snap = 0; snap < 3; ++snap) detector->Snap(0, 5000);
        QorImage image;
        detector->ReadBuffer(0, image, 0);
        const auto& panel = hardware->profile();
        const auto expected = simulator::patternFrame(hardware->ledger().exposed, image.GetImageXdim(),
                                                      image.GetImageYdim(), panel.sensorsAcross, panel.sensorsDown);
        EXPECT_EQ(std::memcmp(image.GetDataPointerToPlane(0), expected.data(), expected.size() * 2), 0);
        detector->CloseBoard();
    }
    simulator::Rack::instance().reset();
}

void limit(__rlimit_resource what, rlim_t value) {
    rlimit now{};
    ASSERT_EQ(getrlimit(what, &now), 0);
    now.rlim_cur = value;
    ASSERT_EQ(setrlimit(what, &now), 0);
}

// The checks of the address and undefined behaviour sanitizers open files themselves.
#if defined(QRAPI_ADDRESS_SANITIZER)
constexpr bool checksNeedFiles = true;
#else
constexpr bool checksNeedFiles = false;
#endif

class RefusedResources : public testing::Test {
protected:
    RefusedResources() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    void SetUp() override {
#if defined(QRAPI_THREAD_SANITIZER)
        GTEST_SKIP() << "the thread sanitizer needs the resources that are refused here";
#endif
    }

    /// The body in a process of its own; what it expects in vain fails the case.
    template <class Body>
    static void apart(Body&& body) {
        EXPECT_EXIT(
            {
                try {
                    body();
                } catch (const std::exception& failure) {
                    ADD_FAILURE() << failure.what();
                }
                const testing::TestResult& result = *testing::UnitTest::GetInstance()->current_test_info()->result();
                for (int part = 0; part < result.total_part_count(); ++part)
                    std::cerr << result.GetTestPartResult(part).message() << "\n";
                std::cout.flush();
                std::_Exit(result.Failed() ? 1 : 0);
            },
            testing::ExitedWithCode(0), "");
    }
};

/// A place for the log that is none.
struct BadPlace {
    const char* name;
    std::function<void(const fs::path& folder)> spoil;
    const char* logger;
};

constexpr std::uintmax_t fullAt = 2048;
constexpr std::string_view noMoreFiles = "no more files";
const fs::path belowFolder = fs::path("Selvo") / "QRAPI";

void fill(const fs::path& file) {
    fs::create_directories(file.parent_path());
    std::ofstream(file) << "in the way";
}

const BadPlace badPlaces[] = {
    {"the parent is a file", [](const fs::path& folder) { fill(folder / "Selvo"); }, "NullQorLogger"},
    {"the folder is a file", [](const fs::path& folder) { fill(folder / belowFolder); }, "NullQorLogger"},
    {"the file is a folder",
     [](const fs::path& folder) { fs::create_directories(folder / belowFolder / "qrapi_log.txt"); }, "NullQorLogger"},
    {"no right to write",
     [](const fs::path& folder) {
         fs::create_directories(folder / belowFolder);
         fs::permissions(folder / belowFolder, fs::perms::owner_read | fs::perms::others_read);
         if (geteuid() == 0) {
             ASSERT_EQ(seteuid(65534), 0);  // rights don't hold for the superuser
         }
     },
     "NullQorLogger"},
    {noMoreFiles.data(), [](const fs::path& /*folder*/) { limit(RLIMIT_NOFILE, 3); }, "NullQorLogger"},
    {"a device that is full",
     [](const fs::path& folder) {
         fs::create_directories(folder / belowFolder);
         fs::create_symlink("/dev/full", folder / belowFolder / "qrapi_log.txt");
     },
     "QorLogger"},
    {"a disk that is full",
     [](const fs::path& /*folder*/) {
         std::signal(SIGXFSZ, SIG_IGN);
         limit(RLIMIT_FSIZE, fullAt);
     },
     "QorLogger"},
};

}  // namespace

TEST_F(RefusedResources, LogWithoutAPlaceFailsNoCall) {
    for (const BadPlace& place : badPlaces) {
        if (checksNeedFiles && place.name == noMoreFiles) continue;
        for (const DetectorInterface transport : support::transports) {
            SCOPED_TRACE(place.name);
            std::string folder = (fs::temp_directory_path() / "qrapi-place-XXXXXX").string();
            apart([&] {
                ASSERT_NE(mkdtemp(folder.data()), nullptr);
                fs::permissions(folder, fs::perms::all);
                const platform::ScopedDataFolder data(folder);
                place.spoil(folder);
                expectADetectorWorks(transport);
                EXPECT_EQ(getQorLogger()->name(), place.logger);
                getQorLogger()->flush();
                expectADetectorWorks(transport);
                EXPECT_EQ(seteuid(getuid()), 0);
                limit(RLIMIT_NOFILE, 256);
                const fs::path file = fs::path(folder) / belowFolder / "qrapi_log.txt";
                EXPECT_TRUE(!fs::is_regular_file(file) || fs::file_size(file) <= fullAt);
                fs::remove_all(folder);
            });
        }
    }
}

TEST_F(RefusedResources, FilesThatCannotBeOpenedFailTheirCallAlone) {
    if (checksNeedFiles) GTEST_SKIP() << "a sanitizer's own checks open files";
    for (const DetectorInterface transport : support::transports) {
        apart([&] {
            const support::TemporaryFile configuration("qrapi-settings-", "R1124\n");
            const support::TemporaryFile firmware("qrapi-image-", std::string(1024, 'f'));
            {
                const platform::ScopedVirtualClock clock;
                const Road road{transport, "5101-kestrane"};
                const auto detector = road.make();
                detector->OpenBoard();
                limit(RLIMIT_NOFILE, 3);
                support::expectFailure([&] { detector->LoadSensorConfigFile(configuration.path().c_str()); },
                                       "Unable to open file!", DerrFile);
                support::expectFailure([&] { detector->UploadFirmware(firmware.path().c_str(), 1, false); },
                                       "Failed to open file.", DerrBadRequest, EMFILE);
                detector->Snap(0, 5000);
                limit(RLIMIT_NOFILE, 256);
                EXPECT_NO_THROW(detector->LoadSensorConfigFile(configuration.path().c_str()));
                EXPECT_NO_THROW(detector->UploadFirmware(firmware.path().c_str(), 1, false));
            }
            expectADetectorWorks(transport);
        });
    }
}

TEST_F(RefusedResources, EventThatCannotBeMadeLeavesABoardToClose) {
    const platform::ScopedVirtualClock clock;
    const Road road{TransportCL, "5101-kestrane"};
    simulator::Rack::instance().reset();
    const auto detector = road.make();
    grabber::VirtualGrabber::inSlot(road.slot())->fail({.function = "pxe_eventCapturedFieldCreate2", .first = 2});
    detector->OpenBoard();
    detector->CloseBoard();
    support::expectFailure([&] { detector->OpenBoard(); }, "Problem creating handle to detector!", DerrTransport);
    // The handle of the first open is closed: nothing may wait for it, or for ever.
    const auto wait = support::failureOf([&] { detector->WaitImage(-1); });
    EXPECT_TRUE(wait);
    EXPECT_TRUE(support::failureOf([&] { detector->Snap(0, -1); }));
    detector->CloseBoard();
    detector->OpenBoard();
    EXPECT_NO_THROW(detector->Snap(0, 5000));
}
