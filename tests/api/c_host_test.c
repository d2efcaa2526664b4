/* A C99 host linked to the shared library only: proves that zul.h compiles as C, that the records
 * have the layout the library expects, and that the stream head comes out byte for byte. */
#include <stddef.h>
#include <stdio.h>
#include <string.h>

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

static int failures = 0;

#define CHECK(cond)                                                            \
    do {                                                                       \
        if (!(cond)) {                                                         \
            fprintf(stderr, "%s:%d: failed: %s\n", __FILE__, __LINE__, #cond); \
            ++failures;                                                        \
        }                                                                      \
    } while (0)

/* The first four outputs of MT19937 for the seed 5489, least significant byte first. */
static const unsigned char kMarker5489[16] = {0x5C, 0xBB, 0x91, 0xD0, 0xF6, 0x9E, 0xAE, 0x22,
                                              0xEE, 0xFA, 0xE1, 0xE7, 0x79, 0x1F, 0xC3, 0xD5};

static void versionOne(void) {
    zul_DataType dataType;
    zul_enc_Context encoder = NULL;
    const char* bytes = NULL;
    int size = 0;
    static const unsigned char front[12] = {0, 0, 0, 0, 0x17, 0xB7, 0xD1, 0x38, 0, 0, 0, 0};

    zul_init_headers(&dataType, NULL);
    CHECK(zul_enc_open(&encoder, &dataType) == zul_STATUS_OK);
    CHECK(zul_enc_createFileSignature(encoder, &bytes) == zul_STATUS_OK);
    CHECK(memcmp(bytes, "ZUL\x01\x0D\x0A\x1A\x0A", 8) == 0);
    CHECK(zul_enc_encodeFileHeader(encoder, &bytes, &size) == zul_STATUS_OK);
    CHECK(size == 28);
    CHECK(memcmp(bytes, front, 12) == 0);
    CHECK(memcmp(bytes + 12, kMarker5489, 16) == 0);
    zul_enc_close(&encoder);
    CHECK(encoder == NULL);
}

static void versionTwo(void) {
    zul_DataType dataType;
    zul_Header2 header;
    zul_enc_Context encoder = NULL;
    const char* bytes = NULL;
    int size = 0;
    static const unsigned char sensor[8] = {20, 4, 0, 0, 0, 1, 0, 0};
    static const unsigned char one[8] = {0, 0, 0, 0, 0, 0, 0xF0, 0x3F};
    static const unsigned char translationX[8] = {0, 0, 0, 0, 0, 0, 0x24, 0x40}; /* 10.0 */

    zul_init_headers(&dataType, &header);
    dataType.colorMode = zul_COLOR_RGB888;
    dataType.reflectionMode = zul_REFLECTION_CLAMPED;
    dataType.maxReflection = 255;
    header.sensorMount = zul_SENSOR_MOUNT_20;
    header.sensorType = zul_SENSOR_TYPE_4;
    header.hasTranslation = true;
    header.transformation[12] = 10.0;
    CHECK(zul_enc_open2(&encoder, &dataType, &header) == zul_STATUS_OK);
    CHECK(zul_enc_createFileSignature(encoder, &bytes) == zul_STATUS_OK);
    CHECK(bytes[3] == 2);
    CHECK(zul_enc_encodeFileHeader(encoder, &bytes, &size) == zul_STATUS_OK);
    CHECK(size == 164);
    CHECK(bytes[0] == 2 && bytes[1] == 1 && bytes[2] == 0);
    CHECK((unsigned char)bytes[8] == 255 && bytes[9] == 0);
    CHECK(memcmp(bytes + 12, sensor, 8) == 0);
    CHECK(memcmp(bytes + 20, one, 8) == 0);          /* m[0] */
    CHECK(memcmp(bytes + 20 + 8 * 15, one, 8) == 0); /* m[15] */
    CHECK(memcmp(bytes + 20 + 8 * 12, translationX, 8) == 0);
    CHECK(memcmp(bytes + 148, kMarker5489, 16) == 0);
    zul_enc_close(&encoder);
}

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
    points.reflections = NULL;
    CHECK(zul_enc_encodeChunk(encoder, &bytes, &size, &points) == zul_STATUS_INVALID_ARGUMENT);
    zul_enc_close(&encoder);
}

/* A file written point by point through a wide path and read back through a narrow one. */
static void fileRoundTrip(void) {
    zul_DataType dataType;
    zul_out_Context writer = NULL;
    zul_in_Context reader = NULL;
    zul_Point point;
    int64_t count = 0;
    int i;
    zul_init_headers(&dataType, NULL);
    dataType.quantizationStep = 0.5f;
    dataType.colorMode = zul_COLOR_RGB888;
    CHECK(zul_out_open_w(&writer, L"c_host.zul", &dataType) == zul_STATUS_OK);
    CHECK(zul_out_setChunkSize(writer, 2) == zul_STATUS_OK);
    for (i = 0; i < 3; ++i) {
        point.position[0] = 2.0 - i;
        point.position[1] = point.position[2] = 0.5 * i;
        point.color[0] = point.color[1] = point.color[2] = (uint8_t)(100 + i);
        CHECK(zul_out_writePoint(writer, &point) == zul_STATUS_OK);
    }
    CHECK(zul_out_close(&writer) == zul_STATUS_OK && writer == NULL);

    memset(&dataType, 0, sizeof dataType);
    CHECK(zul_in_open(&reader, &dataType, "c_host.zul") == zul_STATUS_OK);
    CHECK(dataType.colorMode == zul_COLOR_RGB888 && dataType.quantizationStep == 0.5f);
    CHECK(zul_in_getNumPoints(reader, &count) == zul_STATUS_OK && count == 3);
    /* Chunks of two and one point; the first comes back sorted along x. */
    for (i = 0; i < 3; ++i) {
        CHECK(zul_in_readNextPoint(reader, &point) == zul_STATUS_OK);
        CHECK(point.color[0] == (i == 0 ? 101 : i == 1 ? 100 : 102));
        CHECK(point.position[0] == (i == 0 ? 1.0 : i == 1 ? 2.0 : 0.0));
    }
    CHECK(zul_in_readNextPoint(reader, &point) == zul_STATUS_END_OF_FILE);
    zul_in_close(&reader);
    CHECK(reader == NULL);
    remove("c_host.zul");
}

int main(void) {
    /* The library, its header and the CMake project give one version. */
    CHECK(zul_libversion_major() == ZUL_VERSION_MAJOR && ZUL_VERSION_MAJOR == PROJECT_MAJOR);
    CHECK(zul_libversion_minor() == ZUL_VERSION_MINOR && ZUL_VERSION_MINOR == PROJECT_MINOR);
    CHECK(zul_libversion_patch() == ZUL_VERSION_PATCH && ZUL_VERSION_PATCH == PROJECT_PATCH);
    zul_test_useFixedRandomSeed(true, 5489u);
    versionOne();
    versionTwo();
    oneChunk();
    fileRoundTrip();
    CHECK(zul_enc_open(NULL, NULL) == zul_STATUS_INVALID_ARGUMENT);
    if (failures) fprintf(stderr, "%d check(s) failed\n", failures);
    return failures ? 1 : 0;
}
