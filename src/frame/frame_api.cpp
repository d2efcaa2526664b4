// The exported functions outside the four families: library version, starting records, and the
// process-wide fixed seed.
#include "frame/data_type.h"
#include "frame/header2.h"
#include "frame/random_generator.h"
#include "zul.h"

using zullib::DataType;
using zullib::Header2;

extern "C" {

ZUL_API int zul_libversion_major(void) { return ZUL_VERSION_MAJOR; }
ZUL_API int zul_libversion_minor(void) { return ZUL_VERSION_MINOR; }
ZUL_API int zul_libversion_patch(void) { return ZUL_VERSION_PATCH; }

ZUL_API void zul_init_headers(zul_DataType* dataType, zul_Header2* header) {
    if (dataType)
        DataType::init(*dataType, 0.0001f, zul_COLOR_NONE, zul_REFLECTION_NONE, 0, zul_NORMAL_NONE);
    if (header) {
        Header2::init(*header, zul_SENSOR_MOUNT_DEFAULT, zul_SENSOR_TYPE_DEFAULT, 1.0, 0.0, 0.0,
                      0.0);
        header->enabled = true;
    }
}

ZUL_API void zul_test_useFixedRandomSeed(bool useFixedSeed, unsigned int seed) {
    zullib::RandomGenerator::useFixedSeed(useFixedSeed, seed);
}

}  // extern "C"
