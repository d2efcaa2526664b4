// Wide paths: their UTF-8 form (the name the file gets), and a wide path that is none.
#include "file/wide_path.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/file_stream.h"

namespace {

TEST(Utf8Path, EncodesEveryLengthAndRefusesWhatIsNoCharacter) {
    const struct {
        const wchar_t* wide;
        const char* utf8;
    } cases[] = {
        {L"", ""},
        {L"scan.zul", "scan.zul"},
        {L"\u00e9t\u00e9", "\xC3\xA9t\xC3\xA9"},        // two bytes
        {L"\u70b9\u4e91", "\xE7\x82\xB9\xE4\xBA\x91"},  // three bytes
        {L"\U0001F600", "\xF0\x9F\x98\x80"},            // four bytes
        {L"\u007f\u0080\u07ff\u0800\uffff", "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"},
        {L"a\U0010FFFF", "a\xF4\x8F\xBF\xBF"},
    };
    for (const auto& c : cases) EXPECT_EQ(zullib::utf8Path(c.wide), c.utf8);
    const wchar_t loneSurrogate[] = {L'a', static_cast<wchar_t>(0xD800), L'b', 0};
    const wchar_t beyondUnicode[] = {L'a', static_cast<wchar_t>(0x110000), 0};
    EXPECT_EQ(zullib::utf8Path(loneSurrogate), "");
    EXPECT_EQ(zullib::utf8Path(beyondUnicode), "");
}

using WidePathTest = FileTest;

// A wide path that is no character sequence names no file, for writing as for reading.
TEST_F(WidePathTest, InvalidWidePathCannotBeOpened) {
    const zul_DataType dataType = makeDataType(0.01f, zul_COLOR_NONE, 0, false);
    const std::wstring name = folder.wstring() + L"/a" + static_cast<wchar_t>(0xDC00) + L".zul";
    zul_out_Context writer = nullptr;
    EXPECT_EQ(zul_out_open_w(&writer, name.c_str(), &dataType), zul_STATUS_WRITE_ERROR);
    EXPECT_EQ(zul_out_close(&writer), zul_STATUS_OK);
    zul_in_Context reader = nullptr;
    zul_DataType readType;
    EXPECT_EQ(zul_in_open_w(&reader, &readType, name.c_str()), zul_STATUS_READ_ERROR);
    zul_in_close(&reader);
    EXPECT_TRUE(std::filesystem::is_empty(folder));
}

}  // namespace
