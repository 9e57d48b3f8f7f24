// Writing the scene tree: one ChunkNode per node, children's chunks first, then the node's
// NodeInfo and name, then its animation (and mesh) chunks.
#include "Output/NodeWriter.h"

#include "AbstractData/Trace.h"
#include "vern/VernWriter.h"

namespace {

constexpr const char* kSource = "Tools/MakeVern3D/BaseNode";
constexpr int kWriteReportLine = 521;

}  // namespace

HRESULT BaseNode::BeginWrite(NodeWriteContext&, bool* write)
{
    *write = true;
    return S_OK;
}

HRESULT BaseNode::EndWrite(NodeWriteContext& context)
{
    NodeInfo info;
    info.size = vern3d::kNodeInfoSize;
    if (IsTransformNode()) {
        auto& self = static_cast<TransformNode&>(*this);
        const size_t depth = context.path.Size();
        context.path.MergeAncestors(depth - 1);
        const bool parentHadBounds = parent && parent->hasBounds;
        self.FillInfo(info);
        if (parent && !parentHadBounds && parent->hasBounds)
            context.path.NoteBounds(depth - 2);
    } else {
        GetInfo(info);
    }

    context.record.Clear();
    context.record.Append(info);
    HRESULT status = context.writer.WriteData(context.record.Data(), context.record.Size(), chunk);
    if (Failed(status))
        return status;
    OutputStream* stream = nullptr;
    status = context.writer.BeginDirectWrite(&stream, chunk);
    if (Succeeded(status))
        status = VernWriter::WriteCountedString(name, stream);
    if (Succeeded(status))
        status = context.writer.EndDirectWrite(stream, chunk);
    return status;
}

HRESULT TransformNode::EndWrite(NodeWriteContext& context)
{
    const HRESULT status = BaseNode::EndWrite(context);
    if (Failed(status))
        return status;
    if (positionKeys.empty() && rotationKeys.empty())
        return S_OK;
    return WriteAnimationChunk(context);
}

HRESULT TransformNode::WriteAnimationChunk(NodeWriteContext& context)
{
    VernChunk* animation = nullptr;
    HRESULT status = context.writer.CreateChunk(&animation, vern3d::kChunkNodeAnimation, chunk);
    if (Failed(status))
        return status;

    const auto positionCount = static_cast<uint32_t>(positionKeys.size());
    const auto rotationCount = static_cast<uint32_t>(rotationKeys.size());
    LittleEndianBuffer& out = context.record;
    out.Clear();
    out.Append(vern3d::AnimationHeader{
        vern3d::kAnimationHeaderSize,
        (positionCount ? vern3d::kHasPositionKeys : 0u) | (rotationCount ? vern3d::kHasRotationKeys : 0u),
        vern3d::kAnimationHeaderSize + vern3d::kPositionKeySize * positionCount, positionCount,
        vern3d::kPositionKeySize, 0, rotationCount, vern3d::kRotationKeySize});
    status = context.writer.WriteData(out.Data(), out.Size(), animation);

    for (const PositionKey& key : positionKeys) {
        if (Failed(status))
            return status;
        out.Clear();
        out.Append(key);
        status = context.writer.WriteData(out.Data(), out.Size(), animation);
    }
    for (const RotationKey& key : rotationKeys) {
        if (Failed(status))
            return status;
        out.Clear();
        out.Append(key);
        status = context.writer.WriteData(out.Data(), out.Size(), animation);
    }
    return status;
}

HRESULT BaseNode::Write(NodeWriteContext& context, VernChunk* parentChunk)
{
    struct Frame {
        BaseNode* node;
        size_t next;
    };
    VernWriter& writer = context.writer;
    std::vector<BaseNode*> ancestors;
    for (BaseNode* node = parent; node; node = node->parent)
        ancestors.push_back(node);
    for (auto node = ancestors.rbegin(); node != ancestors.rend(); ++node)
        context.path.Push(*node);

    std::vector<Frame> stack;
    // Opens a node: its preparation, then its chunk under the parent's.
    auto open = [&](BaseNode* node, VernChunk* under) {
        bool write = true;
        HRESULT status = node->BeginWrite(context, &write);
        if (Failed(status) || !write)
            return status;
        status = writer.CreateChunk(&node->chunk, vern3d::kChunkNode, under);
        if (Failed(status))
            return AssertHresult(kSource, kWriteReportLine, status);
        stack.push_back({node, 0});
        context.path.Push(node);
        return S_OK;
    };

    HRESULT status = open(this, parentChunk);
    while (Succeeded(status) && !stack.empty()) {
        Frame& frame = stack.back();
        if (frame.next < frame.node->children.size()) {
            BaseNode* child = frame.node->children[frame.next++].get();
            status = open(child, frame.node->chunk);
            continue;
        }
        status = frame.node->EndWrite(context);
        if (Failed(status))
            break;
        stack.pop_back();
        context.path.Pop();
    }
    // A failure passes through every open level, each adding its report.
    for (size_t level = stack.size(); Failed(status) && level > 0; --level)
        AssertHresult(kSource, kWriteReportLine, status);
    return status;
}
