#pragma once

#include "AbstractData/Status.h"

#include <cstdint>

class InputStream {
public:
    virtual ~InputStream() = default;
    virtual HRESULT Read(void* buffer, uint32_t size) = 0;
};
