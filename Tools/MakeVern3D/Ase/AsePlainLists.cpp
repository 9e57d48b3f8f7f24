// Mesh lists read at memory speed. A list whose lines all have their plain shape (one record per
// line, a normal record on four, records numbered one after another) is cut into parts at record
// lines; each part is read on a thread of its own into its own range of the list (the range its
// first and the next part's first record numbers give), with the same words and the same scans
// as the block readers use, so the values are theirs. Such a list gives no diagnostic by design:
// a part that meets anything else (another word, a value that does not scan, a number out of
// order, an entry already set, a list past our bounds) fails, every part's results are dropped
// and the block reader reads the whole list from its "{", reporting as it always has. Each part's
// text is given back to the system once it has been read.
#include "AbstractData/Parallel.h"
#include "Ase/AseParser.h"
#include "Parser/NumberScan.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <sys/mman.h>

namespace {

bool Int(LineCursor& at, int32_t* value) { return at.Int(value); }

// What ReadFloat takes without a report: ScanFloat's value, or under -compat a finite value of
// ScanFloatOrWindowsSpecial (the reader notes or refuses the others).
bool Float(LineCursor& at, bool compat, float* value)
{
    if (!compat)
        return at.Float(value);
    const std::string_view word = at.Word();
    return !word.empty() && ScanFloatOrWindowsSpecial(word, value) && std::isfinite(*value);
}

// Grows the list to `size` entries. The pages of a large list's new memory are first mapped (and
// cleared by the system) on all threads, in slices, before the entries are set on this one.
template <typename List>
void Grow(List& list, size_t size, uint32_t threads)
{
#ifdef MADV_POPULATE_WRITE  // Linux 5.14
    constexpr size_t kSlice = 4u << 20;
    const size_t bytes = (size - std::min(size, list.size())) * sizeof(typename List::value_type);
    if (threads > 1 && bytes >= 2 * kSlice) {
        list.reserve(size);
        const auto begin = reinterpret_cast<uintptr_t>(list.data() + list.size());
        ParallelFor((bytes + kSlice - 1) / kSlice, threads, [&](size_t i) {
            constexpr uintptr_t kPage = 4096;
            const uintptr_t from = (begin + i * kSlice + kPage - 1) & ~(kPage - 1);
            const uintptr_t to = std::min(begin + (i + 1) * kSlice, begin + bytes) & ~(kPage - 1);
            if (from < to)
                ::madvise(reinterpret_cast<void*>(from), to - from, MADV_POPULATE_WRITE);
        });
    }
#endif
    list.resize(size);
}

bool Vector(LineCursor& at, bool compat, Vector3& v)
{
    return Float(at, compat, &v.x) && Float(at, compat, &v.y) && Float(at, compat, &v.z);
}

}  // namespace

struct AseParser::PlainList {
    size_t linesPerRecord;
    std::string_view recordKeyword;  // the first word of a record's first line
    bool numbered;                   // entries go where their numbers say, else after the list's end
};

template <typename List, typename ReadRecord>
bool AseParser::ReadPlainList(std::string& symbol, List& list, const PlainList& shape, ReadRecord&& readRecord)
{
    using Entry = typename List::value_type;
    LineBlock block;
    if (listPartBytes == kBlockReadersOnly || blockDepth >= kMaxBlockDepth || !FindLineBlock(block, listThreads))
        return false;
    const std::vector<TextPart> parts = SplitLines(block, listPartBytes, size_t{4} * listThreads, shape.recordKeyword);

    // Plain records are numbered one after another: each part holds the numbers from its first
    // record's to the next part's first, the last part up to the last record's number.
    const auto numberAt = [&](const char* line, int64_t* number) {
        LineCursor at(LineClasses(), kMaxSymbolLength, line);
        int32_t value = 0;
        const bool read = at.Keyword(shape.recordKeyword) && at.Int(&value);
        *number = value;
        return read;
    };
    std::vector<int64_t> first(parts.size() + 1, 0);
    const char* lastRecord = block.recordsEnd;
    for (size_t back = 0; back < shape.linesPerRecord && lastRecord != block.records; ++back) {
        const auto* newline = static_cast<const char*>(
            ::memrchr(block.records, '\n', static_cast<size_t>(lastRecord - 1 - block.records)));
        lastRecord = newline ? newline + 1 : block.records;
    }
    for (size_t i = 0; i < parts.size(); ++i) {
        if (!numberAt(parts[i].begin, &first[i]) || (i > 0 && first[i] <= first[i - 1]))
            return false;
    }
    if (!parts.empty() && (!numberAt(lastRecord, &first.back()) || ++first.back() <= first[parts.size() - 1]))
        return false;
    const size_t records = static_cast<size_t>(first.back() - first.front());

    // A numbered list's entries are its numbers, within our bounds on numbers and on the entries
    // they create (so that none of them is reported); the others go after the list's end.
    const size_t oldSize = list.size();
    size_t base = oldSize;
    uint64_t taken = 0;
    if (shape.numbered && records > 0) {
        if (first.front() < 0 || first.back() > kMaxListEntries)
            return false;
        base = static_cast<size_t>(first.front());
        taken = std::max(oldSize, base + records) - oldSize;
        if (taken > scene.lists.Free())
            return false;
        scene.lists.Take(taken);
    }
    Grow(list, std::max(oldSize, base + records), listThreads);

    std::vector<size_t> written(parts.size(), 0);
    std::atomic<bool> failed{false};
    const Entry blank{};
    ParallelFor(parts.size(), listThreads, [&](size_t i) {
        LineCursor at(LineClasses(), kMaxSymbolLength, parts[i].begin);
        Entry entry;
        int32_t number = 0;
        const size_t from = base + static_cast<size_t>(first[i] - first.front());
        const size_t to = base + static_cast<size_t>(first[i + 1] - first.front());
        for (size_t index = from; index < to; ++index) {
            if (failed.load(std::memory_order_relaxed) || !readRecord(at, entry, number) ||
                number != first[i] + static_cast<int64_t>(index - from) ||
                (index < oldSize && std::memcmp(&list[index], &blank, sizeof(Entry)) != 0)) {
                failed = true;
                return;
            }
            list[index] = entry;
            ++written[i];
        }
        if (at.Position() != parts[i].end) {
            failed = true;
            return;
        }
        ReleaseText(parts[i].begin, parts[i].end);
    });

    if (failed) {
        // Entries written over were blank; entries added go with the resize.
        for (size_t i = 0; i < parts.size(); ++i) {
            const size_t from = base + static_cast<size_t>(first[i] - first.front());
            for (size_t index = from; index < std::min(from + written[i], oldSize); ++index)
                list[index] = blank;
        }
        list.resize(oldSize);
        scene.lists.used -= taken;
        return false;
    }
    EndLineBlock(block, records * shape.linesPerRecord);
    symbol = BlockEnd();
    return true;
}

bool AseParser::ReadPlainVertices(std::string& symbol, Mesh& mesh)
{
    return ReadPlainList(symbol, mesh.vertices, {1, "*MESH_VERTEX", true}, [&](LineCursor& at, Vector3& v, int32_t& number) {
        return at.Keyword("*MESH_VERTEX") && Int(at, &number) && Vector(at, compat, v) && at.EndLine();
    });
}

bool AseParser::ReadPlainFaces(std::string& symbol, Mesh& mesh)
{
    return ReadPlainList(symbol, mesh.faces, {1, "*MESH_FACE", true}, [&](LineCursor& at, MeshFace& face, int32_t& number) {
        if (!at.Keyword("*MESH_FACE") || !Int(at, &number))
            return false;
        int32_t* const fields[] = {&face.a, &face.b, &face.c, &face.ab, &face.bc, &face.ca};
        for (int32_t* field : fields) {
            // Labels are not checked; -compat would take one that begins a smoothing list as the
            // end of a line without edge flags.
            const std::string_view label = at.Word();
            if (label.empty() || (compat && field == &face.ab && label.starts_with("*MESH_SMOOTHING")) ||
                !Int(at, field))
                return false;
        }
        if (!at.Keyword("*MESH_SMOOTHING"))
            return false;
        const std::string_view smoothing = at.Word();
        if (smoothing == "*MESH_MTLID") {
            face.smoothingGroup = -1;
        } else if (smoothing.empty() || !ScanInt(smoothing, &face.smoothingGroup) || !at.Keyword("*MESH_MTLID")) {
            return false;
        }
        return Int(at, &face.materialId) && at.EndLine();
    });
}

bool AseParser::ReadPlainTexVertices(std::string& symbol, Mesh& mesh)
{
    return ReadPlainList(symbol, mesh.texVertices, {1, "*MESH_TVERT", false}, [&](LineCursor& at, MeshTexVertex& v, int32_t& number) {
        return at.Keyword("*MESH_TVERT") && Int(at, &v.index) && (number = v.index, true) && Float(at, compat, &v.u) &&
               Float(at, compat, &v.v) && Float(at, compat, &v.w) && at.EndLine();
    });
}

bool AseParser::ReadPlainTexFaces(std::string& symbol, Mesh& mesh)
{
    return ReadPlainList(symbol, mesh.texFaces, {1, "*MESH_TFACE", false}, [&](LineCursor& at, MeshTexFace& face, int32_t& number) {
        return at.Keyword("*MESH_TFACE") && Int(at, &face.index) && (number = face.index, true) && Int(at, &face.a) && Int(at, &face.b) &&
               Int(at, &face.c) && at.EndLine();
    });
}

bool AseParser::ReadPlainNormals(std::string& symbol, Mesh& mesh)
{
    const PlainList shape{4, "*MESH_FACENORMAL", false};
    return ReadPlainList(symbol, mesh.normals, shape, [&](LineCursor& at, MeshFaceNormals& record, int32_t& number) {
        if (!at.Keyword("*MESH_FACENORMAL") || !Int(at, &record.faceIndex) || !Vector(at, compat, record.faceNormal) ||
            !at.EndLine())
            return false;
        number = record.faceIndex;
        for (Vector3& corner : record.vertexNormals) {
            // The vertex number is not kept.
            if (!at.Keyword("*MESH_VERTEXNORMAL") || at.Word().empty() || !Vector(at, compat, corner) || !at.EndLine())
                return false;
        }
        return true;
    });
}
