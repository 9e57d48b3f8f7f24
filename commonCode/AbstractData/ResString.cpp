#include "AbstractData/ResString.h"

#include "AbstractData/Platform.h"
#include "AbstractData/Trace.h"

#include <cstring>
#include <memory>

namespace {
constexpr const char* kSource = "commonCode/AbstractData/ResString";
}

int LoadStringPortable(uint32_t id, char* buffer, int capacity)
{
    std::string_view text;
    if (!FindModuleString(id, &text)) {
        platform::SetLastError(platform::ERROR_RESOURCE_NAME_NOT_FOUND_CODE);
        if (capacity > 0)
            buffer[0] = '\0';
        return 0;
    }
    if (capacity <= 0)
        return 0;
    const size_t count = std::min(text.size(), static_cast<size_t>(capacity - 1));
    std::memcpy(buffer, text.data(), count);
    buffer[count] = '\0';
    return static_cast<int>(count);
}

HRESULT ResString::Load(uint32_t id)
{
    HRESULT status = S_OK;
    int capacity = 16;
    std::unique_ptr<char[]> buffer;
    for (;;) {
        buffer = std::make_unique<char[]>(static_cast<size_t>(capacity));
        platform::SetLastError(0);
        const int count = LoadStringPortable(id, buffer.get(), capacity);
        if (count == 0)
            status = HResultFromWin32(platform::GetLastError());
        // The text fits only when at least two characters of the buffer stay free.
        if (capacity - count >= 2 || Failed(status))
            break;
        capacity *= 2;
    }
    assign(buffer.get());
    if (Failed(status))
        AssertHresult(kSource, __LINE__, status);
    return status;
}
