// Mesh geometry and mesh animation. The lists are stored as read: vertices and faces by their
// numbers (grown straight to number + 1), texture vertices, texture faces and normals appended.
// Nothing is checked against the counts; the output checks what it uses.
#include "Ase/AseParser.h"
#include "Parser/NumberScan.h"

#include <algorithm>

template <typename List>
bool AseParser::ResizeList(List& list, int64_t size)
{
    if (size < 0 || size > kMaxListEntries) {
        Error(kMessageListNumberRange, static_cast<int32_t>(size), kMaxListEntries);
        return false;
    }
    const auto newSize = static_cast<uint64_t>(size);
    if (newSize > list.size() && !scene.lists.Take(newSize - list.size())) {
        Error(kMessageListsTooLarge, scene.lists.Shown());
        return false;
    }
    list.resize(static_cast<size_t>(newSize));
    return true;
}

template <typename List>
bool AseParser::GrowForNumber(List& list, int32_t number)
{
    if (number < 0 || number >= kMaxListEntries) {
        Error(kMessageListNumberRange, number, kMaxListEntries - 1);
        return false;
    }
    return static_cast<size_t>(number) < list.size() || ResizeList(list, static_cast<int64_t>(number) + 1);
}

void AseParser::ReadMesh(std::string& symbol, Mesh& mesh)
{
    ReadBlock(symbol, [&](std::string& keyword) {
        int32_t value = 0;
        if (keyword == "*TIMEVALUE") {
            if (!ReadInt(keyword, &value))
                return Keyword::ReturnNow;
            mesh.time = TicksToMilliseconds(value);
        } else if (keyword == "*MESH_NUMVERTEX") {
            if (!ReadInt(keyword, &value))
                return Keyword::ReturnNow;
            if (!ResizeList(mesh.vertices, value))
                return Keyword::ReturnNow;
        } else if (keyword == "*MESH_NUMFACES" || keyword == "*MESH_NUMTVERTEX" || keyword == "*MESH_NUMTVFACES") {
            const bool faces = keyword == "*MESH_NUMFACES";
            const bool texVertices = keyword == "*MESH_NUMTVERTEX";
            if (!ReadInt(keyword, &value))
                return Keyword::ReturnNow;
            // The counts change nothing, but they size the lists once; a line takes at least 16
            // bytes, so no count can reserve more than the text could fill.
            const size_t hint = std::min<size_t>(static_cast<size_t>(std::max(value, 0)), textSize / 16);
            if (faces) {
                mesh.faces.reserve(hint);
                mesh.normals.reserve(hint);
            } else if (texVertices) {
                mesh.texVertices.reserve(hint);
            } else {
                mesh.texFaces.reserve(hint);
            }
        } else if (keyword == "*MESH_VERTEX_LIST") {
            ReadVertexList(keyword, mesh);
        } else if (keyword == "*MESH_FACE_LIST") {
            ReadFaceList(keyword, mesh);
        } else if (keyword == "*MESH_TVERTLIST") {
            ReadTexVertexList(keyword, mesh);
        } else if (keyword == "*MESH_TFACELIST") {
            ReadTexFaceList(keyword, mesh);
        } else if (keyword == "*MESH_NUMCVERTEX") {
            if (!ReadInt(keyword, &value))
                return Keyword::ReturnNow;
            if (value != 0)
                Warning(kMessageColorVertices);
        } else if (keyword == "*MESH_NORMALS") {
            ReadNormals(keyword, mesh);
        } else {
            return Keyword::NotMine;
        }
        return Keyword::Handled;
    });
}

void AseParser::ReadVertexList(std::string& symbol, Mesh& mesh)
{
    if (ReadPlainVertices(symbol, mesh))
        return;
    ReadBlock(symbol, [&](std::string& keyword) {
        if (keyword != "*MESH_VERTEX")
            return Keyword::NotMine;
        int32_t number = 0;
        Vector3 position;
        if (!ReadInt(keyword, &number) || !ReadFloat(keyword, &position.x, ValueUse::Position) ||
            !ReadFloat(keyword, &position.y, ValueUse::Position) ||
            !ReadFloat(keyword, &position.z, ValueUse::Position))
            return Keyword::ReturnNow;
        if (!GrowForNumber(mesh.vertices, number))
            return Keyword::ReturnNow;
        mesh.vertices[static_cast<size_t>(number)] = position;
        return Keyword::Handled;
    });
}

void AseParser::ReadFaceList(std::string& symbol, Mesh& mesh)
{
    if (ReadPlainFaces(symbol, mesh))
        return;
    bool edgeFlagsSaid = false;
    ReadBlock(symbol, [&](std::string& keyword) {
        if (keyword != "*MESH_FACE")
            return Keyword::NotMine;
        // "0:" — the number's trailing colon is optional.
        int32_t number = 0;
        if (!ReadInt(keyword, &number))
            return Keyword::ReturnNow;
        MeshFace face;
        // Each corner and edge flag follows a label (A:, B:, C:, AB:, BC:, CA:) that is not checked.
        std::string_view label;
        for (int32_t* field : {&face.a, &face.b, &face.c, &face.ab, &face.bc, &face.ca}) {
            // -compat: a face line that ends after its corners (a Maya exporter) has edge flags 0.
            if (compat && field == &face.ab && NextSymbolStartsWith("*MESH_SMOOTHING")) {
                if (!edgeFlagsSaid && ShowRepeated(kMessageNoEdgeFlags.id))
                    Warning(kMessageNoEdgeFlags);
                edgeFlagsSaid = true;
                break;
            }
            NextSymbolView(label);
            if (!ReadInt(keyword, field))
                return Keyword::ReturnNow;
        }
        NextSymbol(keyword);
        if (keyword != "*MESH_SMOOTHING") {
            Error(kMessageExpectedSymbol, "*MESH_SMOOTHING", keyword);
            return Keyword::ReturnNow;
        }
        // The smoothing list may be empty; "1,2,3" is one symbol that gives its first number.
        NextSymbol(keyword);
        if (keyword == "*MESH_MTLID") {
            face.smoothingGroup = -1;
        } else {
            if (!ScanInt(keyword, &face.smoothingGroup)) {
                Error(kMessageCouldNotScan, keyword);
                return Keyword::ReturnNow;
            }
            NextSymbol(keyword);
        }
        if (keyword != "*MESH_MTLID") {
            Error(kMessageExpectedSymbol, "*MESH_MTLID", keyword);
            return Keyword::ReturnNow;
        }
        if (!ReadInt(keyword, &face.materialId))
            return Keyword::ReturnNow;
        if (!GrowForNumber(mesh.faces, number))
            return Keyword::ReturnNow;
        mesh.faces[static_cast<size_t>(number)] = face;
        return Keyword::Handled;
    });
}

void AseParser::ReadTexVertexList(std::string& symbol, Mesh& mesh)
{
    // w is kept but never written.
    ReadListNotingUnused("texture vertex list", [&] {
        if (ReadPlainTexVertices(symbol, mesh))
            return;
        ReadBlock(symbol, [&](std::string& keyword) {
            if (keyword != "*MESH_TVERT")
                return Keyword::NotMine;
            MeshTexVertex vertex;
            if (!ReadInt(keyword, &vertex.index) || !ReadFloat(keyword, &vertex.u, ValueUse::TextureCoordinate) ||
                !ReadFloat(keyword, &vertex.v, ValueUse::TextureCoordinate) ||
                !ReadFloat(keyword, &vertex.w, ValueUse::NotWritten))
                return Keyword::ReturnNow;
            mesh.texVertices.push_back(vertex);
            return Keyword::Handled;
        });
    });
}

void AseParser::ReadTexFaceList(std::string& symbol, Mesh& mesh)
{
    if (ReadPlainTexFaces(symbol, mesh))
        return;
    ReadBlock(symbol, [&](std::string& keyword) {
        if (keyword != "*MESH_TFACE")
            return Keyword::NotMine;
        MeshTexFace face;
        if (!ReadInt(keyword, &face.index) || !ReadInt(keyword, &face.a) || !ReadInt(keyword, &face.b) ||
            !ReadInt(keyword, &face.c))
            return Keyword::ReturnNow;
        mesh.texFaces.push_back(face);
        return Keyword::Handled;
    });
}

void AseParser::ReadNormals(std::string& symbol, Mesh& mesh)
{
    // The output makes its normals from the faces: the values of the list are never written.
    ReadListNotingUnused("normal list", [&] { ReadNormalRecords(symbol, mesh); });
}

void AseParser::ReadNormalRecords(std::string& symbol, Mesh& mesh)
{
    if (ReadPlainNormals(symbol, mesh))
        return;
    bool faceNormalsOnlySaid = false;
    ReadBlock(symbol, [&](std::string& keyword) {
        // -compat: corner normals listed apart from their faces (by vertex) are not kept.
        if (compat && keyword == "*MESH_VERTEXNORMAL") {
            SkipValues(keyword, 4);
            return Keyword::Handled;
        }
        if (keyword != "*MESH_FACENORMAL")
            return Keyword::NotMine;
        MeshFaceNormals record;
        auto readVector = [&](Vector3& v) {
            return ReadFloat(keyword, &v.x, ValueUse::NotWritten) && ReadFloat(keyword, &v.y, ValueUse::NotWritten) &&
                   ReadFloat(keyword, &v.z, ValueUse::NotWritten);
        };
        if (!ReadInt(keyword, &record.faceIndex) || !readVector(record.faceNormal))
            return Keyword::ReturnNow;
        if (compat && !NextSymbolStartsWith("*MESH_VERTEXNORMAL")) {
            if (!faceNormalsOnlySaid && ShowRepeated(kMessageFaceNormalsOnly.id))
                Warning(kMessageFaceNormalsOnly);
            faceNormalsOnlySaid = true;
            for (Vector3& corner : record.vertexNormals)
                corner = record.faceNormal;
            mesh.normals.push_back(record);
            return Keyword::Handled;
        }
        for (Vector3& corner : record.vertexNormals) {
            NextSymbol(keyword);
            if (keyword != "*MESH_VERTEXNORMAL") {
                Error(kMessageExpectedSymbol, "*MESH_VERTEXNORMAL", keyword);
                return Keyword::ReturnNow;
            }
            SkipValues(keyword, 1);  // the vertex number is not kept
            if (!readVector(corner))
                return Keyword::ReturnNow;
        }
        mesh.normals.push_back(record);
        return Keyword::Handled;
    });
}

void AseParser::ReadMeshAnimation(std::string& symbol, MeshNode& node)
{
    ReadBlock(symbol, [&](std::string& keyword) {
        if (keyword != "*MESH")
            return Keyword::NotMine;
        // The frame belongs to the node before it is read, so a frame that fails stays as far as read.
        node.frames.push_back(std::make_unique<Mesh>());
        Mesh& frame = *node.frames.back();
        ReadMesh(keyword, frame);
        if (frame.vertices.size() != node.mesh.vertices.size())
            Warning(kMessageVertexCountDiffers, node.name, static_cast<int32_t>(node.frames.size() - 1));
        return Keyword::Handled;
    });
}
