// The parser's message table. Texts are stored exactly as shown to the user.
#include "Parser/ParserMessages.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

constexpr std::array<std::pair<uint32_t, std::string_view>, 12> kMessages{{
    {4096, "Could not open file '%s'.\n"},
    {4097, "%s(%d) error: "},
    {4098, "Could not read next char.\n"},
    {4099, "Do not know what symbol '%s' means.\n"},
    {4100, "Missing symbol '%s'.\n"},
    {4101, "Could not read from file '%s'.\n"},
    {4102, "Aspected symbol '%s' but found symbol '%s'.\n"},
    {4103, "%s(%d) warning: "},
    {4104, "Symbol '%s' could not scanned.\n"},
    {4105, "Error occured while writing file '%s'.\n"},
    // Our own additions for conditions the classic table has no words for.
    {4106, "Symbol is longer than %d characters.\n"},
    {4107, "Blocks are nested deeper than %d levels.\n"},
}};

}  // namespace

bool FindParserString(uint32_t id, std::string_view* text)
{
    const auto found =
        std::find_if(kMessages.begin(), kMessages.end(), [id](const auto& entry) { return entry.first == id; });
    if (found == kMessages.end())
        return false;
    *text = found->second;
    return true;
}
