#!/usr/bin/env bash
# The shared library exports the C API and the members of the listed classes, and nothing else;
# the companion's library exports the functions of zul_companion.h, and nothing else.
# usage: exported_symbols.sh path/to/libzul.so [path/to/libzul_companion.so]
set -euo pipefail
library=$1
companion=${2:-}

exported=$(nm -D --defined-only "$library" | awk '$2 ~ /^[TWDBRVi]$/ {print $3}' | c++filt | sort -u)

status=0
stray=$(grep -vE '^(zul_[A-Za-z0-9_]+$|zullib::|((void|zul_Status) )?zul_(enc|dec)_ContextStruct::)' \
    <<<"$exported" || true)
if [ -n "$stray" ]; then
    echo "exported but not part of the interface:"
    echo "$stray"
    status=1
fi

required=(
    zul_libversion_major zul_libversion_minor zul_libversion_patch
    zul_init_headers zul_test_useFixedRandomSeed
    zul_enc_open zul_enc_open2 zul_enc_createFileSignature zul_enc_encodeFileHeader zul_enc_close
    'zullib::BitStreamIn::BitStreamIn(' 'zullib::BitStreamIn::readBits(' 'zullib::BitStreamIn::readByteAligned('
    'zullib::BitStreamIn::readByteAlignedUInt8(' 'zullib::BitStreamIn::readByteAlignedUInt16('
    'zullib::BitStreamIn::readByteAlignedUInt32(' 'zullib::BitStreamIn::readByteAlignedUInt64('
    'zullib::BitStreamOut::writeBits('
    'zullib::CVR::buildRangeLookupTable(' 'zullib::CVR::encodeDeltaOrAbsolute(' 'zullib::CVR::decodeDelta('
    'zullib::DataType::isValid(' 'zullib::DataType::equal(' 'zullib::DataType::init(' 'zullib::DataType::getChunkHeaderSize('
    'zullib::Header2::init(' 'zullib::Header2::disabled(' 'zullib::Header2::isValid(' 'zullib::Header2::isSensorValid('
    'zullib::Header2::equal(' 'zullib::Header2::setScaling(' 'zullib::Header2::setTranslation('
    'zullib::RandomGenerator::RandomGenerator()' 'zullib::RandomGenerator::RandomGenerator(unsigned int)'
    'zullib::RandomGenerator::getRandomBytes(' 'zullib::RandomGenerator::useFixedSeed(' 'zullib::RandomGenerator::getSeed('
    'zullib::zul_FileSignature::zul_FileSignature(int)' 'zullib::zul_FileSignature::zul_FileSignature(char const*)'
    'zullib::zul_SyncMarker::zul_SyncMarker(' 'zullib::zul_SyncMarker::randomize(' 'zullib::zul_SyncMarker::setBytes('
    'zullib::zul_SyncMarker::equals('
    'zul_enc_ContextStruct::zul_enc_ContextStruct(' 'zul_enc_ContextStruct::~zul_enc_ContextStruct('
    'zul_enc_ContextStruct::getFileSignature(' 'zul_enc_ContextStruct::encodeFileHeader('
    'zul_enc_ContextStruct::encodeChunk(' 'zul_enc_ContextStruct::quantizeRemapAndShiftPoints('
    'zul_enc_ContextStruct::sortQuantizedPoints(' 'zul_enc_ContextStruct::countDeltaBitLengthFrequencies('
    'zul_enc_ContextStruct::writeDataStreamHeader('
    'zul_enc_ContextStruct::writeDataStreamBody<zullib::zul_QuantizedPoint::CoordinateAccessor>('
    'zul_enc_ContextStruct::writeDataStreamBody<zullib::zul_QuantizedPoint::RGBAccessor>('
    'zul_enc_ContextStruct::writeDataStreamBody<zullib::zul_QuantizedPoint::ReflectionAccessor>('
    'zul_enc_ContextStruct::writeDataStreamBody<zullib::zul_QuantizedPoint::NormalAccessor>('
    'zullib::PrefixOptimizer::findBestBitLengthsForPrefixes(' 'zullib::PrefixOptimizer::tryNextPrefix('
    zul_enc_encodeChunk
    zul_dec_open zul_dec_open2 zul_dec_decodeFileHeader zul_dec_decodeFileHeader2
    zul_dec_decodeChunkHeader zul_dec_getNumPointsInChunk zul_dec_decodeChunkBody zul_dec_close
    zul_out_open zul_out_open2 zul_out_open_w zul_out_open2_w zul_out_setChunkSize zul_out_writePoint
    zul_out_close
    zul_in_open zul_in_open2 zul_in_open_w zul_in_open2_w zul_in_getNumPoints zul_in_readNextPoint
    zul_in_close
    zul_idx_openFile zul_idx_openFileAt zul_idx_openBuffer zul_idx_getDataType zul_idx_getCounts zul_idx_getChunk
    zul_idx_getDamage zul_idx_selectBox zul_idx_countPoints zul_idx_close
    zul_idx_setChunkBudget zul_idx_setPointDensity zul_idx_getStreamSizes
    zul_bulk_allocate zul_bulk_free zul_bulk_decode zul_bulk_decodeChunks zul_bulk_encodeFile
    zul_bulk_openWriter zul_bulk_writeChunks zul_bulk_writeChunksOrdered zul_bulk_writeEncodedChunks zul_bulk_writeEncodedChunksOrdered zul_bulk_closeWriter zul_bulk_abortWriter
    zul_bulk_openOrderer zul_bulk_orderChunk zul_bulk_closeOrderer
    'zul_dec_ContextStruct::zul_dec_ContextStruct(' 'zul_dec_ContextStruct::~zul_dec_ContextStruct('
    'zul_dec_ContextStruct::open(' 'zul_dec_ContextStruct::decodeFileHeader('
    'zul_dec_ContextStruct::decodeChunkHeader(' 'zul_dec_ContextStruct::getNumPointsInChunk('
    'zul_dec_ContextStruct::decodeChunkBody(' 'zul_dec_ContextStruct::freeChunkPoints('
    'zul_dec_ContextStruct::ensureChunkPointsCapacity('
    'zul_dec_ContextStruct::dequantizeRemapAndShiftPoints('
    'zul_dec_ContextStruct::transformPointPositions(' 'zul_dec_ContextStruct::transformPointNormals('
    'zul_dec_ContextStruct::readDataStreamHeader<zullib::zul_QuantizedPoint::CoordinateAccessor>('
    'zul_dec_ContextStruct::readDataStreamHeader<zullib::zul_QuantizedPoint::RGBAccessor>('
    'zul_dec_ContextStruct::readDataStreamHeader<zullib::zul_QuantizedPoint::ReflectionAccessor>('
    'zul_dec_ContextStruct::readDataStreamHeader<zullib::zul_QuantizedPoint::NormalAccessor>('
    'zul_dec_ContextStruct::readDataStreamBody<zullib::zul_QuantizedPoint::CoordinateAccessor>('
    'zul_dec_ContextStruct::readDataStreamBody<zullib::zul_QuantizedPoint::RGBAccessor>('
    'zul_dec_ContextStruct::readDataStreamBody<zullib::zul_QuantizedPoint::ReflectionAccessor>('
    'zul_dec_ContextStruct::readDataStreamBody<zullib::zul_QuantizedPoint::NormalAccessor>('
)
for name in "${required[@]}"; do
    # a C function is its whole line; a member is the start of its signature
    if [[ $name == *'('* ]]; then match=(-qF); else match=(-qxF); fi
    if ! grep "${match[@]}" -- "$name" <<<"$exported"; then
        echo "missing export: $name"
        status=1
    fi
done
[ "$status" -eq 0 ] && echo "$(wc -l <<<"$exported") symbols exported, all of the interface"

if [ -n "$companion" ]; then
    exported=$(nm -D --defined-only "$companion" | awk '$2 ~ /^[TWDBRVi]$/ {print $3}' | sort -u)
    stray=$(grep -vE '^zul_(x|xout|xin|xblob)_[A-Za-z0-9]+$' <<<"$exported" || true)
    if [ -n "$stray" ]; then
        echo "exported by the companion's library but not part of its interface:"
        echo "$stray"
        status=1
    fi
    required=(
        zul_x_checksum zul_x_statusText
        zul_xout_open zul_xout_addField zul_xout_keepOrder zul_xout_setThreads zul_xout_setSource zul_xout_setFormat
        zul_xout_addConvention zul_xout_setRows zul_xout_bindStreamBuffer zul_xout_bindStreamFile
        zul_xout_beginStream zul_xout_addChunk zul_xout_addChunkBytes zul_xout_writeColumn zul_xout_writeOrder
        zul_xout_finish zul_xout_close
        zul_xin_getHeadSize zul_xin_openFile zul_xin_openBuffer zul_xin_openHead
        zul_xin_bindStreamBuffer zul_xin_bindStreamFile zul_xin_bindIndex zul_xin_getInfo
        zul_xin_getChunk zul_xin_getField zul_xin_findField zul_xin_getSource zul_xin_getFormat
        zul_xin_getConventionCount zul_xin_getConvention zul_xin_getRowInfo zul_xin_readRows
        zul_xin_readColumn zul_xin_readOrder zul_xin_readColumnFromBlock zul_xin_readChunk
        zul_xin_readChunkFromBlock zul_xin_checkBlock zul_xin_verifyBuffer zul_xin_verifyFile
        zul_xin_close zul_xblob_pack zul_xblob_unpack
    )
    for name in "${required[@]}"; do
        grep -qxF -- "$name" <<<"$exported" || { echo "missing export: $name"; status=1; }
    done
    [ "$status" -eq 0 ] && echo "$(wc -l <<<"$exported") companion symbols exported, all of its interface"
fi
exit "$status"
