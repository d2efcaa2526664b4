/* Part of zul.hpp: zul::Writer and zul::Reader, a file point by point. */
#ifndef ZUL_FILE_HPP
#define ZUL_FILE_HPP

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <utility>

#include "error.hpp"
#include "zul.h"

namespace zul {

/* Writes a file point by point. The file is complete only after close(), which reports what
 * the last chunk's writing did; the destructor closes an open writer too but cannot report. */
class Writer {
public:
    Writer(const std::string& path, const zul_DataType& dataType)
        : Writer(path, dataType, nullptr) {}
    Writer(const std::string& path, const zul_DataType& dataType, const zul_Header2& header)
        : Writer(path, dataType, &header) {}
    /* Wide paths are opened as UTF-8. */
    Writer(const std::wstring& path, const zul_DataType& dataType)
        : Writer(path, dataType, nullptr) {}
    Writer(const std::wstring& path, const zul_DataType& dataType, const zul_Header2& header)
        : Writer(path, dataType, &header) {}

    ~Writer() { zul_out_close(&context_); }
    Writer(Writer&& other) noexcept
        : context_(std::exchange(other.context_, nullptr)), name_(std::move(other.name_)) {}
    Writer& operator=(Writer&& other) noexcept {
        if (this != &other) {
            zul_out_close(&context_);
            context_ = std::exchange(other.context_, nullptr);
            name_ = std::move(other.name_);
        }
        return *this;
    }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    /* Points a chunk, 1 to 2147483646, before the first point; 10000 unless set. */
    void setChunkSize(int chunkSize) {
        detail::check(zul_out_setChunkSize(context_, chunkSize), name_, "zul_out_setChunkSize");
    }
    /* Takes one point; writes a chunk when it is full. */
    void write(const zul_Point& point) {
        detail::check(zul_out_writePoint(context_, &point), name_, "zul_out_writePoint");
    }
    /* Writes the last chunk and closes the file. Afterwards the writer owns nothing; closing
     * again does nothing. */
    void close() {
        if (context_) detail::check(zul_out_close(&context_), name_, "zul_out_close");
    }
    bool isOpen() const noexcept { return context_ != nullptr; }

    zul_out_Context handle() const noexcept { return context_; }

private:
    Writer(const std::string& path, const zul_DataType& dataType, const zul_Header2* header)
        : name_(path) {
        open(zul_out_open2(&context_, path.c_str(), &dataType, header), "zul_out_open2");
    }
    Writer(const std::wstring& path, const zul_DataType& dataType, const zul_Header2* header)
        : name_(detail::narrow(path)) {
        open(zul_out_open2_w(&context_, path.c_str(), &dataType, header), "zul_out_open2_w");
    }
    // A file that could not be created leaves a writer that only closes.
    void open(zul_Status status, const char* call) {
        if (status != zul_STATUS_OK) {
            zul_out_close(&context_);
            detail::check(status, name_, call);
        }
    }

    zul_out_Context context_ = nullptr;
    std::string name_;
};

/* Reads a file point by point, by read() or as a range:  for (const zul_Point& p : reader).
 * The points of a chunk come in stored (sorted) order. Fields of attributes the file lacks are 0.
 * Walking the range a second time goes on where the first stopped; moving the reader ends the
 * iterators taken from it. */
class Reader {
public:
    /* With applyTransformation, the points of a version 2 file come through its matrix. */
    explicit Reader(const std::string& path, bool applyTransformation = true) : name_(path) {
        const zul_dec_Params params = makeParams(applyTransformation);
        open(zul_in_open2(&context_, &dataType_, &header2_, path.c_str(), &params), "zul_in_open2");
    }
    /* Wide paths are opened as UTF-8. */
    explicit Reader(const std::wstring& path, bool applyTransformation = true)
        : name_(detail::narrow(path)) {
        const zul_dec_Params params = makeParams(applyTransformation);
        open(zul_in_open2_w(&context_, &dataType_, &header2_, path.c_str(), &params),
             "zul_in_open2_w");
    }

    ~Reader() { zul_in_close(&context_); }
    Reader(Reader&& other) noexcept { *this = std::move(other); }
    Reader& operator=(Reader&& other) noexcept {
        if (this != &other) {
            zul_in_close(&context_);
            context_ = std::exchange(other.context_, nullptr);
            dataType_ = other.dataType_;
            header2_ = other.header2_;
            name_ = std::move(other.name_);
            numPoints_ = std::exchange(other.numPoints_, -1);
            pointsRead_ = std::exchange(other.pointsRead_, 0);
            ended_ = std::exchange(other.ended_, false);
        }
        return *this;
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    const zul_DataType& dataType() const noexcept { return dataType_; }
    /* The sensor header; for a version 1 file one with `enabled` false. */
    const zul_Header2& header2() const noexcept { return header2_; }

    /* The number of points in the file, from its chunk headers, whenever it is asked. */
    std::int64_t numPoints() {
        if (numPoints_ < 0) {
            if (ended_) return pointsRead_;  // a clean end: every point has been read
            std::int64_t count = 0;
            detail::check(zul_in_getNumPoints(context_, &count), name_, "zul_in_getNumPoints");
            numPoints_ = count;
        }
        return numPoints_;
    }

    /* The next point into `point`; false at the clean end of the file, and ever after. */
    bool read(zul_Point& point) {
        if (ended_) return false;
        const zul_Status status = zul_in_readNextPoint(context_, &point);
        if (status == zul_STATUS_END_OF_FILE) {
            ended_ = true;
            return false;
        }
        detail::check(status, name_, "zul_in_readNextPoint");
        ++pointsRead_;
        return true;
    }

    class iterator {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = zul_Point;
        using difference_type = std::ptrdiff_t;
        using pointer = const zul_Point*;
        using reference = const zul_Point&;

        iterator() noexcept = default;
        reference operator*() const noexcept { return point_; }
        pointer operator->() const noexcept { return &point_; }
        iterator& operator++() {
            if (!reader_->read(point_)) reader_ = nullptr;
            return *this;
        }
        void operator++(int) { ++*this; }
        friend bool operator==(const iterator& a, const iterator& b) noexcept {
            return a.reader_ == b.reader_;
        }
        friend bool operator!=(const iterator& a, const iterator& b) noexcept { return !(a == b); }

    private:
        friend class Reader;
        explicit iterator(Reader* reader) : reader_(reader) { ++*this; }

        Reader* reader_ = nullptr;
        zul_Point point_{};
    };

    /* Reads the next point; a read that fails throws from here or from ++. */
    iterator begin() { return iterator(this); }
    iterator end() noexcept { return iterator(); }

    /* Closes the file now; the reader owns nothing afterwards. */
    void close() noexcept { zul_in_close(&context_); }
    bool isOpen() const noexcept { return context_ != nullptr; }

    zul_in_Context handle() const noexcept { return context_; }

private:
    static zul_dec_Params makeParams(bool applyTransformation) noexcept {
        zul_dec_Params params{};
        params.applyTransformation = applyTransformation ? 1 : 0;
        return params;
    }
    // A failed open still leaves a context, which is closed here.
    void open(zul_Status status, const char* call) {
        if (status != zul_STATUS_OK) {
            zul_in_close(&context_);
            detail::check(status, name_, call);
        }
    }

    zul_in_Context context_ = nullptr;
    zul_DataType dataType_{};
    zul_Header2 header2_{};
    std::string name_;
    std::int64_t numPoints_ = -1;
    std::int64_t pointsRead_ = 0;
    bool ended_ = false;
};

}  // namespace zul

#endif /* ZUL_FILE_HPP */
