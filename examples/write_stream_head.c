/* Writes the head of a zul stream, signature and file header, to a file and shows its bytes.
 * A stream without chunks is a valid, empty point cloud file.
 *
 *   write_stream_head [path] [--sensor]
 *
 * Without a path it writes "empty.zul"; with --sensor it adds the sensor header (version 2). */
#include <stdio.h>
#include <string.h>

#include "zul.h"

static void show(const char* what, const char* bytes, int size) {
    int i;
    printf("%-16s %3d bytes:", what, size);
    for (i = 0; i < size; ++i)
        printf("%s%02X", (i % 16 == 0) ? "\n    " : " ", (unsigned char)bytes[i]);
    printf("\n");
}

int main(int argc, char** argv) {
    const char* path = "empty.zul";
    int withSensor = 0;
    int i, size = 0;
    zul_DataType dataType;
    zul_Header2 header;
    zul_enc_Context encoder = NULL;
    const char* signature = NULL;
    const char* fileHeader = NULL;
    FILE* file;

    for (i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--sensor") == 0)
            withSensor = 1;
        else
            path = argv[i];
    }

    zul_init_headers(&dataType, &header);
    dataType.colorMode = zul_COLOR_RGB888;
    dataType.reflectionMode = zul_REFLECTION_CLAMPED;
    dataType.maxReflection = 65535;
    if (zul_enc_open2(&encoder, &dataType, withSensor ? &header : NULL) != zul_STATUS_OK) {
        fprintf(stderr, "cannot open an encoder\n");
        return 1;
    }
    zul_enc_createFileSignature(encoder, &signature);
    zul_enc_encodeFileHeader(encoder, &fileHeader, &size);

    printf("zul %d.%d.%d: stream of format version %d, step %g, RGB888 colour, reflection 0..%d\n",
           zul_libversion_major(), zul_libversion_minor(), zul_libversion_patch(), signature[3],
           (double)dataType.quantizationStep, (int)dataType.maxReflection);
    show("signature", signature, 8);
    show("file header", fileHeader, size);

    file = fopen(path, "wb");
    if (!file || fwrite(signature, 1, 8, file) != 8 ||
        fwrite(fileHeader, 1, (size_t)size, file) != (size_t)size || fclose(file) != 0) {
        fprintf(stderr, "cannot write %s\n", path);
        zul_enc_close(&encoder);
        return 1;
    }
    printf("wrote %s: %d bytes, a valid stream with no points yet\n", path, 8 + size);
    zul_enc_close(&encoder);
    return 0;
}
