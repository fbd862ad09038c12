// texts.cpp - narrow texts, wide texts, views and paths in messages.

#include <filesystem>
#include <string>
#include <string_view>

#include "Kor_LogFile.h"

namespace
{
constexpr int PACKAGE_LOADER = 310;
} // namespace

int main()
{
    KorGLog.Open("texts.log", "texts");

    const std::string name = "front.png";
    KOR_LOG(KorGLog, KOR_LEVEL_WARNING, PACKAGE_LOADER, "cannot read %s", name.c_str());

    // A view has no terminator, so its length goes in front of it.
    const std::string_view stem = std::string_view(name).substr(0, 5);
    KOR_LOG(KorGLog, KOR_LEVEL_WARNING, PACKAGE_LOADER, "cannot read %.*s", static_cast<int>(stem.size()), stem.data());

    // Paths and most texts of Windows are wide.
    const std::filesystem::path path = L"D:\\\u65e5\u672c\\front.png";
    KOR_LOG(KorGLog, KOR_LEVEL_WARNING, PACKAGE_LOADER, "cannot read %ls", path.c_str());
    return 0;
}
