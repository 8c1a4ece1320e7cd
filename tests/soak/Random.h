#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <random>

namespace soak {

/// All chance of an episode comes from here, so that the seed tells the whole of it.
class Random {
public:
    explicit Random(std::uint64_t seed) : engine(seed) {}

    int below(int end) { return static_cast<int>(engine() % static_cast<std::uint64_t>(end)); }
    int between(int lowest, int highest) { return lowest + below(highest - lowest + 1); }
    bool percent(int chance) { return below(100) < chance; }
    float time(float longestMs) { return longestMs * static_cast<float>(below(100001)) / 100000.0F; }
    template <class Container>
    auto& pick(Container& all) {
        return *(std::begin(all) + below(static_cast<int>(std::size(all))));
    }

private:
    std::mt19937_64 engine;
};

}  // namespace soak
