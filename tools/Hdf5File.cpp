#include "tools/Hdf5File.h"

#include <array>
#include <stdexcept>
#include <utility>

namespace tool::hdf5 {
namespace {

herr_t keepInnermost(unsigned /*depth*/, const H5E_error2_t* entry, void* kept) {
    auto& reason = *static_cast<std::string*>(kept);
    if (reason.empty() && entry->desc != nullptr) reason = entry->desc;
    return 0;
}

std::string reasonOr(const std::string& otherwise) {
    std::string reason;
    H5Ewalk2(H5E_DEFAULT, H5E_WALK_UPWARD, keepInnermost, &reason);
    return reason.empty() ? otherwise : reason;
}

Handle textType() {
    Handle type(H5Tcopy(H5T_C_S1), H5Tclose, "a text type");
    check(H5Tset_size(type.get(), H5T_VARIABLE), "a text type");
    check(H5Tset_cset(type.get(), H5T_CSET_UTF8), "a text type");
    return type;
}

Handle scalarSpace() {
    return {H5Screate(H5S_SCALAR), H5Sclose, "a scalar"};
}

Handle createDataset(const Handle& parent, const std::string& name, hid_t type, const Handle& space,
                     hid_t properties = H5P_DEFAULT, hid_t access = H5P_DEFAULT) {
    return {H5Dcreate2(parent.get(), name.c_str(), type, space.get(), H5P_DEFAULT, properties, access), H5Dclose, name};
}

template <class Number>
Handle writeArray(const Handle& parent, const std::string& name, std::span<const Number> numbers,
                  const std::string& units, hid_t fileType, hid_t memoryType) {
    constexpr hsize_t chunk = 1024;
    const hsize_t size = numbers.size();
    const hsize_t unlimited = H5S_UNLIMITED;
    const Handle space(H5Screate_simple(1, &size, &unlimited), H5Sclose, name);
    const Handle properties(H5Pcreate(H5P_DATASET_CREATE), H5Pclose, name);
    check(H5Pset_chunk(properties.get(), 1, &chunk), name);
    Handle dataset = createDataset(parent, name, fileType, space, properties.get());
    check(H5Dwrite(dataset.get(), memoryType, H5S_ALL, H5S_ALL, H5P_DEFAULT, numbers.data()), name);
    if (!units.empty()) setText(dataset, "units", units);
    return dataset;
}

}  // namespace

Handle::Handle(hid_t made, Close closer, const std::string& what) : id(made), close(closer) {
    if (id < 0) throw std::runtime_error(reasonOr(what + " can't be made"));
}

Handle::~Handle() {
    if (id >= 0) close(id);
}

Handle::Handle(Handle&& other) noexcept : id(std::exchange(other.id, H5I_INVALID_HID)), close(other.close) {}

Handle& Handle::operator=(Handle&& other) noexcept {
    std::swap(id, other.id);
    std::swap(close, other.close);
    return *this;
}

Quiet::Quiet() {
    H5Eget_auto2(H5E_DEFAULT, &function, &data);
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
}

Quiet::~Quiet() {
    H5Eset_auto2(H5E_DEFAULT, function, data);
}

void check(herr_t result, const std::string& what) {
    if (result < 0) throw std::runtime_error(reasonOr(what + " can't be written"));
}

Handle createGroup(const Handle& parent, const std::string& name, const std::string& nexusClass) {
    Handle group(H5Gcreate2(parent.get(), name.c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT), H5Gclose, name);
    setText(group, "NX_class", nexusClass);
    return group;
}

void setText(const Handle& object, const std::string& name, const std::string& text) {
    const Handle type = textType();
    const Handle space = scalarSpace();
    const Handle attribute(H5Acreate2(object.get(), name.c_str(), type.get(), space.get(), H5P_DEFAULT, H5P_DEFAULT),
                           H5Aclose, name);
    const char* const value = text.c_str();
    check(H5Awrite(attribute.get(), type.get(), &value), name);
}

void setTexts(const Handle& object, const std::string& name, const std::vector<std::string>& texts) {
    const Handle type = textType();
    const hsize_t size = texts.size();
    const Handle space(H5Screate_simple(1, &size, nullptr), H5Sclose, name);
    const Handle attribute(H5Acreate2(object.get(), name.c_str(), type.get(), space.get(), H5P_DEFAULT, H5P_DEFAULT),
                           H5Aclose, name);
    std::vector<const char*> values;
    values.reserve(texts.size());
    for (const std::string& text : texts) values.push_back(text.c_str());
    check(H5Awrite(attribute.get(), type.get(), values.data()), name);
}

void writeText(const Handle& parent, const std::string& name, const std::string& text) {
    const Handle type = textType();
    const Handle dataset = createDataset(parent, name, type.get(), scalarSpace());
    const char* const value = text.c_str();
    check(H5Dwrite(dataset.get(), type.get(), H5S_ALL, H5S_ALL, H5P_DEFAULT, &value), name);
}

void writeNumber(const Handle& parent, const std::string& name, int number) {
    const Handle dataset = createDataset(parent, name, H5T_STD_I32LE, scalarSpace());
    check(H5Dwrite(dataset.get(), H5T_NATIVE_INT, H5S_ALL, H5S_ALL, H5P_DEFAULT, &number), name);
}

Handle writeNumbers(const Handle& parent, const std::string& name, std::span<const int> numbers,
                    const std::string& units) {
    return writeArray(parent, name, numbers, units, H5T_STD_I32LE, H5T_NATIVE_INT);
}

Handle writeNumbers(const Handle& parent, const std::string& name, std::span<const double> numbers,
                    const std::string& units) {
    return writeArray(parent, name, numbers, units, H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE);
}

void link(const Handle& file, const std::string& path, const std::string& newPath) {
    check(H5Lcreate_hard(file.get(), path.c_str(), file.get(), newPath.c_str(), H5P_DEFAULT, H5P_DEFAULT), newPath);
}

FrameArray::FrameArray(const Handle& parent, const std::string& name, int widthInPixels, int heightInPixels,
                       int compression)
    : width(static_cast<hsize_t>(widthInPixels)), height(static_cast<hsize_t>(heightInPixels)) {
    const std::array<hsize_t, 3> none{0, height, width};
    const std::array<hsize_t, 3> anyNumber{H5S_UNLIMITED, height, width};
    const std::array<hsize_t, 3> oneFrame{1, height, width};
    const auto dimensions = static_cast<int>(oneFrame.size());
    const Handle space(H5Screate_simple(dimensions, none.data(), anyNumber.data()), H5Sclose, name);
    const Handle properties(H5Pcreate(H5P_DATASET_CREATE), H5Pclose, name);
    check(H5Pset_chunk(properties.get(), dimensions, oneFrame.data()), name);
    check(H5Pset_fill_time(properties.get(), H5D_FILL_TIME_NEVER), name);  // each chunk is written whole
    if (compression > 0) {
        check(H5Pset_shuffle(properties.get()), name);
        check(H5Pset_deflate(properties.get(), static_cast<unsigned>(compression)), name);
    }
    frameSpace = Handle(H5Screate_simple(dimensions, oneFrame.data(), nullptr), H5Sclose, name);
    // No cache: a frame that the disk doesn't take must fail in its own call.
    const Handle access(H5Pcreate(H5P_DATASET_ACCESS), H5Pclose, name);
    check(H5Pset_chunk_cache(access.get(), 0, 0, H5D_CHUNK_CACHE_W0_DEFAULT), name);
    array = createDataset(parent, name, H5T_STD_U16LE, space, properties.get(), access.get());
}

void FrameArray::keepFirst(std::size_t count) {
    const std::array<hsize_t, 3> kept{count, height, width};
    check(H5Dset_extent(array.get(), kept.data()), "the frames");
    frames = count;
}

void FrameArray::append(const std::uint16_t* pixels) {
    const std::string what = "a frame";
    const std::array<hsize_t, 3> all{frames + 1, height, width};
    const std::array<hsize_t, 3> first{frames, 0, 0};
    const std::array<hsize_t, 3> oneFrame{1, height, width};
    check(H5Dset_extent(array.get(), all.data()), what);
    const Handle target(H5Dget_space(array.get()), H5Sclose, what);
    check(H5Sselect_hyperslab(target.get(), H5S_SELECT_SET, first.data(), nullptr, oneFrame.data(), nullptr), what);
    check(H5Dwrite(array.get(), H5T_NATIVE_UINT16, frameSpace.get(), target.get(), H5P_DEFAULT, pixels), what);
    ++frames;
}

}  // namespace tool::hdf5
