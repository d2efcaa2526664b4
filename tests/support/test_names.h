// Readable names for parameterised cases: the case's `name` text made into an identifier.
#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <string>

struct NameOfCase {
    template <typename Case>
    std::string operator()(const ::testing::TestParamInfo<Case>& info) const {
        std::string name;
        bool upper = true;
        for (const char* c = info.param.name; *c; ++c) {
            if (std::isalnum(static_cast<unsigned char>(*c))) {
                name +=
                    upper ? static_cast<char>(std::toupper(static_cast<unsigned char>(*c))) : *c;
                upper = false;
            } else {
                upper = true;
            }
        }
        return name;
    }
};
