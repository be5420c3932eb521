#include "tool/import/mesh_weld.h"

#include <cstring>
#include <unordered_map>

namespace {

struct PositionKey {
    uint64_t bits[3];
    bool operator==(const PositionKey& other) const {
        return std::memcmp(bits, other.bits, sizeof bits) == 0;
    }
};

struct PositionHash {
    size_t operator()(const PositionKey& key) const {
        uint64_t h = 1469598103934665603ull;
        for (uint64_t word : key.bits) h = (h ^ word) * 1099511628211ull ^ (word >> 29);
        return size_t(h);
    }
};

uint64_t Bits(double value) {
    if (value == 0.0) value = 0.0;  // -0 welds with +0
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

}  // namespace

std::vector<uint32_t> WeldPositions(const std::vector<DVec3>& positions) {
    std::vector<uint32_t> weld(positions.size());
    std::unordered_map<PositionKey, uint32_t, PositionHash> first;
    first.reserve(positions.size());
    for (size_t i = 0; i < positions.size(); ++i) {
        const DVec3& p = positions[i];
        PositionKey key = {{Bits(p.x), Bits(p.y), Bits(p.z)}};
        weld[i] = first.emplace(key, uint32_t(i)).first->second;
    }
    return weld;
}
