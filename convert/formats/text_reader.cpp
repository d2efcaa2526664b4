// XYZ and CSV text: one point a line. The first line that is not a comment decides how values are
// separated: by semicolons if it has any, else by commas if it has any, else by spaces and tabs.
// So "1,5 2,5 3,5" is refused rather than read as other numbers; where semicolons separate, decimal
// commas are read as such ("1,5;2,5;3,5"). A first line
// of names (x y z, red green blue or r g b, intensity or i, nx ny nz), possibly after "#" or "//",
// says which column is what; without one, the count of columns does: 3 x y z, 4 + intensity, 6 +
// red green blue, 7 + red green blue intensity, 9 + red green blue nx ny nz, 10 + red green blue
// intensity nx ny nz. A .pts file may start with a line holding the point count alone. Other
// lines starting with "#" or "//" are comments. Every point line holds exactly as many values as
// there are columns. Each point's values are also handed out as a record of float64 fields, one a
// column, for the companion to keep the columns the stream lacks and the lines before the first
// point and after the last.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>

#include "formats/byte_input.h"
#include "formats/cloud.h"

namespace zulformats {

namespace {

enum Column { X, Y, Z, Red, Green, Blue, Intensity, Nx, Ny, Nz, kColumns };

size_t firstText(const std::string& line) { return line.find_first_not_of(" \t"); }

bool isComment(const std::string& line) {
    const size_t start = firstText(line);
    return start != std::string::npos && (line[start] == '#' || line.compare(start, 2, "//") == 0);
}

bool isBlank(const std::string& line) { return firstText(line) == std::string::npos; }

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The values of a line: split at every `separator`, or at runs of spaces and tabs where it is 0.
std::vector<std::string> split(const std::string& line, char separator) {
    std::vector<std::string> values;
    if (separator != 0) {
        size_t start = 0;
        for (;;) {
            const size_t end = line.find(separator, start);
            values.push_back(trimmed(line.substr(start, end - start)));
            if (end == std::string::npos) break;
            start = end + 1;
        }
        return values;
    }
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
        const size_t first = i;
        while (i < line.size() && line[i] != ' ' && line[i] != '\t') ++i;
        if (i > first) values.push_back(line.substr(first, i - first));
    }
    return values;
}

// The text of a comment line after its mark.
std::string uncommented(const std::string& line) {
    const size_t start = firstText(line);
    return line.substr(start + (line[start] == '#' ? 1 : 2));
}

// A value; where semicolons separate values, a decimal comma is read as a decimal point.
bool number(const std::string& text, char separator, double& value) {
    if (text.empty()) return false;
    std::string digits = text;
    if (separator == ';' && digits.find('.') == std::string::npos) {
        std::replace(digits.begin(), digits.end(), ',', '.');
    }
    char* end = nullptr;
    value = std::strtod(digits.c_str(), &end);
    return *end == '\0';
}

class TextReader : public CloudReader {
public:
    explicit TextReader(const std::string& path) : in_(path) {
        std::fill(std::begin(column_), std::end(column_), -1);
        if (!nextLine()) in_.fail("the file holds no points");
        // A byte order mark (spreadsheets write one before UTF-8 text) is no part of the text.
        if (line_.compare(0, 3, "\xEF\xBB\xBF") == 0) {
            line_.erase(0, 3);
            if (isBlank(line_) && !nextLine()) in_.fail("the file holds no points");
        }
        // Comments before the first point may name the columns.
        bool named = false;
        while (isComment(line_)) {
            const std::string text = uncommented(line_);
            if (!named) named = namesColumns(text, false);
            extra_ = true;
            if (!nextLine()) in_.fail("the file holds no points");
        }
        if (named) {
            pending_ = true;
        } else {
            // A .pts file's point count, alone on the first line.
            const std::vector<std::string> values = split(trimmed(line_), separatorOf(line_));
            double count = 0;
            if (values.size() == 1 && number(values[0], separatorOf(line_), count) && count >= 0 &&
                count == std::floor(count)) {
                if (!(count < 9223372036854775808.0))
                    in_.fail("the point count on the first line is too large");
                announced_ = static_cast<int64_t>(count);
                layout_.pointCount = announced_;
                do {
                    if (!nextLine()) in_.fail("the file holds no points");
                } while (isComment(line_));
            }
            if (!namesColumns(line_, true)) {
                separator_ = separatorOf(line_);
                columnsByCount(split(trimmed(line_), separator_).size());
                pending_ = true;
            }
        }
        layout_.hasColor = column_[Red] >= 0 && column_[Green] >= 0 && column_[Blue] >= 0;
        layout_.hasIntensity = column_[Intensity] >= 0;
        layout_.floatIntensity = true;
        layout_.hasNormals = column_[Nx] >= 0 && column_[Ny] >= 0 && column_[Nz] >= 0;
        describeRecords();
    }

    // Only for a file that holds what the stream lacks: a column of no meaning to it, or comment
    // lines before the first point.
    const RecordLayout* records() const override { return extra_ ? &records_ : nullptr; }
    const unsigned char* record() const override {
        return reinterpret_cast<const unsigned char*>(values_.data());
    }
    uint64_t dataEnd() const override { return dataEnd_; }

    bool read(zul_Point& point) override {
        if (pending_) {
            pending_ = false;
        } else {
            bool comment = false;
            do {
                if (!nextLine()) return finished();
                if (comment && pointsRead_ > 0) ++comments_;
                comment = isComment(line_);
            } while (comment);
        }
        const std::vector<std::string> values = split(trimmed(line_), separator_);
        if (static_cast<int>(values.size()) != columns_) {
            in_.fail("line " + std::to_string(lineNumber_) + ": " + std::to_string(values.size()) +
                     " values where the file has " + std::to_string(columns_) + " columns");
        }
        values_.resize(values.size());
        for (size_t i = 0; i < values.size(); ++i) {
            if (separator_ == ';' && values[i].find(',') != std::string::npos)
                records_.encoding = "semicolon decimal-comma";
            if (!number(values[i], separator_, values_[i])) fail(i, values[i]);
            if (std::fabs(values_[i]) >= 9007199254740992.0 && !exactWhole(values[i], values_[i]))
                count("whole numbers beyond 2^53 read as the nearest float64");
        }
        if (pointsRead_++ == 0) records_.dataBegin = lineStart_;
        dataEnd_ = in_.position();
        for (int c = 0; c < 3; ++c) point.position[c] = values_[column_[X + c]];
        if (layout_.hasColor) {
            for (int c = 0; c < 3; ++c) point.color[c] = colorChannel(values_[column_[Red + c]]);
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
    static char separatorOf(const std::string& line) {
        if (line.find(';') != std::string::npos) return ';';
        if (line.find(',') != std::string::npos) return ',';
        return 0;
    }

    [[noreturn]] void fail(size_t i, const std::string& value) {
        in_.fail(
            "line " + std::to_string(lineNumber_) + ": value " + std::to_string(i + 1) + " (\"" +
            printable(value) + "\") is not a number" +
            (value.find(',') != std::string::npos ? " (decimals are written with a point)" : ""));
    }

    // Whether `text`, read as `value`, is not a whole number written out in digits, or is one
    // that float64 holds exactly.
    static bool exactWhole(const std::string& text, double value) {
        const size_t digits = text.find_first_not_of("+-");
        if (digits > 1 || text.find_first_not_of("0123456789", digits) != std::string::npos)
            return true;
        errno = 0;
        const long long whole = std::strtoll(text.c_str(), nullptr, 10);
        return errno == 0 && value < 9223372036854775808.0 && value >= -9223372036854775808.0 &&
               static_cast<long long>(value) == whole;
    }

    // The next line that is not blank, counted; false at the end.
    bool nextLine() {
        do {
            lineStart_ = in_.position();
            if (!in_.readLine(line_)) return false;
            ++lineNumber_;
        } while (isBlank(line_));
        return true;
    }

    bool finished() {
        if (comments_ > 0) {
            changes_
                ["comment lines among the points left out (those before the first point and "
                 "after the last are kept)"] += comments_;
            comments_ = 0;
        }
        if (announced_ >= 0 && pointsRead_ != announced_) {
            in_.fail("the first line announces " + std::to_string(announced_) +
                     " points, the file holds " + std::to_string(pointsRead_));
        }
        return false;
    }

    // Whole numbers 0 .. 255; others are rounded or clamped, and counted.
    uint8_t colorChannel(double v) {
        const double rounded = std::round(v);
        if (std::isnan(v) || rounded < 0 || rounded > 255) {
            count("colour values outside 0 .. 255 clamped");
            return std::isnan(v) || rounded < 0 ? 0 : 255;
        }
        if (rounded != v) count("colour values rounded to whole numbers");
        return static_cast<uint8_t>(rounded);
    }

    // Takes `text` as a line of column names if it is one: words, among them x, y and z. A line
    // of words without them is refused where `required` (the first line of the file).
    bool namesColumns(const std::string& text, bool required) {
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
        const char separator = separatorOf(text);
        const std::vector<std::string> words = split(trimmed(text), separator);
        int column[kColumns];
        std::fill(std::begin(column), std::end(column), -1);
        bool named = false;
        std::vector<std::string> unknown;
        for (size_t i = 0; i < words.size(); ++i) {
            std::string name;
            for (char c : words[i])
                name += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            if (!name.empty() && std::isalpha(static_cast<unsigned char>(name[0])) &&
                name != "nan" && name != "inf") {
                named = true;
            }
            const auto found = kNames.find(name);
            if (found != kNames.end() && column[found->second] < 0) {
                column[found->second] = static_cast<int>(i);
            } else {
                unknown.push_back(printable(words[i]));
            }
        }
        const bool xyz = column[X] >= 0 && column[Y] >= 0 && column[Z] >= 0;
        if (named && !xyz && required) {
            in_.fail("line " + std::to_string(lineNumber_) +
                     ": a line of column names without x, y and z");
        }
        if (!named || !xyz) return false;
        std::copy(std::begin(column), std::end(column), column_);
        names_ = words;
        separator_ = separator;
        columns_ = static_cast<int>(words.size());
        for (const std::string& name : unknown) layout_.dropped.push_back("column " + name);
        return true;
    }

    // The record of every point: its columns as float64 fields named as the line of names has
    // them (a name the layout text cannot hold made of "_", an empty one "column<k>"), or as
    // their meaning; the stream's columns with their roles.
    void describeRecords() {
        static const char* const kMeaning[kColumns] = {"x",    "y",         "z",  "red", "green",
                                                       "blue", "intensity", "nx", "ny",  "nz"};
        static const FieldRole kRoles[kColumns] = {
            FieldRole::X,    FieldRole::Y,         FieldRole::Z,  FieldRole::Red, FieldRole::Green,
            FieldRole::Blue, FieldRole::Intensity, FieldRole::NX, FieldRole::NY,  FieldRole::NZ};
        for (int i = 0; i < columns_; ++i) {
            RecordField f;
            f.kind = 'f';
            f.size = 8;
            f.offset = static_cast<size_t>(i) * 8;
            f.name = i < static_cast<int>(names_.size()) ? names_[static_cast<size_t>(i)] : "";
            for (int c = 0; c < kColumns; ++c) {
                if (column_[c] != i) continue;
                const bool kept = c < Red          ? true
                                  : c < Intensity  ? layout_.hasColor
                                  : c == Intensity ? layout_.hasIntensity
                                                   : layout_.hasNormals;
                if (kept) f.role = kRoles[c];
                extra_ = extra_ || !kept;
                if (f.name.empty()) f.name = kMeaning[c];
            }
            extra_ = extra_ || std::none_of(std::begin(column_), std::end(column_),
                                            [&](int k) { return k == i; });
            for (char& ch : f.name) {
                if (ch == ' ' || ch == '\t' || ch == ';' || ch == '\0') ch = '_';
            }
            if (f.name.empty()) f.name = "column" + std::to_string(i + 1);
            records_.fields.push_back(f);
        }
        records_.size = static_cast<size_t>(columns_) * 8;
        records_.encoding = separator_ == ';'   ? "semicolon"
                            : separator_ == ',' ? "comma"
                            : line_.find('\t') != std::string::npos &&
                                    line_.find(' ', firstText(line_)) == std::string::npos
                                ? "tab"
                                : "space";
        values_.assign(static_cast<size_t>(columns_), 0.0);
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
            in_.fail("line " + std::to_string(lineNumber_) + ": " + std::to_string(count) +
                     " values without a line of column names are not understood (3, 4, 6, 7, 9 "
                     "or 10 are)");
        }
        for (size_t i = 0; i < found->second.size(); ++i)
            column_[found->second[i]] = static_cast<int>(i);
        columns_ = static_cast<int>(count);
    }

    ByteInput in_;
    int column_[kColumns];
    int columns_ = 0;
    char separator_ = 0;
    std::string line_;
    bool pending_ = false;  // line_ holds the first point, not yet handed out
    uint64_t lineNumber_ = 0;
    int64_t announced_ = -1;  // the point count of a .pts file's first line
    int64_t pointsRead_ = 0;
    std::vector<double> values_;  // the point line's values: its record
    std::vector<std::string> names_;
    RecordLayout records_;
    uint64_t lineStart_ = 0, dataEnd_ = 0;
    int64_t comments_ = 0;  // comment lines among the points
    bool extra_ = false;    // the file holds what the stream lacks
};

}  // namespace

std::unique_ptr<CloudReader> openTextReader(const std::string& path) {
    return std::make_unique<TextReader>(path);
}

}  // namespace zulformats
