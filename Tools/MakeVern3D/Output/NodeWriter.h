// What a node's write operations share while the scene tree is written.
#pragma once

#include "BaseNode.h"
#include "LittleEndian.h"

class AseParser;
class VernWriter;

struct NodeWriteContext {
    VernWriter& writer;
    AseParser& reader;
    OpenPath path;              // the nodes whose chunks are open, root first
    LittleEndianBuffer record;  // scratch space for one record
};

// A node's write stopped on an error it has already reported with file and line (output beyond
// the bound of the file's lists): no further report, and no output is left for the input.
constexpr HRESULT kWriteRefused = static_cast<HRESULT>(0x80044101u);

