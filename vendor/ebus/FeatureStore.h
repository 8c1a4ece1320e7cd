#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "PvResult.h"

/// Named features with types, ranges and access, and where their values are kept.
namespace ebus {

/// An entry of an enumeration. In a write the text decides if there is one, else the number; a read gives both.
struct Enumerator {
    std::int64_t number = 0;
    std::optional<std::string> text;
};

enum class FeatureType { Boolean, Integer, Float, Enumeration };

/// The alternatives stand in the order of `FeatureType`.
using FeatureValue = std::variant<bool, std::int64_t, double, Enumerator>;

/// Reads and writes features by name.
class FeatureAccess {
public:
    virtual ~FeatureAccess() = default;
    virtual PvResult setFeature(std::string_view name, const FeatureValue& value) = 0;
    virtual PvResult getFeature(std::string_view name, FeatureType type, FeatureValue& value) = 0;
};

/// One allowed value of an enumeration.
struct EnumEntry {
    std::int64_t number;
    std::string_view text;
};

/// A row of `EnumEntry`, or nothing.
struct EnumEntries {
    const EnumEntry* first = nullptr;
    std::size_t count = 0;

    constexpr EnumEntries() = default;
    template <std::size_t size>
    constexpr EnumEntries(const std::array<EnumEntry, size>& entries) : first(entries.data()), count(size) {}
    constexpr const EnumEntry* begin() const { return first; }
    constexpr const EnumEntry* end() const { return first + count; }
};

enum class Access { ReadWrite, ReadOnly };

/// Whether a feature has one value, or one for each entry of the selector.
enum class Banks { One, PerTimer };

inline constexpr std::size_t timerCount = 4;

/// One row of a feature table. Floating-point features are computed, so they are read only and have no value here.
struct FeatureRow {
    std::string_view name;
    FeatureType type;
    Access access = Access::ReadWrite;
    std::int64_t minimum = 0;
    std::int64_t maximum = 0;
    std::int64_t start = 0;  ///< for an enumeration the number, for a boolean 0 or 1
    EnumEntries entries{};
    Banks banks = Banks::One;
};

/// Whether the row takes the value: `OutOfRange`, `WrongType` or `ReadOnly` name the feature and what it takes.
/// `stored` becomes the value in the form in which a `FeatureStore` keeps it.
PvResult checkWrite(const FeatureRow& row, const FeatureValue& value, std::int64_t& stored);

/// Whether the feature has the type.
PvResult checkType(const FeatureRow& row, FeatureType type);

/// The stored form as a value of the row's type.
FeatureValue toValue(const FeatureRow& row, std::int64_t stored);

PvResult unknownFeature(std::string_view name);

/// The values of the features of one table. Not locked.
class FeatureStore {
public:
    /// The table must outlive the store.
    FeatureStore(const FeatureRow* rows, std::size_t count);

    static constexpr std::size_t npos = static_cast<std::size_t>(-1);
    /// The feature's place in the table, or `npos`.
    std::size_t find(std::string_view name) const;
    const FeatureRow& row(std::size_t feature) const { return rows[feature]; }

    std::int64_t get(std::size_t feature, std::size_t bank = 0) const { return values[feature][bank]; }
    void put(std::size_t feature, std::int64_t stored, std::size_t bank = 0) { values[feature][bank] = stored; }

private:
    const FeatureRow* rows;
    std::vector<std::array<std::int64_t, timerCount>> values;
};

}  // namespace ebus
