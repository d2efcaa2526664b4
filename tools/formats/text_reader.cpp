// XYZ and CSV text: one point a line, numbers separated by spaces, tabs, commas or semicolons.
// A first line of names (x y z, red green blue or r g b, intensity or i, nx ny nz), possibly after
// "#" or "//", says which column is what; without one, the count of columns does: 3 x y z,
// 4 + intensity, 6 + red green blue, 7 + red green blue intensity, 9 + red green blue nx ny nz,
// 10 + red green blue intensity nx ny nz. Other lines starting with "#" or "//" are comments.
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <map>

#include "byte_input.h"
#include "cloud.h"
#include "text_line.h"

namespace zultool {

namespace {

const char kSeparators[] = " \t,;";

enum Column { X, Y, Z, Red, Green, Blue, Intensity, Nx, Ny, Nz, kColumns };

bool isComment(const std::string& line) {
    const size_t start = line.find_first_not_of(" \t");
    return start != std::string::npos && (line[start] == '#' || line.compare(start, 2, "//") == 0);
}

// The words of a line, after a leading comment mark.
std::vector<std::string> words(const std::string& line) {
    std::string text = line;
    const size_t start = text.find_first_not_of(" \t");
    if (start != std::string::npos && text[start] == '#') text[start] = ' ';
    if (start != std::string::npos && text.compare(start, 2, "//") == 0)
        text.replace(start, 2, "  ");
    std::vector<std::string> result;
    size_t i = 0;
    while (i < text.size()) {
        while (i < text.size() && std::strchr(kSeparators, text[i]) != nullptr) ++i;
        const size_t first = i;
        while (i < text.size() && std::strchr(kSeparators, text[i]) == nullptr) ++i;
        if (i > first) result.push_back(text.substr(first, i - first));
    }
    return result;
}

class TextReader : public CloudReader {
public:
    explicit TextReader(const std::string& path) : in_(path) {
        std::fill(std::begin(column_), std::end(column_), -1);
        // The first line: names, or the first point.
        if (!line_.next(in_)) in_.fail("the file holds no points");
        ++lineNumber_;
        if (namesColumns(words(line_.text()))) {
            pending_ = false;
        } else if (isComment(line_.text())) {
            in_.fail("the first line is a comment that names no x, y and z columns");
        } else {
            columnsByCount(line_.size());
            pending_ = true;
        }
        for (int c : {X, Y, Z}) {
            if (column_[c] < 0) in_.fail("the text file has no x, y and z columns");
        }
        layout_.hasColor = column_[Red] >= 0 && column_[Green] >= 0 && column_[Blue] >= 0;
        layout_.hasIntensity = column_[Intensity] >= 0;
        layout_.floatIntensity = true;
        layout_.hasNormals = column_[Nx] >= 0 && column_[Ny] >= 0 && column_[Nz] >= 0;
    }

    bool read(zul_Point& point) override {
        do {
            if (pending_) {
                pending_ = false;
            } else if (line_.next(in_)) {
                ++lineNumber_;
            } else {
                return false;
            }
        } while (isComment(line_.text()));
        values_.resize(line_.size());
        for (size_t i = 0; i < line_.size(); ++i) {
            if (!line_.number(i, values_[i])) {
                in_.fail("line " + std::to_string(lineNumber_) +
                         " holds a value that is not a number");
            }
        }
        if (static_cast<int>(values_.size()) < needed_) {
            in_.fail("line " + std::to_string(lineNumber_) + " has " +
                     std::to_string(values_.size()) + " values; " + std::to_string(needed_) +
                     " are needed");
        }
        for (int c = 0; c < 3; ++c) point.position[c] = values_[column_[X + c]];
        if (layout_.hasColor) {
            for (int c = 0; c < 3; ++c) {
                const double v = values_[column_[Red + c]];
                point.color[c] = static_cast<uint8_t>(v >= 0 && v <= 255 ? v + 0.5
                                                      : v > 255          ? 255
                                                                         : 0);
            }
        }
        if (layout_.hasIntensity) intensity_ = values_[column_[Intensity]];
        if (layout_.hasNormals) {
            for (int c = 0; c < 3; ++c)
                point.normal[c] = static_cast<float>(values_[column_[Nx + c]]);
        }
        return true;
    }

    uint64_t bytesRead() const override { return in_.position(); }
    uint64_t fileSize() const override { return in_.size(); }

private:
    bool namesColumns(const std::vector<std::string>& words) {
        static const std::map<std::string, Column> kNames = {{"x", X},
                                                             {"y", Y},
                                                             {"z", Z},
                                                             {"r", Red},
                                                             {"red", Red},
                                                             {"g", Green},
                                                             {"green", Green},
                                                             {"b", Blue},
                                                             {"blue", Blue},
                                                             {"i", Intensity},
                                                             {"intensity", Intensity},
                                                             {"scalar_intensity", Intensity},
                                                             {"nx", Nx},
                                                             {"ny", Ny},
                                                             {"nz", Nz},
                                                             {"normal_x", Nx},
                                                             {"normal_y", Ny},
                                                             {"normal_z", Nz}};
        bool named = false;
        for (size_t i = 0; i < words.size(); ++i) {
            std::string name;
            for (char c : words[i])
                name += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            if (!name.empty() && std::isalpha(static_cast<unsigned char>(name[0])) &&
                name != "nan" && name != "inf") {
                named = true;
            }
            const auto found = kNames.find(name);
            if (found != kNames.end() && column_[found->second] < 0) {
                column_[found->second] = static_cast<int>(i);
                needed_ = std::max(needed_, static_cast<int>(i) + 1);
            }
        }
        return named;
    }

    void columnsByCount(size_t count) {
        static const std::map<size_t, std::vector<Column>> kLayouts = {
            {3, {X, Y, Z}},
            {4, {X, Y, Z, Intensity}},
            {6, {X, Y, Z, Red, Green, Blue}},
            {7, {X, Y, Z, Red, Green, Blue, Intensity}},
            {9, {X, Y, Z, Red, Green, Blue, Nx, Ny, Nz}},
            {10, {X, Y, Z, Red, Green, Blue, Intensity, Nx, Ny, Nz}}};
        const auto found = kLayouts.find(count);
        if (found == kLayouts.end()) {
            in_.fail("a line of " + std::to_string(count) +
                     " values without a line of column names is not understood");
        }
        for (size_t i = 0; i < found->second.size(); ++i)
            column_[found->second[i]] = static_cast<int>(i);
        needed_ = static_cast<int>(count);
    }

    ByteInput in_;
    int column_[kColumns];
    int needed_ = 0;
    TextLine line_{kSeparators};
    bool pending_ = false;  // line_ holds the first point, not yet handed out
    uint64_t lineNumber_ = 0;
    std::vector<double> values_;
};

}  // namespace

std::unique_ptr<CloudReader> openTextReader(const std::string& path) {
    return std::make_unique<TextReader>(path);
}

}  // namespace zultool
