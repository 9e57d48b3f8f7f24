// The ASE reader: the ASE grammar on top of BaseParser. Block readers fill the scene records and
// build the node tree; Finish applies selection and name directives and writes the vern3D file.
#pragma once

#include "BaseNode.h"
#include "BaseParser.h"
#include "ConvertSettings.h"
#include "NodeIndex.h"
#include "SceneRecords.h"

#include <memory>
#include <string>
#include <vector>

class AseParser : public BaseParser {
public:
    // Readers may nest blocks through HandleSymbol (an object inside an object inside a group...);
    // beyond this depth the file is refused instead of growing the stack.
    static constexpr int kMaxBlockDepth = 256;

    AseParser();
    ~AseParser() override;

    void Finish() override;
    void HandleSymbol(std::string& symbol) override;
    HRESULT ParseFile(const std::string& sourceName, const std::string& outputName) override;

    void ReadVersion(std::string& symbol);
    void ReadScene(std::string& symbol);
    void ReadGroup(std::string& symbol);
    void ReadGeomObject(std::string& symbol);
    void ReadHelperObject(std::string& symbol);
    void ReadNodeTM(std::string& symbol, TransformNode& node);
    // Links the node under the named parent; `owner` holds the node while it is not yet linked.
    void ReadNodeParent(std::string& symbol, TransformNode& node, std::unique_ptr<BaseNode>& owner);
    void ReadTmAnimation(std::string& symbol, TransformNode& node);
    void ReadBezierPositionKeys(std::string& symbol, std::vector<PositionKey>& keys);
    void ReadTcbRotationKeys(std::string& symbol, std::vector<RotationKey>& keys);

    // Milliseconds of a tick time with the scene's current settings (unsigned 32-bit arithmetic).
    int32_t TicksToMilliseconds(int32_t ticks);

    BaseNode* Root() const { return root.get(); }

    int32_t frameSpeed = -1;
    int32_t ticksPerFrame = -1;
    std::vector<std::unique_ptr<TextureSet>> textureSets;
    std::vector<std::unique_ptr<MaterialProperties>> materialProperties;
    std::vector<MaterialTableEntry> materialTable;
    std::unique_ptr<BaseNode> root;
    ConvertSettings settings;

protected:
    enum class Keyword { Handled, NotMine, ReturnNow };
    enum class Block { MissingBrace, Ended, ReturnedEarly };

    // The block loop shared by every reader: the "{" check, nested blocks skipped, the reader's
    // keywords, "}" ends the block, anything else goes to HandleSymbol.
    template <typename Keywords>
    Block ReadBlock(std::string& symbol, Keywords&& keywords);

    // One value: the next symbol scanned; a failed scan is reported (4104) and answers false.
    bool ReadInt(std::string& symbol, int32_t* value);
    bool ReadFloat(std::string& symbol, float* value);
    void SkipValues(std::string& symbol, int count);

    // An object block: a new node of type Node, the shared object keywords, then `keywords`;
    // linked under the root at the end unless a parent record linked it.
    template <typename Node, typename Keywords>
    void ReadObject(std::string& symbol, Keywords&& keywords);
    // A block of key lines: the time in ticks, the key's values, then `skipped` values.
    template <typename Key>
    void ReadKeyList(std::string& symbol, const char* keyName, int skipped, std::vector<Key>& keys);
    // The keywords that geometry and helper objects share: name, transform, parent, animation.
    Keyword ReadObjectKeyword(std::string& keyword, TransformNode& node, std::unique_ptr<BaseNode>& holder,
                              bool& parentRecord);

    void LinkNode(BaseNode* parent, std::unique_ptr<BaseNode> node);
    void RenameNode(BaseNode& node, const std::string& name);

private:
    bool EnterBlock();  // false (after reporting) when nesting is too deep
    void LeaveBlock() { --blockDepth; }
    HRESULT WriteSceneFile();

    NodeIndex nodeIndex;
    int blockDepth = 0;
    bool zeroTimeBaseWarned = false;
};

template <typename Keywords>
AseParser::Block AseParser::ReadBlock(std::string& symbol, Keywords&& keywords)
{
    NextSymbol(symbol);
    if (symbol != BlockBegin()) {
        Error(4102, BlockBegin(), symbol.c_str());
        return Block::MissingBrace;
    }
    if (!EnterBlock())
        return Block::Ended;
    bool more = NextSymbol(symbol);
    while (more && !errorFlag) {
        if (symbol == BlockBegin()) {
            SkipBlock(symbol);
        } else {
            const Keyword result = keywords(symbol);
            if (result == Keyword::ReturnNow) {
                LeaveBlock();
                return Block::ReturnedEarly;
            }
            if (result == Keyword::NotMine) {
                if (symbol == BlockEnd())
                    break;
                HandleSymbol(symbol);
            }
        }
        more = NextSymbol(symbol);
    }
    LeaveBlock();
    return Block::Ended;
}
