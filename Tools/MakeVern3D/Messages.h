// Ids of the program's messages (texts in resources/MessageTable.cpp).
#pragma once

#include <cstdint>

enum MessageId : uint32_t {
    kMessageBanner = 1,
    kMessageHelp = 2,
    kMessageOptionValueMissing = 3,
    kMessageFileCompiled = 4,
    kMessageOldVersion = 5,
    kMessageUnknownMaterialClass = 6,
    kMessageUnknownMapType = 7,
    kMessageUnknownMapClass = 8,
    kMessageColorVertices = 9,
    kMessageParentNotFound = 10,
    kMessageUnknownHelperClass = 11,
    kMessageForeignNodeName = 12,
    kMessageUnknownXpType = 13,
    kMessageInvalidMaterialId = 14,
    kMessageAnimFromMeshNeedsFrames = 15,
    kMessageVertexCountDiffers = 16,
    kMessageSecondParent = 17,
    kMessageUnknownOption = 18,
    kMessageZeroTimeBase = 19,
    kMessageCouldNotOpen = 4096,
    kMessageErrorPrefix = 4097,
    kMessageCouldNotReadChar = 4098,
    kMessageUnknownSymbol = 4099,
    kMessageMissingSymbol = 4100,
    kMessageCouldNotRead = 4101,
    kMessageExpectedSymbol = 4102,
    kMessageWarningPrefix = 4103,
    kMessageCouldNotScan = 4104,
    kMessageWriteFailed = 4105,
    kMessageSymbolTooLong = 4106,
    kMessageNestingTooDeep = 4107,
};
