// Reading a file in pieces of every size: copies (read) and views into the buffer (take) mixed,
// across the buffer's refills, give the file's bytes in order; a piece past the end is refused
// with the file's name and what was being read.
#include "formats/byte_input.h"

#include "formats/cloud.h"
#include "support/tool_support.h"

namespace {

class ByteInputPieces : public ToolTest {};

TEST_F(ByteInputPieces, CopiesAndViewsGiveTheBytesInOrder) {
    std::string bytes(3 * 1024 * 1024 + 123, '\0');
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 7 + i / 1000);
    writeFile(path("b.bin"), bytes);
    zulformats::ByteInput in(path("b.bin"));
    const size_t largest = in.largestTake();
    // Small and large, crossing the buffer's end; a view as large as the buffer allows.
    const size_t pieces[] = {34, 5, 1048000, 4096 * 34, largest, 1, 700000, 3};
    size_t at = 0;
    std::string piece;
    for (int round = 0; at < bytes.size(); ++round) {
        for (size_t k = 0; k < std::size(pieces) && at < bytes.size(); ++k) {
            const size_t n = std::min(pieces[k], bytes.size() - at);
            if ((k + round) % 2 == 0) {
                const unsigned char* view = in.take(n, "a piece");
                piece.assign(reinterpret_cast<const char*>(view), n);
            } else {
                piece.resize(n);
                in.read(piece.data(), n, "a piece");
            }
            ASSERT_EQ(piece, bytes.substr(at, n)) << "piece " << k << " at " << at;
            at += n;
            EXPECT_EQ(in.position(), at);
        }
    }
    try {
        in.take(1, "a last piece");
        FAIL() << "a piece past the end was given";
    } catch (const zulformats::FormatError& e) {
        EXPECT_NE(std::string(e.what()).find("b.bin: the file ends early, inside a last piece"),
                  std::string::npos)
            << e.what();
    }
    EXPECT_THROW(in.take(largest + 1, "too much"), zulformats::FormatError);
}

}  // namespace
