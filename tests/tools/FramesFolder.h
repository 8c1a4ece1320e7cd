#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <tiffio.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "simulator/Rack.h"

namespace fs = std::filesystem;

/// One page of a TIFF file.
struct Page {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint16_t bitsPerPixel = 0;
    nlohmann::json description;
    std::vector<std::uint16_t> pixels;
};

inline std::vector<Page> readPages(const std::string& path) {
    std::vector<Page> pages;
    const std::unique_ptr<TIFF, decltype(&TIFFClose)> file(TIFFOpen(path.c_str(), "r"), TIFFClose);
    if (file == nullptr) return pages;
    do {
        Page page;
        char* text = nullptr;
        TIFFGetField(file.get(), TIFFTAG_IMAGEWIDTH, &page.width);
        TIFFGetField(file.get(), TIFFTAG_IMAGELENGTH, &page.height);
        TIFFGetField(file.get(), TIFFTAG_BITSPERSAMPLE, &page.bitsPerPixel);
        if (TIFFGetField(file.get(), TIFFTAG_IMAGEDESCRIPTION, &text) == 1)
            page.description = nlohmann::json::parse(text);
        page.pixels.resize(std::size_t{page.width} * page.height);
        for (std::uint32_t row = 0; row < page.height; ++row)
            TIFFReadScanline(file.get(), page.pixels.data() + std::size_t{row} * page.width, row);
        pages.push_back(std::move(page));
        if (TIFFLastDirectory(file.get()) != 0) return pages;
    } while (TIFFReadDirectory(file.get()) == 1);
    ADD_FAILURE() << path << " names a page after the last one that can be read";
    return pages;
}

/// While it exists, no file of this process grows beyond the limit: writing fails as it does on a full disk.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : previousHandler(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &previous);
        const rlimit lower{bytes, previous.rlim_max};
        setrlimit(RLIMIT_FSIZE, &lower);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &previous);
        std::signal(SIGXFSZ, previousHandler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit previous{};
    void (*previousHandler)(int);
};

/// A folder of its own for each test, and fresh detectors.
class FramesFolder : public testing::Test {
protected:
    void SetUp() override {
        simulator::Rack::instance().reset();
        std::string name = (fs::temp_directory_path() / "qrapi-frames-XXXXXX").string();
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        folder = name;
        output = (folder / "frames.tif").string();
    }
    void TearDown() override { fs::remove_all(folder); }

    fs::path folder;
    std::string output;
};
