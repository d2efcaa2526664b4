/* Reads a zul stream from a file piece by piece and decodes it in memory: the signature, the file
 * header, then for every chunk its sync marker, its header and its body, each read in the size the
 * step before has named.
 *
 *   decode_cloud [path]
 *
 * Without a path it reads "cloud.zul", as encode_cloud writes it, and checks the points against
 * the sphere that encode_cloud samples: every position within a quantisation step of radius 2 m
 * around (10, -4, 1.5), every normal of unit length. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "zul.h"

static int readExactly(FILE* file, char* buffer, int size) {
    return fread(buffer, 1, (size_t)size, file) == (size_t)size;
}

struct Summary {
    long points, chunks;
    double worstRadius, worstNormal;
};

static void check(const zul_PointData* points, const zul_DataType* dataType, struct Summary* s) {
    int i;
    for (i = 0; i < points->numPoints; ++i) {
        const double* p = points->positions + 3 * i;
        const double dx = p[0] - 10.0, dy = p[1] + 4.0, dz = p[2] - 1.5;
        const double radiusError = fabs(sqrt(dx * dx + dy * dy + dz * dz) - 2.0);
        if (radiusError > s->worstRadius) s->worstRadius = radiusError;
        if (dataType->normalMode != zul_NORMAL_NONE) {
            const float* n = points->normals + 3 * i;
            const double lengthError = fabs(sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]) - 1.0);
            if (lengthError > s->worstNormal) s->worstNormal = lengthError;
        }
    }
    s->points += points->numPoints;
    s->chunks += 1;
}

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : "cloud.zul";
    char head[164], marker[16];
    char* buffer = NULL;
    const char* fileMarker = NULL;
    int size = 0, chunkHeaderSize = 0, ok = 1;
    zul_dec_Context decoder = NULL;
    zul_DataType dataType;
    zul_Header2 header2;
    zul_Status status = zul_STATUS_OK;
    struct Summary summary = {0, 0, 0.0, 0.0};
    FILE* file = fopen(path, "rb");

    if (!file) {
        fprintf(stderr, "cannot open %s (run encode_cloud first)\n", path);
        return 1;
    }
    if (!readExactly(file, head, 8) || zul_dec_open(&decoder, &size, head) != zul_STATUS_OK ||
        !readExactly(file, head, size) ||
        zul_dec_decodeFileHeader2(decoder, &dataType, &header2, &chunkHeaderSize, &fileMarker,
                                  head) != zul_STATUS_OK) {
        fprintf(stderr, "%s: not a zul stream, or its head is damaged\n", path);
        zul_dec_close(&decoder);
        fclose(file);
        return 1;
    }
    buffer = malloc((size_t)chunkHeaderSize);
    /* A clean end is the end of the file exactly where a sync marker would begin. */
    while (ok && buffer && fread(marker, 1, 16, file) == 16) {
        zul_PointData points;
        char* body;
        ok = memcmp(marker, fileMarker, 16) == 0 && readExactly(file, buffer, chunkHeaderSize);
        status = ok ? zul_dec_decodeChunkHeader(decoder, &size, buffer) : status;
        ok = ok && status == zul_STATUS_OK;
        body = ok ? malloc(size > 0 ? (size_t)size : 1) : NULL;
        ok = ok && body && readExactly(file, body, size);
        status = ok ? zul_dec_decodeChunkBody(decoder, &points, body) : status;
        ok = ok && status == zul_STATUS_OK;
        if (ok) check(&points, &dataType, &summary);
        free(body);
    }
    ok = ok && buffer && feof(file);
    free(buffer);
    fclose(file);
    zul_dec_close(&decoder);
    if (!ok) {
        if (status != zul_STATUS_OK)
            fprintf(stderr, "%s: chunk %ld is damaged (status %d)\n", path, summary.chunks + 1,
                    (int)status);
        else
            fprintf(stderr, "%s: the file ends inside chunk %ld\n", path, summary.chunks + 1);
        return 1;
    }
    printf("read %s: version %d, %ld points in %ld chunks, step %g m\n", path,
           header2.enabled ? 2 : 1, summary.points, summary.chunks,
           (double)dataType.quantizationStep);
    printf("largest distance from the sphere %.3g m, largest normal length error %.3g\n",
           summary.worstRadius, summary.worstNormal);
    /* A position may be off the surface by up to half a step on each axis. */
    return summary.worstRadius <= (double)dataType.quantizationStep ? 0 : 1;
}
