# A textured grid of at least `faces` triangles with full normals, as the benchmarks' grids:
#   awk -v faces=100000 -f grid-scene.awk > grid.ase
BEGIN {
    side = 2
    while (2 * (side - 1) * (side - 1) < faces)
        ++side
    vertices = side * side
    count = 2 * (side - 1) * (side - 1)
    printf "*3DSMAX_ASCIIEXPORT\t200\n*SCENE {\n\t*SCENE_FRAMESPEED 30\n\t*SCENE_TICKSPERFRAME 160\n}\n"
    printf "*MATERIAL_LIST {\n\t*MATERIAL_COUNT 1\n\t*MATERIAL 0 {\n\t\t*MATERIAL_NAME \"Grid\"\n"
    printf "\t\t*MATERIAL_CLASS \"Standard\"\n\t\t*MAP_DIFFUSE {\n\t\t\t*MAP_CLASS \"Bitmap\"\n"
    printf "\t\t\t*BITMAP \"maps/grid.tga\"\n\t\t}\n\t}\n}\n"
    printf "*GEOMOBJECT {\n\t*NODE_NAME \"Grid\"\n\t*NODE_TM {\n\t\t*NODE_NAME \"Grid\"\n"
    printf "\t\t*TM_ROW0 1.0 0.0 0.0\n\t\t*TM_ROW1 0.0 1.0 0.0\n\t\t*TM_ROW2 0.0 0.0 1.0\n\t\t*TM_ROW3 0.0 0.0 0.0\n\t}\n"
    printf "\t*MESH {\n\t\t*TIMEVALUE 0\n\t\t*MESH_NUMVERTEX %d\n\t\t*MESH_NUMFACES %d\n\t\t*MESH_VERTEX_LIST {\n", vertices, count
    for (i = 0; i < vertices; ++i)
        printf "\t\t\t*MESH_VERTEX %5d\t%.4f\t%.4f\t%.4f\n", i, (i % side) * 1.5, int(i / side) * 1.5, 0.25 * ((i * 7919) % 13)
    printf "\t\t}\n\t\t*MESH_FACE_LIST {\n"
    for (f = 0; f < count; ++f) {
        corners(f)
        printf "\t\t\t*MESH_FACE %5d:    A: %5d B: %5d C: %5d AB:    1 BC:    1 CA:    0\t *MESH_SMOOTHING 1 \t*MESH_MTLID 0\n", f, a, b, c
    }
    printf "\t\t}\n\t\t*MESH_NUMTVERTEX %d\n\t\t*MESH_TVERTLIST {\n", vertices
    for (i = 0; i < vertices; ++i)
        printf "\t\t\t*MESH_TVERT %d\t%.4f\t%.4f\t0.0000\n", i, (i % side) / side, int(i / side) / side
    printf "\t\t}\n\t\t*MESH_NUMTVFACES %d\n\t\t*MESH_TFACELIST {\n", count
    for (f = 0; f < count; ++f) {
        corners(f)
        printf "\t\t\t*MESH_TFACE %d\t%d\t%d\t%d\n", f, a, b, c
    }
    printf "\t\t}\n\t\t*MESH_NORMALS {\n"
    for (f = 0; f < count; ++f) {
        corners(f)
        printf "\t\t\t*MESH_FACENORMAL %d\t0.0000\t0.0000\t1.0000\n", f
        printf "\t\t\t\t*MESH_VERTEXNORMAL %d\t0.0000\t0.0000\t1.0000\n", a
        printf "\t\t\t\t*MESH_VERTEXNORMAL %d\t0.0000\t0.0000\t1.0000\n", b
        printf "\t\t\t\t*MESH_VERTEXNORMAL %d\t0.0000\t0.0000\t1.0000\n", c
    }
    printf "\t\t}\n\t}\n\t*MATERIAL_REF 0\n}\n"
}

function corners(face,    cell, x, y, base) {
    cell = int(face / 2)
    x = cell % (side - 1)
    y = int(cell / (side - 1))
    base = y * side + x
    a = base
    b = face % 2 ? base + side + 1 : base + 1
    c = face % 2 ? base + side : base + side + 1
}
