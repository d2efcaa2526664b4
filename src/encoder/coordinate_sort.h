// Sorting a chunk's records by their three coordinate slots, fast. The slots are packed into one
// integer key whose order is the lexicographic order of the slots, and (key, index) pairs are
// sorted instead of whole records. Where no two records share a position, the sorted order is
// unique and a radix sort finds it (in chunks of a few thousand records or more). Where some
// do, their order among themselves is whatever the comparison sort makes of the input;
// std::sort over the pairs then makes exactly the moves it would make over the records (its
// steps depend on the outcomes of comparisons alone), so the chunk's bytes are those of a plain
// std::sort of the records.
#pragma once

#include <vector>

#include "entropy/quantized_point.h"

namespace zullib {

// Sorts by coordinates[0], then [1], then [2], compared as signed values. `scratch` is working
// memory, grown if needed and left holding nothing of use: the encoder lends its chunk buffer,
// whose last chunk is dead by then, so that no chunk allocates for its sort.
void sortByCoordinates(std::vector<zul_QuantizedPoint>& points,
                       std::vector<unsigned char>& scratch);
// The same with the records' working memory lent too: the sorted records are gathered into
// `spare`'s storage, and the two vectors trade storage, so that a caller that keeps `spare` from
// chunk to chunk allocates for no sort.
void sortByCoordinates(std::vector<zul_QuantizedPoint>& points, std::vector<unsigned char>& scratch,
                       std::vector<zul_QuantizedPoint>& spare);

}  // namespace zullib
