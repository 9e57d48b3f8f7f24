// Geometry objects, helper objects and the two readers they share: the node transform and the
// parent link.
#include "Ase/AseParser.h"
#include "resources/Messages.h"

#include <type_traits>

AseParser::Keyword AseParser::ReadObjectKeyword(std::string& keyword, TransformNode& node,
                                                std::unique_ptr<BaseNode>& holder, bool& parentRecord)
{
    if (keyword == "*NODE_NAME") {
        NextSymbol(keyword);
        RenameNode(node, keyword);
    } else if (keyword == "*NODE_TM") {
        ReadNodeTM(keyword, node);
    } else if (keyword == "*NODE_PARENT") {
        ReadNodeParent(keyword, node, holder);
        parentRecord = true;
    } else if (keyword == "*TM_ANIMATION") {
        ReadTmAnimation(keyword, node);
    } else {
        return Keyword::NotMine;
    }
    return Keyword::Handled;
}

template <typename Node, typename Keywords>
AseParser::Block AseParser::ReadObject(std::string& symbol, Keywords&& keywords)
{
    auto owner = std::make_unique<Node>();
    Node& node = *owner;
    std::unique_ptr<BaseNode> holder = std::move(owner);
    bool parentRecord = false;

    const Block result = ReadBlock(symbol, [&](std::string& keyword) {
        if (ReadObjectKeyword(keyword, node, holder, parentRecord) == Keyword::Handled)
            return Keyword::Handled;
        return keywords(keyword, node);
    });
    if constexpr (std::is_same_v<Node, MeshNode>) {
        if (compat && result == Block::Ended && !HasError() && node.materialRef == -1 &&
            ShowRepeated(kMessageDefaultMaterial.id))
            Warning(kMessageDefaultMaterial, node.name);
    }
    // Without a parent record the object hangs under the root once its block has ended; an
    // object left unlinked (no "{", a bad value, a missing parent) is discarded with `holder`.
    if (result == Block::Ended && !parentRecord)
        LinkNode(scene.root.get(), std::move(holder));
    if constexpr (std::is_same_v<Node, MeshNode>) {
        if (objectRead && result == Block::Ended && !HasError())
            objectRead(node, scene);
    }
    return result;
}

void AseParser::ReadGeomObject(std::string& symbol)
{
    ReadObject<MeshNode>(symbol, [&](std::string& keyword, MeshNode& node) {
        if (keyword == "*PROP_MOTIONBLUR" || keyword == "*PROP_CASTSHADOW" || keyword == "*PROP_RECVSHADOW") {
            SkipValues(keyword, 1);
        } else if (keyword == "*MATERIAL_REF") {
            if (!ReadInt(keyword, &node.materialRef))
                return Keyword::ReturnNow;
        } else if (keyword == "*MESH") {
            node.meshLine = Line();
            ReadMesh(keyword, node.mesh);
        } else if (keyword == "*MESH_ANIMATION") {
            node.animationLine = Line();
            ReadMeshAnimation(keyword, node);
        } else if (keyword == "*WIREFRAME_COLOR") {
            SkipValues(keyword, 3);
        } else {
            return Keyword::NotMine;
        }
        return Keyword::Handled;
    });
}

void AseParser::ReadHelperObject(std::string& symbol)
{
    // -compat: a bone (3ds Max bone and biped rigs) is a transform node like a dummy; what makes
    // it a bone has no place in our format.
    const TransformNode* bone = nullptr;
    const Block result = ReadObject<TransformNode>(symbol, [&](std::string& keyword, TransformNode& node) {
        if (keyword == "*HELPER_CLASS") {
            NextSymbol(keyword);
            if (compat && keyword == "Bone") {
                bone = &node;
            } else if (keyword != "Dummy" && keyword != "Band") {
                Error(kMessageUnknownHelperClass, keyword);
                return Keyword::ReturnNow;
            }
        } else if (keyword == "*BOUNDINGBOX_MIN" || keyword == "*BOUNDINGBOX_MAX") {
            SkipValues(keyword, 3);
        } else {
            return Keyword::NotMine;
        }
        return Keyword::Handled;
    });
    // The node lives on in the tree (or waiting for a later parent) once its block has ended.
    if (bone && result == Block::Ended && !HasError() && ShowRepeated(kMessageNodeFromObject.id))
        Warning(kMessageNodeFromObject, "Bone", bone->name);
}

void AseParser::ReadNodeTM(std::string& symbol, TransformNode& node)
{
    // A row's floats are stored one by one, so a row that fails half-way keeps its first values.
    auto readRow = [&](std::string& keyword, int row) {
        for (int column = 0; column < 3; ++column)
            if (!ReadFloat(keyword, &node.world(row, column), ValueUse::Transform))
                return false;
        node.world(row, 3) = row == 3 ? 1.0f : 0.0f;
        return true;
    };
    ReadBlock(symbol, [&](std::string& keyword) {
        static constexpr const char* kRows[] = {"*TM_ROW0", "*TM_ROW1", "*TM_ROW2", "*TM_ROW3"};
        if (keyword == "*NODE_NAME") {
            NextSymbol(keyword);
            RenameNode(node, keyword);
            return Keyword::Handled;
        }
        if (keyword == "*INHERIT_POS" || keyword == "*INHERIT_ROT" || keyword == "*INHERIT_SCL") {
            SkipValues(keyword, 3);
            return Keyword::Handled;
        }
        for (int row = 0; row < 4; ++row) {
            if (keyword == kRows[row])
                return readRow(keyword, row) ? Keyword::Handled : Keyword::ReturnNow;
        }
        if (keyword == "*TM_POS" || keyword == "*TM_ROTAXIS" || keyword == "*TM_SCALE" || keyword == "*TM_SCALEAXIS") {
            SkipValues(keyword, 3);
            return Keyword::Handled;
        }
        if (keyword == "*TM_ROTANGLE" || keyword == "*TM_SCALEAXISANG") {
            SkipValues(keyword, 1);
            return Keyword::Handled;
        }
        return Keyword::NotMine;
    });
}

void AseParser::ReadNodeParent(std::string& symbol, TransformNode& node, std::unique_ptr<BaseNode>& owner)
{
    NextSymbol(symbol);
    // A node has exactly one parent: a further parent record is named and ignored.
    if (!owner) {
        Warning(kMessageSecondParent, node.name, symbol);
        return;
    }
    BaseNode* parent = nodeIndex.Find(symbol);
    if (!parent && compat) {
        laterParents.push_back({std::move(owner), symbol, line});
        return;
    }
    if (!parent) {
        Error(kMessageParentNotFound, symbol, node.name);
        return;
    }
    LinkNode(parent, std::move(owner));
}
