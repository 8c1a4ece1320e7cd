#include "PvGenParameterArray.h"

#include "FeatureStore.h"

using ebus::Enumerator;
using ebus::FeatureType;
using ebus::FeatureValue;

namespace {

template <typename Value>
PvResult read(ebus::FeatureAccess& access, const PvString& name, FeatureType type, Value& value) {
    FeatureValue read;
    const PvResult result = access.getFeature(name.GetAscii(), type, read);
    if (result.IsOK()) value = std::get<Value>(read);
    return result;
}

}  // namespace

PvGenParameterArray::PvGenParameterArray(std::shared_ptr<ebus::FeatureAccess> access) : access(std::move(access)) {}
PvGenParameterArray::~PvGenParameterArray() = default;

PvResult PvGenParameterArray::SetBooleanValue(const PvString& name, bool value) {
    return access->setFeature(name.GetAscii(), value);
}

PvResult PvGenParameterArray::GetBooleanValue(const PvString& name, bool& value) {
    return read(*access, name, FeatureType::Boolean, value);
}

PvResult PvGenParameterArray::SetIntegerValue(const PvString& name, std::int64_t value) {
    return access->setFeature(name.GetAscii(), value);
}

PvResult PvGenParameterArray::GetIntegerValue(const PvString& name, std::int64_t& value) {
    return read(*access, name, FeatureType::Integer, value);
}

PvResult PvGenParameterArray::SetFloatValue(const PvString& name, double value) {
    return access->setFeature(name.GetAscii(), value);
}

PvResult PvGenParameterArray::GetFloatValue(const PvString& name, double& value) {
    return read(*access, name, FeatureType::Float, value);
}

PvResult PvGenParameterArray::SetEnumValue(const PvString& name, std::int64_t value) {
    return access->setFeature(name.GetAscii(), Enumerator{value, {}});
}

PvResult PvGenParameterArray::SetEnumValue(const PvString& name, const PvString& value) {
    return access->setFeature(name.GetAscii(), Enumerator{0, value.GetAscii()});
}

PvResult PvGenParameterArray::GetEnumValue(const PvString& name, std::int64_t& value) {
    Enumerator entry;
    const PvResult result = read(*access, name, FeatureType::Enumeration, entry);
    if (result.IsOK()) value = entry.number;
    return result;
}

PvResult PvGenParameterArray::GetEnumValue(const PvString& name, PvString& value) {
    Enumerator entry;
    const PvResult result = read(*access, name, FeatureType::Enumeration, entry);
    if (result.IsOK()) value = entry.text.value_or("").c_str();
    return result;
}
