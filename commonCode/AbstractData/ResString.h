// A string that can be filled from the program's message table.
#pragma once

#include "AbstractData/Message.h"
#include "AbstractData/Status.h"

#include <cstdint>
#include <string>
#include <string_view>

class ResString : public std::string {
public:
    using std::string::string;

    // Fills the string with message `id` as stored (unformatted). A missing id leaves the
    // string empty and returns a failure status.
    HRESULT Load(uint32_t id);
};

// LoadStringA as the resource loader has always used it: copies at most capacity - 1 characters
// of string `id`, terminates them, returns the count copied; 0 with the last error set when the
// id is unknown.
int LoadStringPortable(uint32_t id, char* buffer, int capacity);
