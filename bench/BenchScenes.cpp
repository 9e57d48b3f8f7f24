#include "BenchScenes.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace benchscenes {

std::string TempFile(const std::string& name) { return (std::filesystem::temp_directory_path() / name).string(); }

std::string GridFile(int faces)
{
    const std::string file = TempFile("makevern3d-bench-mesh-" + std::to_string(faces) + ".ase");
    if (std::filesystem::exists(file))
        return file;
    int side = 2;
    while (2 * (side - 1) * (side - 1) < faces)
        ++side;
    std::ofstream out(file, std::ios::binary);
    out << "*3DSMAX_ASCIIEXPORT\t200\n*SCENE {\n\t*SCENE_FRAMESPEED 30\n\t*SCENE_TICKSPERFRAME 160\n}\n"
           "*MATERIAL_LIST {\n\t*MATERIAL_COUNT 1\n\t*MATERIAL 0 {\n\t\t*MATERIAL_NAME \"Grid\"\n"
           "\t\t*MATERIAL_CLASS \"Standard\"\n\t\t*MATERIAL_DIFFUSE 0.8 0.8 0.8\n\t\t*MAP_DIFFUSE {\n"
           "\t\t\t*MAP_CLASS \"Bitmap\"\n\t\t\t*BITMAP \"C:\\maps\\grid.tga\"\n\t\t}\n\t}\n}\n";
    out << "*GEOMOBJECT {\n\t*NODE_NAME \"Grid\"\n\t*NODE_TM {\n\t\t*NODE_NAME \"Grid\"\n"
           "\t\t*TM_ROW0 1.0 0.0 0.0\n\t\t*TM_ROW1 0.0 1.0 0.0\n\t\t*TM_ROW2 0.0 0.0 1.0\n\t\t*TM_ROW3 0.0 0.0 0.0\n\t}\n"
           "\t*MESH {\n\t\t*TIMEVALUE 0\n";
    const int vertices = side * side;
    const int count = 2 * (side - 1) * (side - 1);
    out << "\t\t*MESH_NUMVERTEX " << vertices << "\n\t\t*MESH_NUMFACES " << count << "\n\t\t*MESH_VERTEX_LIST {\n";
    char line[512];
    auto height = [&](int i) { return 0.25 * ((i * 7919) % 13); };
    for (int i = 0; i < vertices; ++i) {
        std::snprintf(line, sizeof line, "\t\t\t*MESH_VERTEX %5d\t%.4f\t%.4f\t%.4f\n", i, (i % side) * 1.5,
                      (i / side) * 1.5, height(i));
        out << line;
    }
    out << "\t\t}\n\t\t*MESH_FACE_LIST {\n";
    auto corners = [&](int face, int* a, int* b, int* c) {
        const int cell = face / 2;
        const int x = cell % (side - 1), y = cell / (side - 1);
        const int base = y * side + x;
        *a = base;
        *b = face % 2 ? base + side + 1 : base + 1;
        *c = face % 2 ? base + side : base + side + 1;
    };
    for (int f = 0; f < count; ++f) {
        int a, b, c;
        corners(f, &a, &b, &c);
        std::snprintf(line, sizeof line,
                      "\t\t\t*MESH_FACE %5d:    A: %5d B: %5d C: %5d AB:    1 BC:    1 CA:    0\t "
                      "*MESH_SMOOTHING 1 \t*MESH_MTLID 0\n",
                      f, a, b, c);
        out << line;
    }
    out << "\t\t}\n\t\t*MESH_NUMTVERTEX " << vertices << "\n\t\t*MESH_TVERTLIST {\n";
    for (int i = 0; i < vertices; ++i) {
        std::snprintf(line, sizeof line, "\t\t\t*MESH_TVERT %d\t%.4f\t%.4f\t0.0000\n", i, (i % side) / double(side),
                      (i / side) / double(side));
        out << line;
    }
    out << "\t\t}\n\t\t*MESH_NUMTVFACES " << count << "\n\t\t*MESH_TFACELIST {\n";
    for (int f = 0; f < count; ++f) {
        int a, b, c;
        corners(f, &a, &b, &c);
        std::snprintf(line, sizeof line, "\t\t\t*MESH_TFACE %d\t%d\t%d\t%d\n", f, a, b, c);
        out << line;
    }
    out << "\t\t}\n\t\t*MESH_NORMALS {\n";
    for (int f = 0; f < count; ++f) {
        int a, b, c;
        corners(f, &a, &b, &c);
        std::snprintf(line, sizeof line,
                      "\t\t\t*MESH_FACENORMAL %d\t0.0000\t0.0000\t1.0000\n"
                      "\t\t\t\t*MESH_VERTEXNORMAL %d\t0.0000\t0.0000\t1.0000\n"
                      "\t\t\t\t*MESH_VERTEXNORMAL %d\t0.0000\t0.0000\t1.0000\n"
                      "\t\t\t\t*MESH_VERTEXNORMAL %d\t0.0000\t0.0000\t1.0000\n",
                      f, a, b, c);
        out << line;
    }
    out << "\t\t}\n\t}\n\t*MATERIAL_REF 0\n}\n";
    return file;
}

std::string AnimationFile(int vertices, int frames)
{
    const std::string file =
        TempFile("makevern3d-bench-anim-" + std::to_string(vertices) + "x" + std::to_string(frames) + ".ase");
    if (std::filesystem::exists(file))
        return file;
    std::ofstream out(file, std::ios::binary);
    char line[256];
    auto mesh = [&](int frame) {
        out << "\t*MESH {\n\t\t*TIMEVALUE " << frame * 160 << "\n\t\t*MESH_NUMVERTEX " << vertices
            << "\n\t\t*MESH_VERTEX_LIST {\n";
        for (int i = 0; i < vertices; ++i) {
            std::snprintf(line, sizeof line, "\t\t\t*MESH_VERTEX %d\t%.3f\t%.3f\t%.3f\n", i, (i / 2) * 1.0,
                          (i % 2) * 1.0, 0.01 * frame * (i % 5));
            out << line;
        }
        out << "\t\t}\n\t\t*MESH_FACE_LIST {\n";
        for (int f = 0; f + 2 < vertices; ++f) {
            std::snprintf(line, sizeof line,
                          "\t\t\t*MESH_FACE %d: A: %d B: %d C: %d AB: 1 BC: 1 CA: 1 *MESH_SMOOTHING 1 *MESH_MTLID 0\n",
                          f, f, f + 1, f + 2);
            out << line;
        }
        out << "\t\t}\n\t}\n";
    };
    out << "*3DSMAX_ASCIIEXPORT\t200\n*SCENE {\n\t*SCENE_FRAMESPEED 30\n\t*SCENE_TICKSPERFRAME 160\n}\n"
           "*MATERIAL_LIST {\n\t*MATERIAL 0 {\n\t}\n}\n*GEOMOBJECT {\n\t*NODE_NAME \"Wave\"\n\t*MATERIAL_REF 0\n";
    mesh(0);
    out << "*MESH_ANIMATION {\n";
    for (int frame = 0; frame < frames; ++frame)
        mesh(frame);
    out << "}\n}\n";
    return file;
}

std::string ObjectsFile(int objects)
{
    const std::string file = TempFile("makevern3d-bench-objects-" + std::to_string(objects) + ".ase");
    if (std::filesystem::exists(file))
        return file;
    std::ofstream out(file, std::ios::binary);
    out << "*3DSMAX_ASCIIEXPORT\t200\n*SCENE {\n\t*SCENE_FRAMESPEED 30\n\t*SCENE_TICKSPERFRAME 160\n}\n"
           "*MATERIAL_LIST {\n\t*MATERIAL 0 {\n\t\t*MAP_DIFFUSE {\n\t\t\t*BITMAP \"a.tga\"\n\t\t}\n\t}\n"
           "\t*MATERIAL 1 {\n\t\t*MATERIAL_TWOSIDED\n\t}\n\t*MATERIAL 2 {\n\t\t*MAP_OPACITY {\n\t\t\t*BITMAP \"b.tga\"\n"
           "\t\t}\n\t}\n}\n";
    static const int kFaces[12][3] = {{0, 1, 2}, {1, 3, 2}, {4, 6, 5}, {5, 6, 7}, {0, 4, 1}, {1, 4, 5},
                                      {2, 3, 6}, {3, 7, 6}, {0, 2, 4}, {2, 6, 4}, {1, 5, 3}, {3, 5, 7}};
    char line[256];
    for (int o = 0; o < objects; ++o) {
        const double x = (o % 100) * 3.0, y = (o / 100) * 3.0;
        out << "*GEOMOBJECT {\n\t*NODE_NAME \"Box" << o << "\"\n\t*NODE_TM {\n\t\t*TM_ROW0 1 0 0\n\t\t*TM_ROW1 0 1 0\n"
            << "\t\t*TM_ROW2 0 0 1\n\t\t*TM_ROW3 " << x << " " << y << " 0\n\t}\n\t*MESH {\n\t\t*MESH_NUMVERTEX 8\n"
            << "\t\t*MESH_VERTEX_LIST {\n";
        for (int v = 0; v < 8; ++v) {
            std::snprintf(line, sizeof line, "\t\t\t*MESH_VERTEX %d\t%.4f\t%.4f\t%.4f\n", v, x + (v & 1), y + ((v >> 1) & 1),
                          double((v >> 2) & 1));
            out << line;
        }
        out << "\t\t}\n\t\t*MESH_FACE_LIST {\n";
        for (int f = 0; f < 12; ++f) {
            std::snprintf(line, sizeof line,
                          "\t\t\t*MESH_FACE %d: A: %d B: %d C: %d AB: 1 BC: 1 CA: 0 *MESH_SMOOTHING %d *MESH_MTLID 0\n", f,
                          kFaces[f][0], kFaces[f][1], kFaces[f][2], f / 2 + 1);
            out << line;
        }
        out << "\t\t}\n\t}\n\t*MATERIAL_REF " << o % 3 << "\n}\n";
    }
    return file;
}

}  // namespace benchscenes
