#pragma once

#include "AbstractData/Status.h"

#include <cstdint>

class OutputStream {
public:
    virtual ~OutputStream() = default;
    virtual HRESULT Write(const void* buffer, uint32_t size) = 0;
};
