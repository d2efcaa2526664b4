// Writes XYZ (spaces) or CSV (commas) text: a first line naming the columns, then one point a
// line, positions with enough decimals to stay well inside the step.
#include "formats/byte_output.h"
#include "formats/cloud.h"
#include "formats/text_line.h"
#include "formats/text_numbers.h"

namespace zulformats {

namespace {

class TextWriter : public CloudWriter {
public:
    TextWriter(const std::string& path, const WriteOptions& options, char separator)
        : out_(path), options_(options), separator_(separator) {
        std::string names = "x y z";
        if (options.color) names += " red green blue";
        if (options.intensity) names += " intensity";
        if (options.normals) names += " nx ny nz";
        if (separator != ' ') {
            for (char& c : names) c = c == ' ' ? separator : c;
        }
        out_.text(names + "\n");
        decimals_ = decimalsFor(options.gridStep);
    }

    void write(const zul_Point& point) override {
        line_.clear();
        appendPointLine(line_, point, options_, decimals_, separator_, false);
        out_.text(line_);
    }

    void finish() override { out_.close(); }

private:
    ByteOutput out_;
    WriteOptions options_;
    char separator_;
    int decimals_ = 6;
    std::string line_;
};

}  // namespace

std::unique_ptr<CloudWriter> openTextWriter(const std::string& path, const WriteOptions& options,
                                            char separator) {
    return std::make_unique<TextWriter>(path, options, separator);
}

}  // namespace zulformats
