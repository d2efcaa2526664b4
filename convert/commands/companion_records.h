// What a companion keeps of a PCD or PLY file: its header (and a PLY file's other elements) as
// bytes, each record's fields as named, typed columns, and the points the stream could not hold
// (NaN coordinates) as whole rows with their record numbers. A field the stream holds (x, y, z,
// colour, intensity, normals) is a column only where the stream's value would not give the
// record's bytes back: the difference of the bit patterns, named "<field>_residual".
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "commands/chunk_walk.h"
#include "commands/commands.h"
#include "formats/cloud.h"
#include "zul_companion.h"

namespace zulconvert {

// A column of the companion: value `element` of field `field` of the layout, at `offset` in the
// record; a residual column is a field's difference from what the stream gives.
struct RecordColumn {
    std::string name;
    zul_FieldType type;
    int width;
    size_t field;
    size_t offset;
    bool residual;
};

// Every column a record may have: one a value for a field the stream lacks (named as the field,
// "name[k]" for value k of a field of several), one a field it holds (residual). Names made
// unique with "#2", "#3" ...; throws FormatError for a name longer than the companion holds.
std::vector<RecordColumn> recordColumns(const zulformats::RecordLayout& layout);

// The layout as the companion's "fields" convention, "name kind size count offset role" a field,
// separated by "; ", and back: false for a text that is not one.
std::string layoutText(const zulformats::RecordLayout& layout);
bool parseLayoutText(const std::string& text, zulformats::RecordLayout& layout);

// What the stream gives of one point: its position through the sensor header's matrix, its
// colour, reflection and normal where the stream has them (else null).
struct StreamPoint {
    double q[3];
    const uint8_t* color;
    const int32_t* reflection;
    const float* normal;
};

// The bytes (little-endian, field.size) the stream gives for a field it holds: the position or
// normal in the field's type, the colour (the packed 0x00RRGGBB word; a channel of 8 bits as it
// is, of 16 times 257, a float over 255), the reflection divided by `intensityFactor`; 0 where the
// stream lacks the attribute. Computed alike by compress and decompress.
void streamValue(const zulformats::RecordField& field, const StreamPoint& point,
                 double intensityFactor, unsigned char* out);

// The number a field's bytes (little-endian, field.size) hold; NaN for a field of raw bytes.
double loadNumber(const zulformats::RecordField& field, const unsigned char* bytes);

// Whether a field is geometry the stream rounds (a position or a normal): its residual is kept
// only on request (--exact).
bool roundedGeometry(const zulformats::RecordField& field);

// The stream's step in the world's units (through the sensor header's scale).
double worldStep(const ZulFileHead& head);

// `a` minus / plus `b`, as unsigned integers of `width` bytes (1, 2, 4 or 8), modulo 2^(8 width).
void subtractValue(unsigned char* a, const unsigned char* b, int width);
void addValue(unsigned char* a, const unsigned char* b, int width);

// Whether the format is text (XYZ, CSV): its records are a line's values, float64 each.
bool isTextFormat(zulformats::Format format);

// Of a text file's records: each column of float64 values (not a position or normal) whose every
// value is a whole number of int64 other than -0 becomes an int64 column, in `records` too; a
// colour column that does not is kept whole (role None), the stream's channel being a whole
// number.
void wholeNumberColumns(zulformats::RecordLayout& layout, std::vector<unsigned char>& records);

// The companion's format text: "pcd binary", "ply binary_big_endian", "xyz space", "csv comma" ...
std::string recordFormatText(zulformats::Format format, const zulformats::RecordLayout& layout);

// Whether a companion of source `kind` (its format word in `reader`) rebuilds an output of
// `format` from its records: a PCD's a PCD, a PLY's a PLY, an XYZ or CSV text's the same.
bool ownsRecords(zul_SourceKind kind, zulformats::Format format, zul_xin_Reader reader);

// The extension of a text file's companion's output: its input's own (.xyz, .txt, .pts, .csv), or
// of its format; "" for a companion of another source.
std::string textExtension(zul_xin_Reader reader);

// decompress of a PCD, PLY or text file's stream into its own format, from the companion `path`
// (`reader`, open and bound to the input's stream): the source's header, every record rebuilt
// from the stream and the columns, the points the stream could not hold back in their places,
// in the input's order when the companion keeps it. Returns the exit code.
int restoreRecords(const DecompressOptions& options, zulformats::Format format,
                   zul_xin_Reader reader, const std::string& path);

}  // namespace zulconvert
