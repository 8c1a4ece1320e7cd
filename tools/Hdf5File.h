#pragma once

#include <hdf5.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

/// The little of HDF5's C interface that the tool uses, with owners for its handles. Every failure is a
/// `std::runtime_error` whose text is what HDF5 said.
namespace tool::hdf5 {

/// Owns one handle of any kind.
class Handle {
public:
    using Close = herr_t (*)(hid_t);
    Handle() = default;
    /// Takes what a call of HDF5 returned; throws if it failed. `what` was to be made by it.
    Handle(hid_t id, Close close, const std::string& what);
    ~Handle();
    Handle(Handle&& other) noexcept;
    Handle& operator=(Handle&& other) noexcept;

    hid_t get() const { return id; }

private:
    hid_t id = H5I_INVALID_HID;
    Close close = nullptr;
};

/// While it exists, HDF5 prints no failures of this thread. What the calls return is to be looked at.
class Quiet {
public:
    Quiet();
    ~Quiet();
    Quiet(const Quiet&) = delete;
    Quiet& operator=(const Quiet&) = delete;

private:
    H5E_auto2_t function = nullptr;
    void* data = nullptr;
};

/// Throws with HDF5's reason if `result` is negative.
void check(herr_t result, const std::string& what);

Handle createGroup(const Handle& parent, const std::string& name, const std::string& nexusClass);

void setText(const Handle& object, const std::string& name, const std::string& text);
void setTexts(const Handle& object, const std::string& name, const std::vector<std::string>& texts);

void writeText(const Handle& parent, const std::string& name, const std::string& text);
void writeNumber(const Handle& parent, const std::string& name, int number);
/// An array with one value per frame, which can grow. `units` may be empty.
Handle writeNumbers(const Handle& parent, const std::string& name, std::span<const int> numbers,
                    const std::string& units);
Handle writeNumbers(const Handle& parent, const std::string& name, std::span<const double> numbers,
                    const std::string& units);

/// Another name of what `path` names in the same file.
void link(const Handle& file, const std::string& path, const std::string& newPath);

/// 16-bit frames, one chunk each, of which any number can be appended.
class FrameArray {
public:
    /// @param compression  1 to 9 of gzip behind a byte shuffle, or 0 for none
    FrameArray(const Handle& parent, const std::string& name, int width, int height, int compression);

    void append(const std::uint16_t* pixels);
    /// Removes the frames after the first `count`.
    void keepFirst(std::size_t count);
    Handle& dataset() { return array; }

private:
    hsize_t frames = 0;
    hsize_t width;
    hsize_t height;
    Handle frameSpace;
    Handle array;
};

}  // namespace tool::hdf5
