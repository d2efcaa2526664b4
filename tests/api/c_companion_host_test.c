/* A C99 host of the companion's library: zul_companion.h compiles as C, a companion written by
 * parts has the bytes docs/companion.md gives at their offsets, and its column and order come
 * back. */
#include <stdio.h>
#include <string.h>

#include "check.h"
#include "zul_companion.h"

static uint64_t le(const unsigned char* p, int size) {
    uint64_t value = 0;
    int i;
    for (i = size - 1; i >= 0; --i) value = value << 8 | p[i];
    return value;
}

int main(void) {
    static const unsigned char magic[8] = {0x89, 'Z', 'U', 'L', 'X', 0x0D, 0x0A, 0x1A};
    static const int counts[2] = {5, 3};
    zul_DataType dataType;
    zul_Header2 header;
    zul_enc_Context encoder = NULL;
    zul_xout_Writer writer = NULL;
    zul_xin_Reader reader = NULL;
    unsigned char stream[4096], head[36], blob[8192];
    const char* bytes = NULL;
    const void* companion = NULL;
    const unsigned char* c;
    size_t streamSize = 0, companionSize = 0, blobSize = 0;
    int size = 0, k, i;
    int32_t field = -1;
    uint16_t classes[2][5] = {{2, 2, 6, 2, 9}, {1, 1, 2, 0, 0}}, back[5];
    uint64_t order[2][5] = {{4, 0, 3, 1, 2}, {7, 5, 6, 0, 0}}, orderBack[5];

    zul_test_useFixedRandomSeed(true, 5489);
    zul_init_headers(&dataType, &header);
    CHECK(zul_enc_open(&encoder, &dataType) == zul_STATUS_OK);
    CHECK(zul_enc_createFileSignature(encoder, &bytes) == zul_STATUS_OK);
    memcpy(head, bytes, 8);
    CHECK(zul_enc_encodeFileHeader(encoder, &bytes, &size) == zul_STATUS_OK && size == 28);
    memcpy(head + 8, bytes, 28);
    memcpy(stream, head, 36);
    streamSize = 36;

    CHECK(zul_xout_open(&writer, NULL) == zul_STATUS_OK);
    CHECK(zul_xout_addField(writer, "classification", zul_FIELD_U16, 0, &field) == zul_STATUS_OK);
    CHECK(zul_xout_keepOrder(writer) == zul_STATUS_OK);
    CHECK(zul_xout_beginStream(writer, head, 36) == zul_STATUS_OK);
    for (k = 0; k < 2; ++k) {
        double positions[15];
        uint8_t colors[15];
        zul_PointData points;
        for (i = 0; i < 15; ++i) positions[i] = i * 0.25 + k, colors[i] = (uint8_t)i;
        points.numPoints = counts[k], points.positions = positions, points.colors = colors;
        points.reflections = NULL, points.normals = NULL;
        CHECK(zul_enc_encodeChunk(encoder, &bytes, &size, &points) == zul_STATUS_OK);
        memcpy(stream + streamSize, bytes, (size_t)size);
        CHECK(zul_xout_addChunkBytes(writer, bytes, (size_t)size) == zul_STATUS_OK);
        CHECK(zul_xout_writeColumn(writer, k, field, classes[k], counts[k]) == zul_STATUS_OK);
        CHECK(zul_xout_writeOrder(writer, k, order[k], counts[k]) == zul_STATUS_OK);
        streamSize += (size_t)size;
    }
    zul_enc_close(&encoder);
    CHECK(zul_xout_finish(writer, &companion, &companionSize) == zul_STATUS_OK);

    /* The bytes at the offsets of docs/companion.md. */
    c = (const unsigned char*)companion;
    CHECK(memcmp(c, magic, 8) == 0);
    CHECK(le(c + 8, 2) == 1 && le(c + 10, 2) == 1 && le(c + 12, 4) == 1);
    CHECK(le(c + 16, 8) == 2 && le(c + 24, 8) == 8);
    CHECK(memcmp(c + 32, head + 20, 16) == 0); /* the sync marker, the file header's last bytes */
    CHECK(le(c + 48, 8) == 36 && le(c + 64, 8) == streamSize);
    CHECK(le(c + 72, 8) == 112 + 2 * 152 + 64);
    CHECK(le(c + 80, 8) + le(c + 88, 8) == companionSize);
    CHECK(le(c + 112, 8) == 36 && le(c + 128, 4) == 5 && le(c + 112 + 128, 8) == 480);
    CHECK(le(c + 264, 8) == le(c + 120, 8) + 36 && le(c + 264 + 16, 4) == 3);
    CHECK(le(c + 264 + 128, 8) == 480 + le(c + 112 + 136, 8));
    CHECK(strcmp((const char*)c + 416, "classification") == 0 && c[416 + 48] == 3);
    CHECK(le(c + 416 + 50, 2) == 2);

    /* Read back, bound to the stream, verified, and through the one-blob frame. */
    CHECK(zul_xblob_pack(stream, streamSize, companion, companionSize, blob, sizeof blob,
                         &blobSize) == zul_STATUS_OK);
    {
        const void *s = NULL, *x = NULL;
        size_t sSize = 0, xSize = 0;
        int64_t numBad = -1;
        CHECK(zul_xblob_unpack(blob, blobSize, &s, &sSize, &x, &xSize) == zul_STATUS_OK);
        CHECK(zul_xin_openBuffer(&reader, x, xSize) == zul_STATUS_OK);
        CHECK(zul_xin_bindStreamBuffer(reader, s, sSize) == zul_STATUS_OK);
        CHECK(zul_xin_verifyBuffer(reader, s, sSize, NULL, 0, &numBad) == zul_STATUS_OK &&
              numBad == 0);
    }
    for (k = 0; k < 2; ++k) {
        CHECK(zul_xin_readColumn(reader, k, field, back, counts[k]) == zul_STATUS_OK);
        CHECK(memcmp(back, classes[k], (size_t)counts[k] * 2) == 0);
        CHECK(zul_xin_readOrder(reader, k, orderBack, counts[k]) == zul_STATUS_OK);
        CHECK(memcmp(orderBack, order[k], (size_t)counts[k] * 8) == 0);
    }
    zul_xin_close(&reader);
    zul_xout_close(&writer);
    if (failures == 0) printf("companion C host: all checks passed\n");
    return failures == 0 ? 0 : 1;
}
