#pragma once

#include <hdf5.h>
#include <png.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/tools/FramesFolder.h"

/// The frames of a file of any format that keeps grey levels, and what the file tells of them.
struct StoredFrames {
    int width = 0;
    int height = 0;
    std::vector<std::vector<std::uint16_t>> frames;
    std::vector<int> fieldCounts;
    std::vector<int> numbers;
    std::vector<double> timeStamps;
    std::vector<double> exposuresMs;
    std::string start;
    std::string end;
    std::string model;
    std::string serialNumber;
    std::string binning;
    int firstRow = 0;
};

inline StoredFrames readTiff(const std::string& path) {
    StoredFrames stored;
    for (const Page& page : readPages(path)) {
        stored.width = static_cast<int>(page.width);
        stored.height = static_cast<int>(page.height);
        stored.frames.push_back(page.pixels);
        stored.fieldCounts.push_back(page.description.at("field_count"));
        stored.numbers.push_back(page.description.at("frame"));
        stored.timeStamps.push_back(page.description.at("seconds_since_start"));
        stored.exposuresMs.push_back(page.description.at("exposure_time_ms"));
        if (stored.start.empty()) stored.start = page.description.at("time");
        stored.end = page.description.at("time");
        stored.model = std::to_string(page.description.at("model").get<int>());
        stored.serialNumber = std::to_string(page.description.at("serial_number").get<int>());
        stored.binning = page.description.at("binning");
        stored.firstRow = page.description.at("first_row");
    }
    return stored;
}

inline StoredFrames readRaw(const std::string& path) {
    StoredFrames stored;
    const auto told =
        nlohmann::json::parse(std::ifstream(fs::path(path).replace_extension("json")), nullptr, /*exceptions*/ false);
    if (told.is_discarded()) return stored;
    stored.width = told.at("width");
    stored.height = told.at("height");
    const std::size_t pixels = told.at("width").get<std::size_t>() * told.at("height").get<std::size_t>();
    EXPECT_EQ(told.at("dtype"), "uint16");
    EXPECT_EQ(told.at("byte_order"), "little");
    EXPECT_EQ(told.at("data_file"), fs::path(path).filename().string());
    std::ifstream file(path, std::ios::binary);
    const std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_EQ(bytes.size(), told.at("frames").get<std::size_t>() * pixels * 2);
    for (std::size_t begin = 0; begin + pixels * 2 <= bytes.size(); begin += pixels * 2) {
        std::vector<std::uint16_t>& frame = stored.frames.emplace_back(pixels);
        for (std::size_t pixel = 0; pixel < pixels; ++pixel)
            frame[pixel] =
                static_cast<std::uint16_t>(bytes[begin + 2 * pixel] + (bytes[begin + 2 * pixel + 1] << CHAR_BIT));
    }
    stored.fieldCounts = told.at("field_counts").get<std::vector<int>>();
    stored.numbers = told.at("frame_numbers").get<std::vector<int>>();
    stored.timeStamps = told.at("time_stamps_s").get<std::vector<double>>();
    stored.exposuresMs.assign(stored.frames.size(), told.at("exposure_time_ms"));
    stored.start = told.at("start_time");
    stored.end = told.at("end_time");
    stored.model = std::to_string(told.at("model").get<int>());
    stored.serialNumber = std::to_string(told.at("serial_number").get<int>());
    stored.binning = told.at("binning");
    stored.firstRow = told.at("first_row");
    return stored;
}

/// Reads by the C interface alone, as any reader would.
class Hdf5Reader {
public:
    explicit Hdf5Reader(const std::string& path) : file(H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT)) {}
    ~Hdf5Reader() { H5Fclose(file); }
    Hdf5Reader(const Hdf5Reader&) = delete;
    Hdf5Reader& operator=(const Hdf5Reader&) = delete;

    std::vector<hsize_t> shape(const std::string& name) const {
        const hid_t dataset = H5Dopen2(file, name.c_str(), H5P_DEFAULT);
        const hid_t space = H5Dget_space(dataset);
        std::vector<hsize_t> sizes(static_cast<std::size_t>(H5Sget_simple_extent_ndims(space)));
        H5Sget_simple_extent_dims(space, sizes.data(), nullptr);
        H5Sclose(space);
        H5Dclose(dataset);
        return sizes;
    }

    template <class Number>
    std::vector<Number> numbers(const std::string& name, hid_t type) const {
        std::size_t count = 1;
        for (const hsize_t size : shape(name)) count *= size;
        std::vector<Number> all(count);
        const hid_t dataset = H5Dopen2(file, name.c_str(), H5P_DEFAULT);
        EXPECT_GE(H5Dread(dataset, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, all.data()), 0) << name;
        H5Dclose(dataset);
        return all;
    }

    std::string text(const std::string& name) const {
        const hid_t dataset = H5Dopen2(file, name.c_str(), H5P_DEFAULT);
        const hid_t type = H5Dget_type(dataset);
        char* value = nullptr;
        EXPECT_GE(H5Dread(dataset, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, &value), 0) << name;
        std::string result = value != nullptr ? value : "";
        H5free_memory(value);
        H5Tclose(type);
        H5Dclose(dataset);
        return result;
    }

private:
    hid_t file;
};

inline StoredFrames readHdf5(const std::string& path) {
    StoredFrames stored;
    if (!fs::exists(path)) return stored;
    const Hdf5Reader file(path);
    const std::string detector = "/entry/instrument/detector/";
    const std::vector<hsize_t> shape = file.shape("/entry/data/data");
    stored.height = static_cast<int>(shape.at(1));
    stored.width = static_cast<int>(shape.at(2));
    const auto pixels = file.numbers<std::uint16_t>("/entry/data/data", H5T_NATIVE_UINT16);
    const auto size = static_cast<std::ptrdiff_t>(shape[1] * shape[2]);
    for (auto begin = pixels.begin(); begin != pixels.end(); begin += size)
        stored.frames.emplace_back(begin, begin + size);
    stored.fieldCounts = file.numbers<int>(detector + "field_count", H5T_NATIVE_INT);
    stored.numbers = file.numbers<int>(detector + "sequence_number", H5T_NATIVE_INT);
    stored.timeStamps = file.numbers<double>("/entry/data/time_stamp", H5T_NATIVE_DOUBLE);
    for (const double exposure : file.numbers<double>(detector + "count_time", H5T_NATIVE_DOUBLE))
        stored.exposuresMs.push_back(exposure * 1000.0);
    stored.start = file.text("/entry/start_time");
    stored.end = file.text("/entry/end_time");
    stored.model = file.text(detector + "model");
    stored.serialNumber = file.text(detector + "serial_number");
    stored.binning = file.text(detector + "binning");
    stored.firstRow = file.numbers<int>(detector + "first_row", H5T_NATIVE_INT).at(0);
    return stored;
}

inline StoredFrames readFrames(const std::string& path) {
    const std::string extension = fs::path(path).extension();
    if (extension == ".raw") return readRaw(path);
    return extension == ".tif" || extension == ".tiff" ? readTiff(path) : readHdf5(path);
}

/// An 8-bit picture; empty if the file is none.
struct Picture {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> pixels;
};

inline Picture readPng(const std::string& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&image, path.c_str()) == 0) return {};
    EXPECT_EQ(image.format, static_cast<unsigned>(PNG_FORMAT_GRAY)) << "8-bit grey as it lies in the file";
    Picture picture{static_cast<int>(image.width), static_cast<int>(image.height), {}};
    picture.pixels.resize(PNG_IMAGE_SIZE(image));
    png_image_finish_read(&image, nullptr, picture.pixels.data(), 0, nullptr);
    return picture;
}
