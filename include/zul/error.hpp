/* Part of zul.hpp: zul::Error, the exception every failing call of the C++ classes throws. */
#ifndef ZUL_ERROR_HPP
#define ZUL_ERROR_HPP

#include <stdexcept>
#include <string>

#include "zul_bulk.h"

namespace zul {

/* The name of a status as it is spelled in zul.h or zul_bulk.h, "zul_STATUS_CORRUPT_DATA" for
 * example. */
inline const char* statusName(zul_Status status) noexcept {
    // The bulk layer's own statuses lie outside the enumeration's names.
    if (status == zul_STATUS_OVER_BUDGET) return "zul_STATUS_OVER_BUDGET";
    if (status == zul_STATUS_OUT_OF_MEMORY) return "zul_STATUS_OUT_OF_MEMORY";
    switch (status) {
        case zul_STATUS_OK:
            return "zul_STATUS_OK";
        case zul_STATUS_END_OF_FILE:
            return "zul_STATUS_END_OF_FILE";
        case zul_STATUS_READ_ERROR:
            return "zul_STATUS_READ_ERROR";
        case zul_STATUS_TRUNCATED:
            return "zul_STATUS_TRUNCATED";
        case zul_STATUS_WRITE_ERROR:
            return "zul_STATUS_WRITE_ERROR";
        case zul_STATUS_BAD_SIGNATURE:
            return "zul_STATUS_BAD_SIGNATURE";
        case zul_STATUS_BAD_VERSION:
            return "zul_STATUS_BAD_VERSION";
        case zul_STATUS_CORRUPT_DATA:
            return "zul_STATUS_CORRUPT_DATA";
        case zul_STATUS_INVALID_ARGUMENT:
            return "zul_STATUS_INVALID_ARGUMENT";
        case zul_STATUS_INVALID_STATE:
            return "zul_STATUS_INVALID_STATE";
    }
    return "unknown zul_Status";
}

/* A call that failed. what() reads "<where>: <status name> (<number>)", where <where> is the C
 * function that failed, after the file's path for the file classes:
 * "scan.zul: zul_in_readNextPoint: zul_STATUS_TRUNCATED (3)". */
class Error : public std::runtime_error {
public:
    Error(zul_Status status, const std::string& where)
        : std::runtime_error(where + ": " + statusName(status) + " (" +
                             std::to_string(static_cast<int>(status)) + ")"),
          status_(status) {}

    zul_Status status() const noexcept { return status_; }

private:
    zul_Status status_;
};

namespace detail {

inline void check(zul_Status status, const char* call) {
    if (status != zul_STATUS_OK) throw Error(status, call);
}

inline void check(zul_Status status, const std::string& path, const char* call) {
    if (status != zul_STATUS_OK) throw Error(status, path + ": " + call);
}

/* A wide path for messages: ASCII as it is, anything else as '?'. */
inline std::string narrow(const std::wstring& path) {
    std::string name;
    for (wchar_t c : path) name += (c > 0 && c < 128) ? static_cast<char>(c) : '?';
    return name;
}

}  // namespace detail

}  // namespace zul

#endif /* ZUL_ERROR_HPP */
