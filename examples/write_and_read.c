/* A C host: writes a ring of 10,000 points with colour and intensity to a file point by point,
 * reads the file back and checks every point against what was written.
 *
 *   write_and_read_c [path]        (default: ring.zul)
 *
 * Points come back sorted, not in the order written; each one's height tells its index. */
#include <math.h>
#include <stdio.h>

#include "zul.h"

#define NUM_POINTS 10000

static void makePoint(int i, zul_Point* p) {
    const double angle = 0.0006283 * i;
    p->position[0] = 5.0 * cos(angle);
    p->position[1] = 5.0 * sin(angle);
    p->position[2] = 0.01 * i;
    p->color[0] = (uint8_t)i, p->color[1] = (uint8_t)(i >> 8), p->color[2] = 200;
    p->reflection = i % 256;
}

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : "ring.zul";
    zul_DataType dataType;
    zul_out_Context out = NULL;
    zul_in_Context in = NULL;
    zul_Point point, expected;
    zul_Status status;
    int64_t count = 0;
    int i, numRead = 0, wrong = 0;

    zul_init_headers(&dataType, NULL);
    dataType.quantizationStep = 0.001f;
    dataType.colorMode = zul_COLOR_RGB888;
    dataType.reflectionMode = zul_REFLECTION_CLAMPED;
    dataType.maxReflection = 255;

    status = zul_out_open(&out, path, &dataType);
    for (i = 0; i < NUM_POINTS && status == zul_STATUS_OK; ++i) {
        makePoint(i, &point);
        status = zul_out_writePoint(out, &point);
    }
    if (status == zul_STATUS_OK) status = zul_out_close(&out);
    zul_out_close(&out); /* after a failure: frees the writer */
    if (status != zul_STATUS_OK) {
        fprintf(stderr, "%s: writing failed (status %d)\n", path, (int)status);
        return 1;
    }

    status = zul_in_open(&in, &dataType, path);
    if (status == zul_STATUS_OK) status = zul_in_getNumPoints(in, &count);
    while (status == zul_STATUS_OK &&
           (status = zul_in_readNextPoint(in, &point)) == zul_STATUS_OK) {
        makePoint((int)floor(point.position[2] / 0.01 + 0.5), &expected);
        wrong += fabs(point.position[0] - expected.position[0]) > 0.0005001 ||
                 fabs(point.position[1] - expected.position[1]) > 0.0005001 ||
                 point.color[0] != expected.color[0] || point.color[1] != expected.color[1] ||
                 point.reflection != expected.reflection;
        ++numRead;
    }
    zul_in_close(&in);
    printf("%s: %lld points in the file, %d read, %d wrong\n", path, (long long)count, numRead,
           wrong);
    return status == zul_STATUS_END_OF_FILE && numRead == NUM_POINTS && wrong == 0 ? 0 : 1;
}
