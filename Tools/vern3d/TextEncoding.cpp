#include "TextEncoding.h"

namespace vern3d {

namespace {

// Length of the valid UTF-8 sequence at `i`, or 0.
size_t Utf8Sequence(const std::string& text, size_t i)
{
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(i);
    size_t length = 0;
    uint32_t code = 0;
    if (lead < 0x80)
        return 1;
    if (lead >= 0xC2 && lead <= 0xDF)
        length = 2, code = lead & 0x1F;
    else if (lead >= 0xE0 && lead <= 0xEF)
        length = 3, code = lead & 0x0F;
    else if (lead >= 0xF0 && lead <= 0xF4)
        length = 4, code = lead & 0x07;
    else
        return 0;
    if (i + length > text.size())
        return 0;
    for (size_t k = 1; k < length; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80)
            return 0;
        code = code << 6 | (byte(i + k) & 0x3F);
    }
    const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    if (overlong || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
        return 0;
    return length;
}

}  // namespace

std::string ToUtf8(const std::string& bytes)
{
    std::string text;
    text.reserve(bytes.size());
    for (size_t i = 0; i < bytes.size();) {
        const size_t length = Utf8Sequence(bytes, i);
        if (length > 0) {
            text.append(bytes, i, length);
            i += length;
        } else {
            const auto latin1 = static_cast<unsigned char>(bytes[i++]);
            text += static_cast<char>(0xC0 | latin1 >> 6);
            text += static_cast<char>(0x80 | (latin1 & 0x3F));
        }
    }
    return text;
}

}  // namespace vern3d
