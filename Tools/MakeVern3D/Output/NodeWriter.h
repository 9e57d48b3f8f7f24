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
