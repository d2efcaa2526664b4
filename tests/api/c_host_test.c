/* A C99 host linked to the shared library only: proves that zul.h compiles as C, that the records
 * have the layout the library expects, and that a chunk comes out and back byte for byte. */
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "check.h"
#include "zul.h"

/* A C99 static assertion: a negative array size fails to compile. */
#define LAYOUT(cond, name) typedef char layout_##name[(cond) ? 1 : -1]
LAYOUT(sizeof(zul_DataType) == 40, data_type);
LAYOUT(offsetof(zul_DataType, normalMode) == 16, data_type_normal);
LAYOUT(sizeof(zul_Header2) == 160, header2);
LAYOUT(offsetof(zul_Header2, hasTranslation) == 15, header2_flags);
LAYOUT(offsetof(zul_Header2, transformation) == 16, header2_matrix);
LAYOUT(sizeof(zul_PointData) == 40, point_data);
LAYOUT(offsetof(zul_PointData, normals) == 32, point_data_normals);
LAYOUT(sizeof(zul_Point) == 48, point);
LAYOUT(offsetof(zul_Point, reflection) == 28, point_reflection);
LAYOUT(sizeof(zul_dec_Params) == 20, params);
LAYOUT(sizeof(zul_Status) == 4, status);

/* The first four outputs of MT19937 for the seed 5489, least significant byte first. */
static const unsigned char kMarker5489[16] = {0x5C, 0xBB, 0x91, 0xD0, 0xF6, 0x9E, 0xAE, 0x22,
                                              0xEE, 0xFA, 0xE1, 0xE7, 0x79, 0x1F, 0xC3, 0xD5};

/* Decodes the chunk of oneChunk below behind a version 1 stream head of the same data type. */
static void decodeChunk(const char* chunk) {
    static const unsigned char head[36] = {'Z', 'U', 'L', 1, 0x0D, 0x0A, 0x1A, 0x0A, 0, 1,
                                           0,   0,   0,   0, 0x80, 0x3F, 255,  0,    0, 0};
    unsigned char stream[36];
    zul_dec_Context decoder = NULL;
    zul_DataType dataType;
    zul_PointData points;
    const char* marker = NULL;
    int size = 0, numPoints = 0;

    memcpy(stream, head, 20);
    memcpy(stream + 20, chunk, 16); /* the file's marker is the chunk's */
    CHECK(zul_dec_open(&decoder, &size, (const char*)stream) == zul_STATUS_OK);
    CHECK(size == 28);
    CHECK(zul_dec_decodeFileHeader(decoder, &dataType, &size, &marker, (const char*)stream + 8) ==
          zul_STATUS_OK);
    CHECK(size == 60 && dataType.maxReflection == 255 && memcmp(marker, chunk, 16) == 0);
    CHECK(zul_dec_decodeChunkHeader(decoder, &size, chunk + 16) == zul_STATUS_OK);
    CHECK(size == 12);
    CHECK(zul_dec_getNumPointsInChunk(decoder, &numPoints) == zul_STATUS_OK && numPoints == 2);
    CHECK(zul_dec_decodeChunkBody(decoder, &points, chunk + 76) == zul_STATUS_OK);
    CHECK(points.numPoints == 2 && points.colors == NULL && points.normals == NULL);
    CHECK(points.positions[0] == 1 && points.positions[1] == 2 && points.positions[2] == 3);
    CHECK(points.positions[3] == 5 && points.positions[4] == 2 && points.positions[5] == 3);
    CHECK(points.reflections[0] == 255 && points.reflections[1] == 9);
    CHECK(zul_dec_decodeChunkBody(decoder, &points, chunk + 76) == zul_STATUS_INVALID_STATE);
    zul_dec_close(&decoder);
    CHECK(decoder == NULL);
}

/* Two points at (1, 2, 3) and (5, 2, 3) with the step 1 and a reflection: the whole chunk. */
static void oneChunk(void) {
    zul_DataType dataType;
    zul_enc_Context encoder = NULL;
    const char* bytes = NULL;
    int size = 0;
    double positions[6] = {5, 2, 3, 1, 2, 3};
    int32_t reflections[2] = {9, 300};
    zul_PointData points = {2, positions, NULL, reflections, NULL};
    static const unsigned char header[60] = {
        1, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0, /* min */
        5, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0, /* max */
        2, 0, 0, 0, 8, 0, 0, 0, 4, 0, 0, 0};                                    /* sizes */
    /* Coordinates: tables {0, 255}, {255}, {255}; slot 0 is 0 then 4 escaped in 3 bits. The
     * reflections, sorted with their points, are 300 (clamped to 255) then 9: table {255}. */
    static const unsigned char body[12] = {2, 0, 0xFF, 1, 0xFF, 1, 0xFF, 0x12, 1, 0xFF, 0xFF, 9};

    zul_init_headers(&dataType, NULL);
    dataType.quantizationStep = 1.0f;
    dataType.reflectionMode = zul_REFLECTION_CLAMPED;
    dataType.maxReflection = 255;
    CHECK(zul_enc_open(&encoder, &dataType) == zul_STATUS_OK);
    CHECK(zul_enc_encodeChunk(encoder, &bytes, &size, &points) == zul_STATUS_OK);
    CHECK(size == 88);
    CHECK(memcmp(bytes, kMarker5489, 16) == 0);
    CHECK(memcmp(bytes + 16, header, 60) == 0);
    CHECK(memcmp(bytes + 76, body, 12) == 0);
    decodeChunk(bytes);
    zul_enc_close(&encoder);
}

int main(void) {
    /* The library, its header and the CMake project give one version. */
    CHECK(zul_libversion_major() == ZUL_VERSION_MAJOR && ZUL_VERSION_MAJOR == PROJECT_MAJOR);
    CHECK(zul_libversion_minor() == ZUL_VERSION_MINOR && ZUL_VERSION_MINOR == PROJECT_MINOR);
    CHECK(zul_libversion_patch() == ZUL_VERSION_PATCH && ZUL_VERSION_PATCH == PROJECT_PATCH);
    zul_test_useFixedRandomSeed(true, 5489u);
    oneChunk();
    CHECK(zul_enc_open(NULL, NULL) == zul_STATUS_INVALID_ARGUMENT);
    if (failures) fprintf(stderr, "%d check(s) failed\n", failures);
    return failures ? 1 : 0;
}
