// The spherical grid of normals: 128 latitude rows from the +z pole (row 0) to the -z pole
// (row 127), each cut into normalRowCells(row) longitude cells, 21,950 cells in all.
#pragma once

namespace zullib {

const int kNormalRows = 128;

// Cells of a latitude row, at most 256. The count follows a compressed angle, so the poles keep 24
// cells rather than 1. Both sides of the codec must agree on it exactly, so it is computed by one
// expression (sin and ceil in double) and looked up from a table built by that expression.
int normalRowCells(int row);

// The expression itself, for building the table and for checking it.
int computeNormalRowCells(int row);

}  // namespace zullib
