#include "FeatureStore.h"

#include <algorithm>

namespace ebus {
namespace {

constexpr std::array<std::string_view, 4> typeNames{"a boolean", "an integer", "a floating-point number",
                                                    "an enumeration"};

std::string quoted(std::string_view text) {
    return '"' + std::string(text) + '"';
}

std::string feature(const FeatureRow& row) {
    return "feature " + quoted(row.name);
}

std::string allowedTexts(const FeatureRow& row) {
    std::string texts;
    for (const EnumEntry& entry : row.entries) {
        if (!texts.empty()) texts += ", ";
        texts += entry.text;
    }
    return texts;
}

PvResult checkEntry(const FeatureRow& row, const Enumerator& wanted, std::int64_t& stored) {
    const EnumEntry* const entry = std::find_if(row.entries.begin(), row.entries.end(), [&](const EnumEntry& each) {
        return wanted.text ? each.text == *wanted.text : each.number == wanted.number;
    });
    if (entry == row.entries.end())
        return PvResult(PvResult::OutOfRange, feature(row) + " takes " + allowedTexts(row) + ", not " +
                                                  (wanted.text ? quoted(*wanted.text) : std::to_string(wanted.number)));
    stored = entry->number;
    return {};
}

}  // namespace

PvResult unknownFeature(std::string_view name) {
    return PvResult(PvResult::NotFound, "there is no feature " + quoted(name));
}

PvResult checkType(const FeatureRow& row, FeatureType type) {
    if (row.type == type) return {};
    return PvResult(PvResult::WrongType, feature(row) + " is " +
                                             std::string(typeNames[static_cast<std::size_t>(row.type)]) + ", not " +
                                             std::string(typeNames[static_cast<std::size_t>(type)]));
}

PvResult checkWrite(const FeatureRow& row, const FeatureValue& value, std::int64_t& stored) {
    if (const PvResult type = checkType(row, static_cast<FeatureType>(value.index())); type.IsFailure()) return type;
    if (row.access == Access::ReadOnly) return PvResult(PvResult::ReadOnly, feature(row) + " is read only");
    if (const bool* const flag = std::get_if<bool>(&value)) {
        stored = *flag ? 1 : 0;
        return {};
    }
    if (const Enumerator* const wanted = std::get_if<Enumerator>(&value)) return checkEntry(row, *wanted, stored);
    const std::int64_t number = std::get<std::int64_t>(value);
    if (number < row.minimum || number > row.maximum)
        return PvResult(PvResult::OutOfRange, feature(row) + " takes " + std::to_string(row.minimum) + " to " +
                                                  std::to_string(row.maximum) + ", not " + std::to_string(number));
    stored = number;
    return {};
}

FeatureValue toValue(const FeatureRow& row, std::int64_t stored) {
    switch (row.type) {
        case FeatureType::Boolean:
            return stored != 0;
        case FeatureType::Float:
            return static_cast<double>(stored);
        case FeatureType::Enumeration:
            for (const EnumEntry& entry : row.entries)
                if (entry.number == stored) return Enumerator{stored, std::string(entry.text)};
            return Enumerator{stored, std::string()};
        case FeatureType::Integer:
            break;
    }
    return stored;
}

FeatureStore::FeatureStore(const FeatureRow* rows, std::size_t count) : rows(rows), values(count) {
    for (std::size_t feature = 0; feature < count; ++feature) values[feature].fill(rows[feature].start);
}

std::size_t FeatureStore::find(std::string_view name) const {
    for (std::size_t feature = 0; feature < values.size(); ++feature)
        if (rows[feature].name == name) return feature;
    return npos;
}

}  // namespace ebus
