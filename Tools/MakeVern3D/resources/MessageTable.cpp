// The program's message table: every text that MakeVern3D shows to its user, keyed by id, apart
// from the symbol parser's own (4096 to 4107, Parser/ParserMessages.cpp). Texts are formats of the
// messages in Messages.h, filled by their callers; they are stored exactly as shown to the user.
#include "AbstractData/ResString.h"
#include "resources/Messages.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

namespace {

constexpr std::string_view kHelpText =
    "MakeVern3D command line arguments\n"
    "\n"
    "\n"
    "MakeVern3D.exe [inputfiles] [-o outputfile] [-h] [-maop] [-obj objects]\n"
    "\n"
    "-o outputfile\t->\tspecifies the outputfile\n"
    "-h\t->\toutputs a short description\n"
    "-ma filename\t->\tuse file for mesh anim operations (like vertex move)\n"
    "-maop\t->\tin mesh animations output only positions of vertices (this can save a lot of disk space)\n"
    "-obj objects\t->\tconvert specified objects (this includes subobjects), not specified \n"
    "\n"
    "inputfiles\t->\tfilename[ inputfiles]\n"
    "outputfile\t->\tfilename\n"
    "filename\t->\t//a file name; if the file name contains space characters the file name must be enclosed in quotations marks\n"
    "objects\t->\tobjectname[ objects]\n"
    "objectname\t->\t//an object name; if the object name contains space characters the object name must be enclosed in quotations marks\n"
    "\n"
    "\n"
    "examples\n"
    "\n"
    "MakeVern3D.exe inputA inputB.ase -o output\n"
    "\tcompiles \"inputA\" or \"inputA.ase\" to \"output01.vern3D\"\n"
    "\tcompiles \"inputB.ase\" to \"output02.vern3D\"\n"
    "\n"
    "MakeVern3D.exe \"file with spaces.ase\"\n"
    "\t";

constexpr std::array<std::pair<uint32_t, std::string_view>, 60> kMessages{{
    {1, "MakeVern3D Version 2.0\n"
        "Copyright (C) The MakeVern3D developers. All rights reserved.\n"
        "\n"},
    {2, kHelpText},
    {3, "An error is occured during a output file operation.\n"},
    {4, "File successful compiled.\n"},
    {5, "The ASE file has an old version number. This can end with wrong results.\n"},
    {6, "Unknown material class '%s'.\n"},
    {7, "Unknown map type '%s'.\n"},
    {8, "Unknown map class '%s'.\n"},
    {9, "Color vertices are not supported at this time.\n"},
    {10, "Can not found parent object '%s' of object '%s'.\n"},
    {11, "Unknown helper class '%s'.\n"},
    {12, "Found node name '%s' but expected '%s'.\n"},
    {13, "Unknown XP type '%s' in material '%s'.\n"},
    {14, "Invalid material id '%d' in object '%s'.\n"},
    {15, "For creating a matrix animation from a mesh animation is a mesh animation necessary. "
         "This error appears in object '%s'."},
    {16, "The vertex count differs to older frames. Object: %s Frame: %d\n"},
    {17, "Object '%s' already has a parent; the parent record '%s' is ignored.\n"},
    {18, "Unknown option '-%s' is ignored.\n"},
    {19, "The scene's frame speed times its ticks per frame is 0; key and frame times are set to 0.\n"},
    {20, "For creating a matrix animation from a mesh animation every frame needs three vertices. "
         "Object: %s Frame: %d\n"},
    {21, "Material number %d is out of range (0 to %d).\n"},
    {22, "Vertex or face number or count %d is out of range (0 to %d).\n"},
    {23, "The vertex and face lists of this file would hold more than %u entries, more than its size can describe.\n"},
    {24, "Object '%s' refers to material %d, which the material list does not define.\n"},
    {25, "Face %d of object '%s' uses vertex %d, which its mesh does not have.\n"},
    {26, "The vertex file '%s' is missing or shorter than its counts.\n"},
    {27, "The vertex file '%s' holds unequal numbers of vertex sources and vertices.\n"},
    // Departures that -compat makes from the classic rules, each said as a warning.
    {28, "Object '%s' has no material; it gets a default material.\n"},
    {29, "Face normals come without corner normals; the corners take their face's normal.\n"},
    {30, "%s '%s' is read as a transform node.\n"},
    {31, "Group '%s' is read as a transform node.\n"},
    {32, "The target '%s' of '%s' is not kept.\n"},
    {33, "Parent '%s' of object '%s' comes later in the file; the object is linked to it at the end.\n"},
    {34, "Sampled track '%s' of '%s' becomes %u keys.\n"},
    {35, "The scale of '%s' changes over time; the keys keep the scale of its transform.\n"},
    {36, "The scene gives no '%s'; %d is taken.\n"},
    {37, "The version number is missing.\n"},
    {38, "Faces come without edge flags; they are taken as 0.\n"},
    // Output that would pass the bound of the file's lists.
    {40, "The render mesh of object '%s' would take the vertex and face lists of this file past %u entries, "
         "more than its size can describe.\n"},
    {41, "The animation frames of object '%s', each rebuilt on its %u render vertices, would take the vertex and "
         "face lists of this file past %u entries, more than its size can describe.\n"},
    {42, "Object '%s' has edges as short as %g; its corners weld within %g instead of %g, so that no face loses "
         "a corner.\n"},
    {43, "The weld tolerance '%s' is not a number of 0 or more; %g is kept.\n"},
    {44, "The thread count '%s' is not a whole number from 0 to %u; %u is kept.\n"},
    // -ivertex reads only regular files inside its folder; what is refused is never opened.
    {50, "Object '%s' names its vertex file by an absolute path; vertex files are read only inside the vertex folder.\n"},
    {51, "Object '%s' names its vertex file with a '..' component; vertex files are read only inside the vertex folder.\n"},
    {52, "The name of object '%s' holds a control character or a zero byte; it names no vertex file.\n"},
    {53, "The vertex file of object '%s' leads outside the vertex folder through a symbolic link; it is not read.\n"},
    {54, "The vertex file of object '%s' is not a regular file; it is not read.\n"},
    {55, "The vertex folder '%s' cannot be opened.\n"},
    {60, "The file ends inside a block begun on line %d; the blocks still open are closed there.\n"},
    {61, "Value '%s' of a %s is not a finite number; it cannot be converted.\n"},
    {62, "The %s holds values that are not finite numbers; they are not used.\n"},
    {63, "'%s' without a number takes %d, the next in order; so do the later ones of this list.\n"},
    {64, "Sampled track '%s' of '%s' becomes 1 key.\n"},
    {65, "... and %u more %s.\n"},
    // Printed on standard error, after a file failed without -compat.
    {66, "Note: '%s' converts with -compat, which reads what failed here.\n"},
    // Printed on standard error, after the last input, under -depfile.
    {90, "error: The dependency file '%s' is not written: Make and Ninja cannot read the name '%s' in it.\n"},
    {91, "error: The dependency file '%s' could not be written.\n"},
    // Shown while an animated mesh is written.
    {100, "frame %d  "},
    {101, "Warning: Frame %d not saved. Because it equals the last frame.\n"},
}};

}  // namespace

std::string_view RepeatWords(uint32_t messageId, uint32_t hidden)
{
    // What the count line of a warning that repeats says of the warnings it stands for.
    struct Words {
        uint32_t id;
        std::string_view one;
        std::string_view many;
    };
    static constexpr Words kWords[] = {
        {kMessageDefaultMaterial.id, "object without a material", "objects without a material"},
        {kMessageFaceNormalsOnly.id, "normal list without corner normals", "normal lists without corner normals"},
        {kMessageNodeFromObject.id, "camera, light or bone read as a transform node",
         "cameras, lights and bones read as transform nodes"},
        {kMessageNodeFromGroup.id, "group read as a transform node", "groups read as transform nodes"},
        {kMessageTargetDropped.id, "target not kept", "targets not kept"},
        {kMessageParentLater.id, "object linked to a later parent", "objects linked to a later parent"},
        {kMessageSampledTrack.id, "sampled track made into keys", "sampled tracks made into keys"},
        {kMessageScaleNotKept.id, "object whose scale changes over time", "objects whose scale changes over time"},
        {kMessageNoEdgeFlags.id, "face list without edge flags", "face lists without edge flags"},
        {kMessageNonFiniteUnused.id, "list with unused values that are not finite numbers",
         "lists with unused values that are not finite numbers"},
        {kMessageWeldToleranceShrunk.id, "mesh welded within a smaller tolerance", "meshes welded within a smaller tolerance"},
    };
    const auto words = std::find_if(std::begin(kWords), std::end(kWords), [&](const Words& w) { return w.id == messageId; });
    if (words == std::end(kWords))
        return {};
    return hidden == 1 ? words->one : words->many;
}

bool FindModuleString(uint32_t id, std::string_view* text)
{
    const auto found = std::find_if(kMessages.begin(), kMessages.end(),
                                    [id](const auto& entry) { return entry.first == id; });
    if (found == kMessages.end())
        return false;
    *text = found->second;
    return true;
}
