#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/DataFolder.h"
#include "platform/export.h"

#if defined(QRAPI_THREAD_SANITIZER)
/// A reader that lags a whole ring behind may see a block being overwritten: the one race that is meant to be.
extern "C" QRAPI_EXPORT const char* __tsan_default_suppressions() {  // NOLINT: the sanitizer's name
    return "race:copyFrame\n";
}
#endif

/// Every test program keeps its log out of the user's data folder.
int main(int argc, char** argv) {
    std::string folder = (std::filesystem::temp_directory_path() / "qrapi-tests-XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) return EXIT_FAILURE;
    int result = EXIT_FAILURE;
    {
        const platform::ScopedDataFolder substitute(folder);
        ::testing::InitGoogleTest(&argc, argv);
        result = RUN_ALL_TESTS();
    }
    std::filesystem::remove_all(folder);
    return result;
}
