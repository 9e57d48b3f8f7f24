#include "Ase/AseParser.h"
#include "support/AseTestParse.h"

#include <gtest/gtest.h>

namespace {

using asetest::ChildNames;
using asetest::kScene;
using asetest::ParseAse;
using Names = std::vector<std::string>;

std::string Helper(const std::string& name, const std::string& extra = "")
{
    return "*HELPEROBJECT {\n*NODE_NAME \"" + name + "\"\n" + extra + "*HELPER_CLASS \"Dummy\"\n}\n";
}

std::string Geom(const std::string& name, const std::string& extra = "")
{
    return "*GEOMOBJECT {\n*NODE_NAME \"" + name + "\"\n" + extra + "}\n";
}

// One report each: an error stops the conversion (no output), a warning does not; `top` are the
// root's children afterwards. Line 0: nothing is printed.
TEST(AseDocument, ReportsTheirLinesAndWhatIsKept)
{
    struct Case { std::string text; int line; std::string message; Names top; bool error = true; };
    std::string deep;  // objects inside objects, a thousand deep
    for (int i = 0; i < 1000; ++i)
        deep += "*GEOMOBJECT {\n";
    const std::string noFrames = "For creating a matrix animation from a mesh animation is a mesh animation necessary. ";
    const Case cases[] = {
        {"*3DSMAX_ASCIIEXPORT 199\n", 1, "The ASE file has an old version number. This can end with wrong results.\n", {}, false},
        {"*3DSMAX_ASCIIEXPORT 200\n", 0, "", {}, false},
        {"*3DSMAX_ASCIIEXPORT x\n", 1, "Symbol 'x' could not scanned.\n", {}},
        {"*SCENE {\n*SCENE_FILENAME \"a\"\n}\n", 3, "Missing symbol 'SCENE_TICKSPERFRAME'.\n", {}},
        {"*SCENE {\n*SCENE_FRAMESPEED x\n}\n", 2, "Symbol 'x' could not scanned.\n", {}},
        {"*SCENE word\n", 1, "Aspected symbol '{' but found symbol 'word'.\n", {}},
        // An unknown keyword with its own block: one warning, the block skipped.
        {"*SCENE {\n*SCENE_ENVMAP {\n*MAP_NAME \"x\"\n}\n*SCENE_FRAMESPEED 30\n*SCENE_TICKSPERFRAME 160\n}\n", 2,
         "Do not know what symbol '*SCENE_ENVMAP' means.\n", {}, false},
        // The object reader fails inside *SCENE; afterwards the missing values are still reported.
        {"*SCENE {\n*GEOMOBJECT {\n*MATERIAL_REF x\n}\n}\n", 3, "Missing symbol 'SCENE_TICKSPERFRAME'.\n", {}},
        // Directives run on what was read before an error, at the line where reading stopped; the
        // last error is the one shown.
        {Geom("convert(createanimfrommesh)A") + "*SCENE {\n*SCENE_FRAMESPEED x\n}\n", 5,
         noFrames + "This error appears in object 'convert(createanimfrommesh)A'.", {"A"}},
        {kScene + "*GEOMOBJECT {\n*NODE_NAME \"a\"\n", 7, "Could not read next char.\n", {"a"}},
        {Geom("C", "*NODE_PARENT \"P\"\n") + Helper("P"), 3, "Can not found parent object 'P' of object 'C'.\n", {}},
        {Geom("a", "*MATERIAL_REF x\n"), 3, "Symbol 'x' could not scanned.\n", {}},
        {"*GEOMOBJECT *NODE_NAME\n", 1, "Aspected symbol '{' but found symbol '*NODE_NAME'.\n", {}},
        {Helper("P") + Helper("Q") + Geom("C", "*NODE_PARENT \"P\"\n*NODE_PARENT \"Q\"\n"), 12,
         "Object 'C' already has a parent; the parent record 'Q' is ignored.\n", {"P", "Q"}, false},
        {"*HELPEROBJECT {\n*HELPER_CLASS \"Band\"\n}\n", 0, "", {""}, false},
        {"*HELPEROBJECT {\n*NODE_NAME \"x\"\n*HELPER_CLASS \"Point\"\n*MESH { }\n}\n", 3, "Unknown helper class 'Point'.\n", {}},
        {deep, 257, "Blocks are nested deeper than 256 levels.\n", Names(257, "")},
        {"*HELPEROBJECT {\n*MESH { }\n}\n", 2, "Do not know what symbol '*MESH' means.\n", {""}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        const auto parsed = ParseAse(c.text);
        const std::string expected = c.line ? parsed.At(c.line, c.error ? "error" : "warning") + c.message : "";
        EXPECT_EQ(c.error ? parsed.ErrorText() : parsed.printed, expected);
        EXPECT_EQ(parsed.Failed(), c.error);
        EXPECT_EQ(testfiles::Exists(parsed.output), !c.error);
        EXPECT_EQ(ChildNames(parsed.Root()), c.top);
        if (c.message == "Could not read next char.\n") {  // the end of the text reaches the object reader as a symbol
            EXPECT_NE(parsed.printed.find("Do not know what symbol 'baseparser file end' means.\n"), std::string::npos);
        }
        if (c.top.size() == 2) {  // the first parent stays
            EXPECT_EQ(ChildNames(parsed.Root()->Children()[0].get()), (Names{"C"}));
            EXPECT_EQ(ChildNames(parsed.Root()->Children()[1].get()), (Names{}));
        }
    }
}

TEST(AseDocument, SceneValuesAndTheTree)
{
    // 30.5 frames per second read as 30: a key at 4,800 ticks falls on 1,000 ms.
    auto good = ParseAse("*COMMENT \"c\"\n*SCENE {\n*SCENE_FILENAME \"a\"\n*SCENE_FIRSTFRAME 0\n*SCENE_LASTFRAME 100\n"
                         "*SCENE_FRAMESPEED 30.5\n*SCENE_TICKSPERFRAME 160\n*SCENE_BACKGROUND_STATIC 0 0 0\n"
                         "*SCENE_AMBIENT_STATIC 1 1 1\n}\n" +
                         Helper("k", "*TM_ANIMATION {\n*CONTROL_POS_BEZIER {\n"
                                     "*CONTROL_BEZIER_POS_KEY 4800 0 0 0 0 0 0 0 0 0 0\n}\n}\n"));
    EXPECT_EQ(good.printed, "");
    EXPECT_EQ(asetest::Child<TransformNode>(good).positionKeys.at(0).time, 1000);

    // Objects in groups and scenes; nested objects end up under the root, the inner one first.
    auto parsed = ParseAse("*GROUP \"g\" {\n" + Helper("inGroup") + "{ skipped }\n}\n*SCENE {\n" + Helper("inScene") +
                           "*SCENE_FRAMESPEED 30\n*SCENE_TICKSPERFRAME 160\n}\n" + Helper("top") +
                           "*GEOMOBJECT {\n*NODE_NAME \"outer\"\n" + Geom("inner") + "}\n");
    EXPECT_FALSE(parsed.Failed()) << parsed.ErrorText();
    EXPECT_EQ(parsed.Root()->name, "root node - " + parsed.source);
    EXPECT_EQ(ChildNames(parsed.Root()), (Names{"inGroup", "inScene", "top", "inner", "outer"}));

    // A bad transform row still links the object; the error stops the conversion.
    auto row = ParseAse(Geom("a", "*NODE_TM {\n*TM_ROW3 1 y 3\n}\n"));
    EXPECT_EQ(row.ErrorText(), row.At(4, "error") + "Symbol 'y' could not scanned.\n");
    EXPECT_EQ(asetest::Child<TransformNode>(row).world(3, 0), 1.0f);
    EXPECT_FALSE(testfiles::Exists(row.output));
}

TEST(GeometryObjects, NamesTransformsAndDefaults)
{
    auto parsed = ParseAse(kScene + Geom("first", "*NODE_TM {\n*NODE_NAME \"second name\"\n*INHERIT_POS 0 0 0\n*TM_ROW0 2 0 0\n"
                                                  "*TM_ROW1 0.0 0.0 1.0\n*TM_ROW2 0 -1 0\n*TM_ROW3 10 20 30\n*TM_POS 10 20 30\n"
                                                  "*TM_ROTAXIS 1 0 0\n*TM_ROTANGLE 1.57\n*TM_SCALE 2 1 1\n}\n"
                                                  "*PROP_CASTSHADOW 1\n*MATERIAL_REF 3\n*WIREFRAME_COLOR 1 1 1\n") +
                           Geom("plain"));
    ASSERT_EQ(ChildNames(parsed.Root()), (Names{"second name", "plain"}));
    const auto& node = asetest::Child<MeshNode>(parsed);
    const auto& plain = asetest::Child<MeshNode>(parsed, 1);
    EXPECT_EQ(std::tuple(node.world.m, node.materialRef, plain.world.m, plain.materialRef),
              std::tuple(std::array<float, 16>{2, 0, 0, 0, 0, 0, 1, 0, 0, -1, 0, 0, 10, 20, 30, 1}, 3, Matrix::Identity().m, -1));

    // Unknown keywords warn, and reading goes on.
    auto unknown = ParseAse(Geom("a", "*SOMETHING 12\n*MESH_CVERTLIST {\n*MESH_VERTCOL 0 1 1 1\n}\n"));
    EXPECT_EQ(unknown.printed, unknown.At(3) + "Do not know what symbol '*SOMETHING' means.\n" + unknown.At(3) +
                                   "Do not know what symbol '12' means.\n" + unknown.At(4) +
                                   "Do not know what symbol '*MESH_CVERTLIST' means.\n");
    EXPECT_EQ(ChildNames(unknown.Root()), (Names{"a"}));
}

TEST(GeometryObjects, ParentLinks)
{
    // Parents must come first; children of one parent follow their records' order.
    auto linked = ParseAse(Helper("P", "*NODE_TM {\n*TM_ROW3 1 2 3\n}\n*BOUNDINGBOX_MIN 0 0 0\n*BOUNDINGBOX_MAX 1 1 1\n") +
                           Geom("C", "*NODE_PARENT \"P\"\n") + Helper("Q") + Geom("D", "*NODE_PARENT \"P\"\n"));
    ASSERT_FALSE(linked.Failed()) << linked.ErrorText();
    EXPECT_EQ(ChildNames(linked.Root()), (Names{"P", "Q"}));
    const auto& helper = asetest::Child<TransformNode>(linked);
    EXPECT_EQ(ChildNames(&helper), (Names{"C", "D"}));
    EXPECT_EQ(helper.world(3, 2), 3.0f);
    EXPECT_TRUE(helper.positionKeys.empty());

    // A parent record may name the root, by the name it gets from the file's path.
    testfiles::ScratchDirectory directory;
    const std::string source = directory.Write("s.ase", Helper("h", "*NODE_PARENT \"root node - " + directory.Path() + "/s.ase\"\n"));
    Reporter reporter;
    Scene scene;
    testing::internal::CaptureStdout();
    ConvertFile(source, directory.Path() + "/s.vern3D", {}, reporter, scene);
    testing::internal::GetCapturedStdout();
    EXPECT_FALSE(reporter.HasError()) << reporter.ErrorText();
    EXPECT_EQ(ChildNames(scene.root.get()), (Names{"h"}));
}

TEST(AseReader, EachFileStartsAfresh)
{
    testfiles::ScratchDirectory directory;
    const std::string first = directory.Write("a.ase", kScene + Helper("A"));
    const std::string second = directory.Write("b.ase", Helper("B"));
    Reporter reporter;
    AseParser reader(reporter, false);
    Scene scene;
    reader.Read(first, scene);
    EXPECT_EQ(reader.frameSpeed, 30);
    reader.Read(second, scene);
    EXPECT_EQ(std::pair(reader.frameSpeed, reader.ticksPerFrame), std::pair(-1, -1));
    EXPECT_EQ(scene.root->name, "root node - " + second);
    EXPECT_EQ(ChildNames(scene.root.get()), (Names{"B"}));
}

}  // namespace
