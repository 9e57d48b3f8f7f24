#include "Ase/AseParser.h"
#include "support/AseTestParse.h"

#include <gtest/gtest.h>

namespace {

using asetest::ChildNames;
using asetest::ParseAse;
using Names = std::vector<std::string>;

const std::string kScene = "*SCENE {\n*SCENE_FRAMESPEED 30\n*SCENE_TICKSPERFRAME 160\n}\n";

std::string Helper(const std::string& name, const std::string& extra = "")
{
    return "*HELPEROBJECT {\n*NODE_NAME \"" + name + "\"\n" + extra + "*HELPER_CLASS \"Dummy\"\n}\n";
}

TEST(AseDocument, VersionCheck)
{
    auto old = ParseAse("*3DSMAX_ASCIIEXPORT 199\n");
    EXPECT_FALSE(old.Failed());
    EXPECT_EQ(old.printed, old.At(1) + "The ASE file has an old version number. This can end with wrong results.\n");
    EXPECT_EQ(ParseAse("*3DSMAX_ASCIIEXPORT 200\n").printed, "");
    auto bad = ParseAse("*3DSMAX_ASCIIEXPORT x\n");
    EXPECT_EQ(bad.ErrorText(), bad.At(1, "error") + "Symbol 'x' could not scanned.\n");
}

TEST(AseDocument, SceneValuesAndTheirMissingChecks)
{
    // 30.5 frames per second read as 30: a key at 4,800 ticks falls on 1,000 ms.
    auto good = ParseAse("*COMMENT \"c\"\n*SCENE {\n*SCENE_FILENAME \"a\"\n*SCENE_FIRSTFRAME 0\n*SCENE_LASTFRAME 100\n"
                         "*SCENE_FRAMESPEED 30.5\n*SCENE_TICKSPERFRAME 160\n*SCENE_BACKGROUND_STATIC 0 0 0\n"
                         "*SCENE_AMBIENT_STATIC 1 1 1\n}\n" +
                         Helper("k", "*TM_ANIMATION {\n*CONTROL_POS_BEZIER {\n"
                                     "*CONTROL_BEZIER_POS_KEY 4800 0 0 0 0 0 0 0 0 0 0\n}\n}\n"));
    EXPECT_FALSE(good.Failed());
    EXPECT_EQ(good.printed, "");
    EXPECT_EQ(static_cast<const TransformNode&>(*good.Root()->Children().at(0)).positionKeys.at(0).time, 1000);

    auto missing = ParseAse("*SCENE {\n*SCENE_FILENAME \"a\"\n}\n");
    EXPECT_EQ(missing.ErrorText(), missing.At(3, "error") + "Missing symbol 'SCENE_TICKSPERFRAME'.\n");

    auto unscannable = ParseAse("*SCENE {\n*SCENE_FRAMESPEED x\n}\n");
    EXPECT_EQ(unscannable.ErrorText(), unscannable.At(2, "error") + "Symbol 'x' could not scanned.\n");

    auto noBrace = ParseAse("*SCENE word\n");
    EXPECT_EQ(noBrace.ErrorText(), noBrace.At(1, "error") + "Aspected symbol '{' but found symbol 'word'.\n");

    // An unknown keyword with its own block: one warning, the block skipped.
    auto unknown = ParseAse("*SCENE {\n*SCENE_ENVMAP {\n*MAP_NAME \"x\"\n}\n*SCENE_FRAMESPEED 30\n*SCENE_TICKSPERFRAME 160\n}\n");
    EXPECT_FALSE(unknown.Failed());
    EXPECT_EQ(unknown.printed, unknown.At(2) + "Do not know what symbol '*SCENE_ENVMAP' means.\n");
}

TEST(AseDocument, ErrorsInsideSceneStillRunTheMissingChecks)
{
    // The object reader fails inside *SCENE; afterwards the missing values are reported and kept.
    auto parsed = ParseAse("*SCENE {\n*GEOMOBJECT {\n*MATERIAL_REF x\n}\n}\n");
    EXPECT_EQ(parsed.ErrorText(), parsed.At(3, "error") + "Missing symbol 'SCENE_TICKSPERFRAME'.\n");
    // Directives run on what was read before an error, at the line where reading stopped; the
    // last error is the one shown.
    auto directive = ParseAse("*GEOMOBJECT {\n*NODE_NAME \"convert(createanimfrommesh)A\"\n}\n*SCENE {\n"
                              "*SCENE_FRAMESPEED x\n}\n");
    EXPECT_EQ(directive.ErrorText(), directive.At(5, "error") + "For creating a matrix animation from a mesh animation is "
                                     "a mesh animation necessary. This error appears in object 'convert(createanimfrommesh)A'.");
}

TEST(AseDocument, FileEndingInsideABlock)
{
    auto parsed = ParseAse(kScene + "*GEOMOBJECT {\n*NODE_NAME \"a\"\n");
    EXPECT_TRUE(parsed.Failed());
    EXPECT_NE(parsed.printed.find("Do not know what symbol 'baseparser file end' means.\n"), std::string::npos);
    EXPECT_EQ(parsed.ErrorText(), parsed.At(7, "error") + "Could not read next char.\n");
    EXPECT_FALSE(testfiles::Exists(parsed.output));
}

TEST(AseDocument, RootNameAndObjectsInGroupsAndScenes)
{
    auto parsed = ParseAse("*GROUP \"g\" {\n" + Helper("inGroup") + "{ skipped }\n}\n*SCENE {\n" + Helper("inScene") +
                           "*SCENE_FRAMESPEED 30\n*SCENE_TICKSPERFRAME 160\n}\n" + Helper("top"));
    EXPECT_FALSE(parsed.Failed()) << parsed.ErrorText();
    EXPECT_EQ(parsed.Root()->name, "root node - " + parsed.source);
    EXPECT_EQ(ChildNames(parsed.Root()), (Names{"inGroup", "inScene", "top"}));
}

TEST(GeometryObjects, NamesTransformsAndDefaults)
{
    auto parsed = ParseAse(kScene +
                           "*GEOMOBJECT {\n*NODE_NAME \"first\"\n*NODE_TM {\n*NODE_NAME \"second name\"\n"
                           "*INHERIT_POS 0 0 0\n*TM_ROW0 2 0 0\n*TM_ROW1 0.0 0.0 1.0\n*TM_ROW2 0 -1 0\n*TM_ROW3 10 20 30\n"
                           "*TM_POS 10 20 30\n*TM_ROTAXIS 1 0 0\n*TM_ROTANGLE 1.57\n*TM_SCALE 2 1 1\n}\n*PROP_CASTSHADOW 1\n"
                           "*MATERIAL_REF 3\n*WIREFRAME_COLOR 1 1 1\n}\n*GEOMOBJECT {\n*NODE_NAME \"plain\"\n}\n");
    ASSERT_FALSE(parsed.Failed()) << parsed.ErrorText();
    ASSERT_EQ(ChildNames(parsed.Root()), (Names{"second name", "plain"}));
    auto& node = static_cast<MeshNode&>(*parsed.Root()->Children()[0]);
    const float expected[16] = {2, 0, 0, 0, 0, 0, 1, 0, 0, -1, 0, 0, 10, 20, 30, 1};
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(node.world.m[static_cast<size_t>(i)], expected[i]) << i;
    EXPECT_EQ(node.materialRef, 3);
    auto& plain = static_cast<MeshNode&>(*parsed.Root()->Children()[1]);
    EXPECT_EQ(plain.materialRef, -1);
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(plain.world.m[static_cast<size_t>(i)], (i % 5 == 0) ? 1.0f : 0.0f);
}

TEST(GeometryObjects, UnknownKeywordsWarnAndReadingGoesOn)
{
    auto parsed = ParseAse("*GEOMOBJECT {\n*NODE_NAME \"a\"\n*SOMETHING 12\n*MESH_CVERTLIST {\n*MESH_VERTCOL 0 1 1 1\n}\n}\n");
    EXPECT_FALSE(parsed.Failed());
    EXPECT_EQ(parsed.printed, parsed.At(3) + "Do not know what symbol '*SOMETHING' means.\n" + parsed.At(3) +
                                  "Do not know what symbol '12' means.\n" + parsed.At(4) +
                                  "Do not know what symbol '*MESH_CVERTLIST' means.\n");
    EXPECT_EQ(ChildNames(parsed.Root()), (Names{"a"}));
}

TEST(GeometryObjects, ParentLinks)
{
    // Parents must come first; children of one parent follow their records' order.
    auto linked = ParseAse(Helper("P") + "*GEOMOBJECT {\n*NODE_NAME \"C\"\n*NODE_PARENT \"P\"\n}\n" + Helper("Q"));
    ASSERT_FALSE(linked.Failed());
    EXPECT_EQ(ChildNames(linked.Root()), (Names{"P", "Q"}));
    EXPECT_EQ(ChildNames(linked.Root()->Children()[0].get()), (Names{"C"}));

    auto later = ParseAse("*GEOMOBJECT {\n*NODE_NAME \"C\"\n*NODE_PARENT \"P\"\n}\n" + Helper("P"));
    EXPECT_EQ(later.ErrorText(), later.At(3, "error") + "Can not found parent object 'P' of object 'C'.\n");
    EXPECT_EQ(later.Root()->Children().size(), 0u);
}

TEST(GeometryObjects, ParentRecordNamingTheRoot)
{
    testfiles::ScratchDirectory directory;
    const std::string source = directory.Write("s.ase", "*HELPEROBJECT {\n*NODE_NAME \"h\"\n*NODE_PARENT \"root node - " +
                                                             directory.Path() + "/s.ase\"\n}\n");
    Reporter reporter;
    Scene scene;
    testing::internal::CaptureStdout();
    ConvertFile(source, directory.Path() + "/s.vern3D", {}, reporter, scene);
    testing::internal::GetCapturedStdout();
    EXPECT_FALSE(reporter.HasError()) << reporter.ErrorText();
    EXPECT_EQ(ChildNames(scene.root.get()), (Names{"h"}));
}

TEST(GeometryObjects, AFurtherParentRecordIsIgnored)
{
    auto parsed = ParseAse(Helper("P") + Helper("Q") + "*GEOMOBJECT {\n*NODE_NAME \"C\"\n*NODE_PARENT \"P\"\n*NODE_PARENT \"Q\"\n}\n");
    EXPECT_FALSE(parsed.Failed());
    EXPECT_EQ(parsed.printed, parsed.At(12) + "Object 'C' already has a parent; the parent record 'Q' is ignored.\n");
    EXPECT_EQ(ChildNames(parsed.Root()->Children()[0].get()), (Names{"C"}));
    EXPECT_EQ(ChildNames(parsed.Root()->Children()[1].get()), (Names{}));
}

TEST(GeometryObjects, NestedObjectsEndUpUnderTheRootFirst)
{
    auto parsed = ParseAse("*GEOMOBJECT {\n*NODE_NAME \"outer\"\n*GEOMOBJECT {\n*NODE_NAME \"inner\"\n}\n}\n");
    EXPECT_EQ(ChildNames(parsed.Root()), (Names{"inner", "outer"}));
}

TEST(GeometryObjects, BadValuesDiscardTheObject)
{
    auto parsed = ParseAse("*GEOMOBJECT {\n*NODE_NAME \"a\"\n*MATERIAL_REF x\n}\n");
    EXPECT_EQ(parsed.ErrorText(), parsed.At(3, "error") + "Symbol 'x' could not scanned.\n");
    EXPECT_EQ(parsed.Root()->Children().size(), 0u);

    // A bad transform row still links the object; the error stops the conversion.
    auto row = ParseAse("*GEOMOBJECT {\n*NODE_NAME \"a\"\n*NODE_TM {\n*TM_ROW3 1 y 3\n}\n}\n");
    EXPECT_EQ(row.ErrorText(), row.At(4, "error") + "Symbol 'y' could not scanned.\n");
    ASSERT_EQ(ChildNames(row.Root()), (Names{"a"}));
    EXPECT_EQ(static_cast<TransformNode&>(*row.Root()->Children()[0]).world(3, 0), 1.0f);
    EXPECT_FALSE(testfiles::Exists(row.output));

    auto noBrace = ParseAse("*GEOMOBJECT *NODE_NAME\n");
    EXPECT_EQ(noBrace.ErrorText(), noBrace.At(1, "error") + "Aspected symbol '{' but found symbol '*NODE_NAME'.\n");
}

TEST(HelperObjects, ClassesAndParents)
{
    auto parsed = ParseAse(Helper("H", "*NODE_TM {\n*TM_ROW3 1 2 3\n}\n*BOUNDINGBOX_MIN 0 0 0\n*BOUNDINGBOX_MAX 1 1 1\n") +
                           "*GEOMOBJECT {\n*NODE_NAME \"G\"\n*NODE_PARENT \"H\"\n}\n");
    ASSERT_FALSE(parsed.Failed()) << parsed.ErrorText();
    ASSERT_EQ(ChildNames(parsed.Root()), (Names{"H"}));
    auto& helper = static_cast<TransformNode&>(*parsed.Root()->Children()[0]);
    EXPECT_EQ(helper.world(3, 2), 3.0f);
    EXPECT_TRUE(helper.positionKeys.empty());
    EXPECT_EQ(ChildNames(&helper), (Names{"G"}));

    auto band = ParseAse("*HELPEROBJECT {\n*HELPER_CLASS \"Band\"\n}\n");
    EXPECT_FALSE(band.Failed());
    auto other = ParseAse("*HELPEROBJECT {\n*NODE_NAME \"x\"\n*HELPER_CLASS \"Point\"\n*MESH { }\n}\n");
    EXPECT_EQ(other.ErrorText(), other.At(3, "error") + "Unknown helper class 'Point'.\n");
    EXPECT_EQ(other.Root()->Children().size(), 0u);
    auto mesh = ParseAse("*HELPEROBJECT {\n*MESH { }\n}\n");
    EXPECT_EQ(mesh.printed, mesh.At(2) + "Do not know what symbol '*MESH' means.\n");
}

TEST(AseReader, DeepNestingThroughObjectsIsRefused)
{
    std::string text;
    for (int i = 0; i < 1000; ++i)
        text += "*GEOMOBJECT {\n";
    auto parsed = ParseAse(text);
    EXPECT_TRUE(parsed.Failed());
    EXPECT_NE(parsed.ErrorText().find("error: Blocks are nested deeper than 256 levels.\n"), std::string::npos);
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
    EXPECT_EQ(reader.frameSpeed, -1);
    EXPECT_EQ(reader.ticksPerFrame, -1);
    EXPECT_EQ(scene.root->name, "root node - " + second);
    EXPECT_EQ(ChildNames(scene.root.get()), (Names{"B"}));
}

}  // namespace
