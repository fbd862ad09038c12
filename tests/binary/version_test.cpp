// The version resource, read as Windows' own file properties do.

#include <windows.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace
{
class VersionResource : public testing::Test
{
protected:
    void SetUp() override
    {
        DWORD unused = 0;
        const DWORD size = ::GetFileVersionInfoSizeA("LUMlog.dll", &unused);
        ASSERT_NE(size, 0u) << "LUMlog.dll carries no version resource";
        m_block.resize(size);
        ASSERT_TRUE(::GetFileVersionInfoA("LUMlog.dll", 0, size, m_block.data()));
    }

    std::string text(const char* name) const
    {
        void* value = nullptr;
        UINT length = 0;
        const std::string path = std::string("\\StringFileInfo\\040904B0\\") + name;
        if (!::VerQueryValueA(m_block.data(), path.c_str(), &value, &length))
            return "(absent)";
        return static_cast<const char*>(value);
    }

    std::vector<char> m_block;
};
} // namespace

TEST_F(VersionResource, HoldsTheNumbersOfThisRelease)
{
    void* value = nullptr;
    UINT length = 0;
    ASSERT_TRUE(::VerQueryValueA(m_block.data(), "\\", &value, &length));
    ASSERT_EQ(length, sizeof(VS_FIXEDFILEINFO));
    const auto& info = *static_cast<const VS_FIXEDFILEINFO*>(value);

    const DWORD high = (LUMLOG_VERSION_MAJOR << 16) | LUMLOG_VERSION_MINOR;
    const DWORD low = LUMLOG_VERSION_PATCH << 16;
    EXPECT_EQ(info.dwFileVersionMS, high);
    EXPECT_EQ(info.dwFileVersionLS, low);
    EXPECT_EQ(info.dwProductVersionMS, high);
    EXPECT_EQ(info.dwProductVersionLS, low);
    EXPECT_EQ(info.dwFileType, static_cast<DWORD>(VFT_DLL));
}

TEST_F(VersionResource, NamesTheFileAndItsVersion)
{
    EXPECT_EQ(text("FileVersion"), LUMLOG_VERSION);
    EXPECT_EQ(text("ProductVersion"), LUMLOG_VERSION);
    EXPECT_EQ(text("OriginalFilename"), "LUMlog.dll");
    EXPECT_EQ(text("ProductName"), "LUMlog");
    EXPECT_NE(text("FileDescription"), "(absent)");
    EXPECT_NE(text("FileDescription"), "");
}
