/*
 * zul.hpp: the C++ face of zul. Header-only, C++17, built on the C API of zul.h and nothing else.
 *
 *   zul::Writer w("scan.zul", zul::DataType{}.step(0.001f).color(zul_COLOR_RGB888));
 *   for (const zul_Point& p : points) w.write(p);
 *   w.close();                               // the destructor closes too, but cannot report
 *   zul::Reader r("scan.zul");
 *   for (const zul_Point& p : r) use(p);
 *
 * - zul::Encoder, zul::Decoder, zul::Writer and zul::Reader own one handle each and close it in
 *   their destructor. They move but do not copy; a moved-from object owns nothing, and any call
 *   on it but close and destruction throws zul::Error with zul_STATUS_INVALID_ARGUMENT.
 * - Every call that fails throws zul::Error, which carries the zul_Status. Destructors never
 *   throw. A failed allocation throws std::bad_alloc, as in the library.
 * - zul::DataType and zul::Header2 build the two records step by step; they convert to them.
 * - zul::encode and zul::decode turn a whole array of points into a stream in memory and back.
 * - zul::ChunkIndex, zul::decodeBulk and zul::encodeBulk (zul/bulk.hpp) list a stream's chunks,
 *   query them by box and decode or encode whole clouds on several threads (zul_bulk.h).
 *
 * The thread rule is the library's: one object is used by one thread at a time; a ChunkIndex may
 * be read by several.
 */
#ifndef ZUL_HPP
#define ZUL_HPP

#include "zul.h"
#include "zul/builders.hpp"
#include "zul/bulk.hpp"
#include "zul/codec.hpp"
#include "zul/error.hpp"
#include "zul/file.hpp"
#include "zul/memory.hpp"

#endif /* ZUL_HPP */
