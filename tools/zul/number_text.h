// Numbers as the tool prints them: a step as the decimal the user gave, coordinates to the
// step's precision.
#pragma once

#include <string>

namespace zultool {

// The shortest decimal that reads back as the same float, without an exponent: 0.01 for the
// float nearest 0.01, 0.0005 for the one nearest 0.0005.
std::string stepText(float step);

// Decimals that show a multiple of `step` in full: 2 for 0.01, 4 for 0.0005, 0 for 1 or more.
int decimalsOfStep(float step);

}  // namespace zultool
