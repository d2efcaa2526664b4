// The encoder's and the decoder's stages that are private members of their contexts, reached
// without opening the contexts' interfaces for a benchmark: an explicit instantiation may name a
// private member, and the instantiated friend hands the member pointer out. This file is the one
// place that names them; when a stage's signature changes, only its line here changes.
#pragma once

#include <vector>

#include "decoder/dec_context.h"
#include "encoder/enc_context.h"

namespace stages {

template <class Tag, typename Tag::Member member>
struct Expose {
    friend typename Tag::Member memberOf(Tag) { return member; }
};

using Records = std::vector<zullib::zul_QuantizedPoint>;
using Frequencies = zullib::BitLengthCounts;

// Records in input order, slots permuted by extent and shifted by the box minimum.
struct Quantize {
    using Member = zul_Status (zul_enc_ContextStruct::*)(Records&, int (&)[3], int (&)[3],
                                                         zullib::BoundingBox3d<long long>&,
                                                         const zul_PointData*);
    friend Member memberOf(Quantize);
};
template struct Expose<Quantize, &zul_enc_ContextStruct::quantizeRemapAndShiftPoints>;

// Per stream component, how many deltas need how many bits.
struct CountFrequencies {
    using Member = void (zul_enc_ContextStruct::*)(const Records&, Frequencies (&)[3],
                                                   Frequencies (&)[3], Frequencies (&)[1],
                                                   Frequencies (&)[2]);
    friend Member memberOf(CountFrequencies);
};
template struct Expose<CountFrequencies, &zul_enc_ContextStruct::countDeltaBitLengthFrequencies>;

// Every data stream of a body with attributes, into the records.
struct ReadStreams {
    using Member = zul_Status (zul_dec_ContextStruct::*)(const unsigned char*, Records&,
                                                         const int*);
    friend Member memberOf(ReadStreams);
};
template struct Expose<ReadStreams, &zul_dec_ContextStruct::readStreamsInLockstep>;

}  // namespace stages
