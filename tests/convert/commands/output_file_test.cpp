// The output file of the commands: writers of one path at once, threads of one process included,
// each publish their own whole file under a name of their own, and leave nothing behind.
#include "commands/output_file.h"

#include <algorithm>
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

TEST_F(OutputFileTest, AByteOutputReplacesALongerFileWhole) {
    const std::string target = path("long.bin");
    writeBytes(target, std::string(3000000, 'x'));
    zulformats::ByteOutput out(target);
    out.text("short");
    out.close();
    EXPECT_EQ(readFile(target), "short");
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
