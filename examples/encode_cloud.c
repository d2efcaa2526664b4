/* Encodes a built-in point cloud into a zul stream in memory and writes it to a file: the eight
 * signature bytes, the file header, then one chunk for every 10,000 points.
 *
 *   encode_cloud [path] [--sensor]
 *
 * Without a path it writes "cloud.zul"; with --sensor it adds the sensor header (version 2). The
 * cloud is a sphere of radius 2 m sampled on a spiral, with colour, reflection and normals. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "zul.h"

#define NUM_POINTS 200000
#define CHUNK_POINTS 10000

static void makeSphere(double* positions, unsigned char* colors, int32_t* reflections,
                       float* normals) {
    const double golden = 2.399963229728653; /* radians between neighbours on the spiral */
    int i;
    for (i = 0; i < NUM_POINTS; ++i) {
        const double z = 1.0 - 2.0 * (i + 0.5) / NUM_POINTS;
        const double r = sqrt(1.0 - z * z);
        const double x = r * cos(golden * i), y = r * sin(golden * i);
        positions[3 * i] = 10.0 + 2.0 * x;
        positions[3 * i + 1] = -4.0 + 2.0 * y;
        positions[3 * i + 2] = 1.5 + 2.0 * z;
        colors[3 * i] = (unsigned char)(127.5 + 127.5 * x);
        colors[3 * i + 1] = (unsigned char)(127.5 + 127.5 * y);
        colors[3 * i + 2] = (unsigned char)(127.5 + 127.5 * z);
        reflections[i] = (int32_t)(1000 + 800 * z);
        normals[3 * i] = (float)x;
        normals[3 * i + 1] = (float)y;
        normals[3 * i + 2] = (float)z;
    }
}

static int writeAll(FILE* file, const char* bytes, int size) {
    return fwrite(bytes, 1, (size_t)size, file) == (size_t)size;
}

int main(int argc, char** argv) {
    const char* path = "cloud.zul";
    int withSensor = 0, ok, i, size = 0;
    long total;
    zul_DataType dataType;
    zul_Header2 header;
    zul_enc_Context encoder = NULL;
    const char* bytes = NULL;
    double* positions = malloc(3 * sizeof(double) * NUM_POINTS);
    unsigned char* colors = malloc(3 * NUM_POINTS);
    int32_t* reflections = malloc(sizeof(int32_t) * NUM_POINTS);
    float* normals = malloc(3 * sizeof(float) * NUM_POINTS);
    FILE* file;

    for (i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--sensor") == 0)
            withSensor = 1;
        else
            path = argv[i];
    }
    if (!positions || !colors || !reflections || !normals) return 1;
    makeSphere(positions, colors, reflections, normals);

    zul_init_headers(&dataType, &header);
    dataType.quantizationStep = 0.0001f;
    dataType.colorMode = zul_COLOR_RGB888;
    dataType.reflectionMode = zul_REFLECTION_CLAMPED;
    dataType.maxReflection = 2047;
    dataType.normalMode = zul_NORMAL_SPHERICAL;
    if (zul_enc_open2(&encoder, &dataType, withSensor ? &header : NULL) != zul_STATUS_OK) {
        fprintf(stderr, "cannot open an encoder\n");
        return 1;
    }
    file = fopen(path, "wb");
    if (!file) {
        fprintf(stderr, "cannot create %s\n", path);
        zul_enc_close(&encoder);
        return 1;
    }

    zul_enc_createFileSignature(encoder, &bytes);
    ok = writeAll(file, bytes, 8);
    zul_enc_encodeFileHeader(encoder, &bytes, &size);
    ok = ok && writeAll(file, bytes, size);
    total = 8 + size;
    printf("zul %d.%d.%d: %d points, step %g m, RGB888, reflection 0..%d, normals, version %d\n",
           zul_libversion_major(), zul_libversion_minor(), zul_libversion_patch(), NUM_POINTS,
           (double)dataType.quantizationStep, (int)dataType.maxReflection, withSensor ? 2 : 1);

    for (i = 0; ok && i < NUM_POINTS; i += CHUNK_POINTS) {
        zul_PointData chunk;
        chunk.numPoints = CHUNK_POINTS;
        chunk.positions = positions + 3 * i;
        chunk.colors = colors + 3 * i;
        chunk.reflections = reflections + i;
        chunk.normals = normals + 3 * i;
        if (zul_enc_encodeChunk(encoder, &bytes, &size, &chunk) != zul_STATUS_OK) {
            fprintf(stderr, "cannot encode the points from %d\n", i);
            ok = 0;
            break;
        }
        ok = writeAll(file, bytes, size);
        total += size;
        if (i == 0) printf("first chunk: %d points in %d bytes\n", CHUNK_POINTS, size);
    }
    ok = (fclose(file) == 0) && ok;
    zul_enc_close(&encoder);
    free(positions);
    free(colors);
    free(reflections);
    free(normals);
    if (!ok) {
        fprintf(stderr, "cannot write %s\n", path);
        return 1;
    }
    printf("wrote %s: %ld bytes, %.2f bytes a point (the points in memory take 43)\n", path, total,
           (double)total / NUM_POINTS);
    return 0;
}
