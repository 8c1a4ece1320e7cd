#include "platform/DataFolder.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

TEST(DataFolder, SubstitutesNest) {
    const platform::ScopedDataFolder outer("/outer");
    {
        const platform::ScopedDataFolder inner("", -5);
        EXPECT_EQ(platform::localDataFolder().result, -5);
    }
    EXPECT_EQ(platform::localDataFolder().path, "/outer");
}

TEST(DataFolder, DirectoryThatExistsIsReportedAsSuch) {
    const auto folder = std::filesystem::temp_directory_path() / ("qrapi-dir-" + std::to_string(getpid()));
    EXPECT_EQ(platform::makeDirectory(folder.string()), 0);
    EXPECT_EQ(platform::makeDirectory(folder.string()), EEXIST);
    std::filesystem::remove(folder);
    EXPECT_EQ(platform::makeDirectory((folder / "deep").string()), ENOENT);
}
