// The ASE reader: the ASE grammar on top of BaseParser. Block readers fill a Scene: the node
// tree, the materials and what later stages must know of the file. Under -compat the end of the
// file also links the objects whose parents came later and gives objects without a material one.
#pragma once

#include "Parser/BaseParser.h"
#include "Scene/BaseNode.h"
#include "Scene/NodeIndex.h"
#include "Scene/Scene.h"
#include "resources/Messages.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <unordered_map>
#include <utility>
#include <string>
#include <vector>

class AseParser : public BaseParser {
public:
    // Readers may nest blocks through HandleSymbol (an object inside an object inside a group...);
    // beyond this depth the file is refused instead of growing the stack.
    static constexpr int kMaxBlockDepth = 256;

    // Large mesh lists are read in parts of at least kListPartBytes on up to 4 x threads parts
    // (Ase/AsePlainLists.cpp); the parts' size is a parameter so that tests can split small lists.
    static constexpr size_t kListPartBytes = 256 * 1024;
    // As listPartBytes: every list is read by the block readers alone (the tests' reference).
    static constexpr size_t kBlockReadersOnly = SIZE_MAX;

    // Reports go to `reporter`; `compat` reads what other exporters write (-compat); `threads`
    // read the parts of a large list (1: everything on the calling thread).
    AseParser(Reporter& reporter, bool compat, uint32_t threads = 1, size_t listPartBytes = kListPartBytes);
    ~AseParser() override;

    // Called with each geometry object whose block has ended without error, once it is linked
    // (or waits for a later parent), and the scene read so far. The reader never changes the
    // object's mesh again, so other threads may read it while the reading goes on.
    std::function<void(MeshNode& node, const Scene& scene)> objectRead;

    // Reads `sourceName` into `scene`, which is replaced. Fails (after reporting) only when the file
    // cannot be loaded: nothing was read. Otherwise `scene` holds what was read, also after an
    // error (the reporter has it). The text is released before Read returns.
    HRESULT Read(const std::string& sourceName, Scene& scene);

    HRESULT Load(const std::string& sourceName) override;
    void Finish() override;
    void HandleSymbol(std::string& symbol) override;

    void ReadVersion(std::string& symbol);
    void ReadScene(std::string& symbol);
    void ReadGroup(std::string& symbol);
    // The block of a group after its name: everything in it is read as if at the top level; a
    // group read as a node (`groupNode`) also takes its own *NODE_TM.
    void ReadGroupContents(std::string& symbol, TransformNode* groupNode);
    void ReadGeomObject(std::string& symbol);
    void ReadHelperObject(std::string& symbol);
    void ReadNodeTM(std::string& symbol, TransformNode& node);
    // Links the node under the named parent; `owner` holds the node while it is not yet linked.
    void ReadNodeParent(std::string& symbol, TransformNode& node, std::unique_ptr<BaseNode>& owner);
    // `animatedName`, when given, receives the block's *NODE_NAME (empty without one).
    void ReadTmAnimation(std::string& symbol, TransformNode& node, std::string* animatedName = nullptr);
    void ReadBezierPositionKeys(std::string& symbol, std::vector<PositionKey>& keys);
    void ReadTcbRotationKeys(std::string& symbol, std::vector<RotationKey>& keys);

    // Materials: texture sets are shared between equal materials, property records are not.
    void ReadMaterialList(std::string& symbol);
    void ReadMaterial(std::string& symbol, TextureSet& textureSet, MaterialProperties& properties,
                      int32_t materialNumber);
    void ReadMap(std::string& symbol, TextureSet& textureSet, int32_t& xpType);
    void RegisterProperties(std::unique_ptr<MaterialProperties> properties, int32_t materialNumber,
                            int32_t subNumber);
    void RegisterTextureSet(std::unique_ptr<TextureSet> textureSet, int32_t materialNumber, int32_t subNumber);

    // Mesh geometry and mesh animation.
    void ReadMesh(std::string& symbol, Mesh& mesh);
    void ReadVertexList(std::string& symbol, Mesh& mesh);
    void ReadFaceList(std::string& symbol, Mesh& mesh);
    void ReadTexVertexList(std::string& symbol, Mesh& mesh);
    void ReadTexFaceList(std::string& symbol, Mesh& mesh);
    void ReadNormals(std::string& symbol, Mesh& mesh);
    void ReadNormalRecords(std::string& symbol, Mesh& mesh);
    void ReadMeshAnimation(std::string& symbol, MeshNode& node);

    // -compat: what other exporters write (Ase/AseCompatReaders.cpp). Each departure from the
    // classic rules is said as a warning where it happens.
    void ReadCameraOrLight(std::string& symbol, const char* kind);
    void ReadGroupAsNode(std::string& symbol);
    // Samples of a *CONTROL_*_TRACK block become keys our format holds: positions as Bezier keys
    // on straight lines, rotations (each relative to the sample before) as TCB keys.
    void ReadPositionSamples(std::string& symbol, std::vector<PositionKey>& keys, const std::string& owner);
    void ReadRotationSamples(std::string& symbol, std::vector<RotationKey>& keys, const std::string& owner);
    void ReadScaleSamples(std::string& symbol, const std::string& owner);
    void SayTrackSampled(const std::string& track, const std::string& owner, size_t keyCount);
    // 3ds Max's defaults (30 frames per second, 160 ticks per frame) for what the scene lacks.
    void TakeDefaultTiming();
    // Objects whose parent came later in the file are linked when the file has ended.
    void LinkLaterParents();
    // Mesh objects without a material get one: a texture set without entries, default properties.
    void GiveDefaultMaterials();
    // True when the next symbol begins with `prefix`; nothing is consumed.
    bool NextSymbolStartsWith(std::string_view prefix);
    // A warning that can come once per object or list, at the line being read: the first few of a
    // file are printed (true: print it now), later ones are counted and said once, as a count,
    // when the file has been read (Reporter::ShowRepeated).
    bool ShowRepeated(uint32_t messageId) { return reporter.ShowRepeated(messageId, line); }

    // Bounds of ours on numbers that size tables and lists: a material or sub-material number
    // above kMaxMaterialNumber, and a vertex or face number or vertex count above kMaxListEntries,
    // is refused. The entries that counts and numbers create count against the scene's
    // ListBudget, whose bound is the file's size (the loaded text's) plus its slack.
    static constexpr int32_t kMaxMaterialNumber = 65535;
    static constexpr int32_t kMaxListEntries = 1 << 26;

    // Milliseconds of a tick time with the scene's current settings (unsigned 32-bit arithmetic).
    int32_t TicksToMilliseconds(int32_t ticks);

    // Where a float goes. Under -compat a value that is not a finite number (the runtimes'
    // spellings of NaN and infinity included) is an error where it would be written, and only
    // noted (nonFiniteUnused) where the output does not use it.
    enum class ValueUse { NotWritten, Position, TextureCoordinate, Transform, Key };

    const bool compat;
    int32_t frameSpeed = -1;
    int32_t ticksPerFrame = -1;

protected:
    enum class Keyword { Handled, NotMine, ReturnNow };
    enum class Block { MissingBrace, Ended, ReturnedEarly };

    // The block loop shared by every reader: the "{" check, nested blocks skipped, the reader's
    // keywords, "}" ends the block, anything else goes to HandleSymbol.
    template <typename Keywords>
    Block ReadBlock(std::string& symbol, Keywords&& keywords);

    // One value: the next symbol scanned; a failed scan is reported (4104) and answers false.
    bool ReadInt(std::string& symbol, int32_t* value);
    bool ReadFloat(std::string& symbol, float* value, ValueUse use);
    // A float of a key line: a failed scan leaves the value as it was, without a report; under
    // -compat a value that is not a finite number is reported and answers false.
    bool ScanKeyValue(std::string_view text, float* value);
    // Runs `read` (a list reader); under -compat says once, after it, that the list held values
    // that are not finite numbers where they are not used.
    template <typename ReadList>
    void ReadListNotingUnused(const char* listName, ReadList&& read);
    void SkipValues(std::string& symbol, int count);

    // An object block: a new node of type Node, the shared object keywords, then `keywords`;
    // linked under the root at the end unless a parent record linked it.
    template <typename Node, typename Keywords>
    Block ReadObject(std::string& symbol, Keywords&& keywords);
    // A block of key lines: the time in ticks, the key's values, then `skipped` values.
    template <typename Key>
    void ReadKeyList(std::string& symbol, const char* keyName, int skipped, std::vector<Key>& keys);
    // The keywords that geometry and helper objects share: name, transform, parent, animation.
    Keyword ReadObjectKeyword(std::string& keyword, TransformNode& node, std::unique_ptr<BaseNode>& holder,
                              bool& parentRecord);

    void LinkNode(BaseNode* parent, std::unique_ptr<BaseNode> node);
    void RenameNode(BaseNode& node, const std::string& name);

    void BlocksClosedAtEnd(int32_t outermostLine) override;

private:
    bool EnterBlock();  // false (after reporting) when nesting is too deep
    void LeaveBlock()
    {
        --blockDepth;
        BlockClosed();
    }
    // Reads a material or sub-material number and checks it against kMaxMaterialNumber; under
    // -compat a block without its number takes `inOrder`.
    bool ReadMaterialNumber(std::string& symbol, int32_t* number, int32_t inOrder);
    // Resizes a vertex or face list to `size` entries when our bounds allow it (else reports).
    template <typename List>
    bool ResizeList(List& list, int64_t size);
    // Makes entry `number` exist (growing to number + 1 entries); negative numbers are refused.
    template <typename List>
    bool GrowForNumber(List& list, int32_t number);

    // A mesh list whose lines all have their plain shape, read in parts on listThreads threads
    // (Ase/AsePlainLists.cpp). False, with nothing read or changed, for any other list: the block
    // reader then reads it from its "{".
    bool ReadPlainVertices(std::string& symbol, Mesh& mesh);
    bool ReadPlainFaces(std::string& symbol, Mesh& mesh);
    bool ReadPlainTexVertices(std::string& symbol, Mesh& mesh);
    bool ReadPlainTexFaces(std::string& symbol, Mesh& mesh);
    bool ReadPlainNormals(std::string& symbol, Mesh& mesh);
    struct PlainList;
    template <typename List, typename ReadRecord>
    bool ReadPlainList(std::string& symbol, List& list, const PlainList& shape, ReadRecord&& readRecord);
    const uint32_t listThreads;
    const size_t listPartBytes;

    // -compat: objects whose *NODE_PARENT named no node read so far, with the record's line.
    struct LaterParent {
        std::unique_ptr<BaseNode> node;
        std::string parentName;
        int32_t line = 0;
    };
    std::vector<LaterParent> laterParents;

    Scene scene;  // the file's, while it is read
    NodeIndex nodeIndex;
    // First index in scene.textureSets of each distinct list of entries.
    std::unordered_map<std::string, int32_t> textureSetIndex;
    HRESULT loadStatus = S_OK;
    int blockDepth = 0;
    bool zeroTimeBaseWarned = false;
    bool unnumberedMaterialSaid = false;  // in the current material list
    bool nonFiniteUnused = false;         // in the current list
};

template <typename Keywords>
AseParser::Block AseParser::ReadBlock(std::string& symbol, Keywords&& keywords)
{
    NextSymbol(symbol);
    if (symbol != BlockBegin()) {
        Error(kMessageExpectedSymbol, BlockBegin(), symbol);
        return Block::MissingBrace;
    }
    if (!EnterBlock())
        return Block::Ended;
    // Taken once per block: every symbol of the block is compared with them.
    const std::string_view begin = BlockBegin();
    const std::string_view end = BlockEnd();
    bool more = NextSymbol(symbol);
    while (more && !HasError()) {
        if (symbol == begin) {
            SkipBlock(symbol);
        } else {
            const Keyword result = keywords(symbol);
            if (result == Keyword::ReturnNow) {
                LeaveBlock();
                return Block::ReturnedEarly;
            }
            if (result == Keyword::NotMine) {
                if (symbol == end)
                    break;
                HandleSymbol(symbol);
            }
        }
        more = NextSymbol(symbol);
    }
    LeaveBlock();
    return Block::Ended;
}

template <typename ReadList>
void AseParser::ReadListNotingUnused(const char* listName, ReadList&& read)
{
    const bool outer = std::exchange(nonFiniteUnused, false);
    read();
    if (nonFiniteUnused && !HasError() && ShowRepeated(kMessageNonFiniteUnused.id))
        Warning(kMessageNonFiniteUnused, listName);
    nonFiniteUnused = outer;
}
