// The output file of the commands: writers of one path at once, threads of one process included,
// each publish their own whole file under a name of their own, and leave nothing behind.
#include "commands/output_file.h"

#include <algorithm>
#include <filesystem>
#include <thread>
#include <vector>

#include "formats/byte_output.h"
#include "support/tool_support.h"

namespace {

class OutputFileTest : public ToolTest {};

TEST_F(OutputFileTest, WritersOfOnePathAtOnceNeverShareATemporaryName) {
    const int writers = 8;
    const std::string target = path("one.txt");
    std::vector<std::string> temporaries(writers);
    std::vector<std::string> failures(writers);
    std::vector<std::thread> threads;
    for (int w = 0; w < writers; ++w) {
        threads.emplace_back([&, w] {
            try {
                zulconvert::OutputFile output(target, true);
                temporaries[static_cast<size_t>(w)] = output.temporaryPath();
                zulformats::ByteOutput out(output.temporaryPath());
                out.text(std::string(100000, static_cast<char>('a' + w)));
                out.close();
                output.commit();
            } catch (const std::exception& error) {
                failures[static_cast<size_t>(w)] = error.what();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (int w = 0; w < writers; ++w) EXPECT_EQ(failures[static_cast<size_t>(w)], "") << w;
    std::sort(temporaries.begin(), temporaries.end());
    EXPECT_EQ(std::unique(temporaries.begin(), temporaries.end()), temporaries.end());
    const std::string content = readFile(target);
    ASSERT_EQ(content.size(), 100000u);
    EXPECT_EQ(content, std::string(100000, content[0]));  // one writer's, whole
    EXPECT_EQ(folderContents(), std::vector<std::string>{"one.txt"});
}

// A ByteOutput's file holds its writes in order, whatever their sizes against its buffers (1 MiB,
// written by a thread of its own once one fills) and whether they are written in place, with a
// header rewritten at the end; a longer file at the path is replaced whole.
TEST_F(OutputFileTest, AByteOutputKeepsItsWritesInOrder) {
    const size_t kMiB = size_t{1} << 20;
    const size_t kInPlace = size_t{1} << 62;  // a size with this bit: writeInPlace
    const std::vector<std::vector<size_t>> cases = {
        {5},                              // one small write, no thread
        {kMiB - 1, 1, 1},                 // the buffer exactly full, then one more byte
        {3 * kMiB + 7},                   // one write larger than a buffer
        {100, 5 * kMiB, 100},             // small, large, small
        std::vector<size_t>(6000, 1500),  // small writes through more buffers than it has
        {kMiB / 2, kMiB / 2 + 1, 2 * kMiB, 9},
        {100, 7 | kInPlace, kMiB - 1, 2 * kMiB | kInPlace, 3 * kMiB, 0 | kInPlace, 5},
        {kMiB | kInPlace, 10}};
    for (size_t c = 0; c < cases.size(); ++c) {
        const std::string target = path("out" + std::to_string(c) + ".bin");
        writeBytes(target, std::string(12 * kMiB, 'x'));
        std::string expected;
        {
            zulformats::ByteOutput out(target);
            for (const size_t size : cases[c]) {
                const size_t n = size & ~kInPlace;
                std::string piece(n, '\0');
                for (size_t i = 0; i < n; ++i)
                    piece[i] = static_cast<char>('a' + (expected.size() + i) % 26);
                if (size & kInPlace)
                    out.writeInPlace(piece.data(), n);
                else
                    out.text(piece);
                expected += piece;
            }
            out.rewrite(0, "HEAD", 4);
            expected.replace(0, 4, "HEAD");
            out.close();
        }
        const std::string written = readFile(target);
        EXPECT_EQ(written.size(), expected.size()) << c;
        EXPECT_TRUE(written == expected) << c;
    }
}

TEST_F(OutputFileTest, AByteOutputThatCannotWriteSaysSoOnClose) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
    for (const size_t n : {size_t{10}, size_t{600000}, size_t{3} << 20}) {
        zulformats::ByteOutput out("/dev/full");
        for (int i = 0; i < 4; ++i) out.text(std::string(n, 'z'));
        try {
            out.close();
            ADD_FAILURE() << n << ": no error";
        } catch (const std::exception& e) {
            EXPECT_STREQ(e.what(), "/dev/full: writing the file failed (No space left on device)");
        }
    }
}

TEST_F(OutputFileTest, AFailureLeavesNothingAndNamesTheUsersFile) {
    const std::string target = path("gone/one.txt");
    try {
        zulconvert::OutputFile output(target, true);
        FAIL() << "a file in a missing folder";
    } catch (const zulformats::FormatError& error) {
        EXPECT_EQ(std::string(error.what()),
                  target + ": cannot create the file (No such file or directory)");
    }
    {
        zulconvert::OutputFile output(path("two.txt"));  // not committed
    }
    EXPECT_TRUE(folderContents().empty());
}

}  // namespace
