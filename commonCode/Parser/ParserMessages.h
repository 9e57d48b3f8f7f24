// The symbol parser's own messages (ids 4096 to 4107), for BaseParser and the readers built on it:
// the prefixes of every report, and the texts of what goes wrong in reading symbols and files.
#pragma once

#include "AbstractData/Message.h"

// The parser's table: the texts of the ids below.
bool FindParserString(uint32_t id, std::string_view* text);

inline constexpr Message<Text> kMessageCouldNotOpen{4096, FindParserString};
inline constexpr Message<Text, int32_t> kMessageErrorPrefix{4097, FindParserString};  // file, line
inline constexpr Message<> kMessageCouldNotReadChar{4098, FindParserString};
inline constexpr Message<Text> kMessageUnknownSymbol{4099, FindParserString};
inline constexpr Message<Text> kMessageMissingSymbol{4100, FindParserString};
inline constexpr Message<Text> kMessageCouldNotRead{4101, FindParserString};
inline constexpr Message<Text, Text> kMessageExpectedSymbol{4102, FindParserString};  // expected, found
inline constexpr Message<Text, int32_t> kMessageWarningPrefix{4103, FindParserString};  // file, line
inline constexpr Message<Text> kMessageCouldNotScan{4104, FindParserString};
inline constexpr Message<Text> kMessageWriteFailed{4105, FindParserString};  // the output file
inline constexpr Message<int32_t> kMessageSymbolTooLong{4106, FindParserString};
inline constexpr Message<int32_t> kMessageNestingTooDeep{4107, FindParserString};
