// Little-endian record building: every value that reaches a file goes through here. Whole
// records of the vern3D layout (vern/Vern3DLayout.h) are appended as the layout states them.
#pragma once

#include "vern/Vern3DLayout.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <vector>

class LittleEndianBuffer {
public:
    void U32(uint32_t value)
    {
        const uint8_t bytes[4] = {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8),
                                  static_cast<uint8_t>(value >> 16), static_cast<uint8_t>(value >> 24)};
        data.insert(data.end(), bytes, bytes + 4);
    }
    void I32(int32_t value) { U32(static_cast<uint32_t>(value)); }
    void U8(uint8_t value) { data.push_back(value); }
    void Reserve(size_t bytes) { data.reserve(bytes); }
    void F32(float value) { U32(std::bit_cast<uint32_t>(value)); }
    void F32s(const float* values, size_t count)
    {
        for (size_t i = 0; i < count; ++i)
            F32(values[i]);
    }
    template <vern3d::FileRecord Record>
    void Append(const Record& record)
    {
        data.resize(data.size() + sizeof record);
        vern3d::StoreRecord(data.data() + data.size() - sizeof record, record);
    }
    void Clear() { data.clear(); }

    const uint8_t* Data() const { return data.data(); }
    uint32_t Size() const { return static_cast<uint32_t>(data.size()); }

private:
    std::vector<uint8_t> data;
};
