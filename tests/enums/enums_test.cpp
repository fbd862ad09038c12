// Real enumerations: the legend learns those of the toolchain's Windows headers from their text, and knows
// each name and value as the compiler does.

#include <gtest/gtest.h>

#include <algorithm>

#include "Kor_Legend.h"
#include "enumerations.h"

namespace
{
std::string lower_case(std::string text)
{
    std::transform(
        text.begin(), text.end(), text.begin(),
        [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; });
    return text;
}

/// The first name with that value.
std::string name_of(const Enumeration& enumeration, int value)
{
    const auto found = std::find_if(
        enumeration.enumerators.begin(), enumeration.enumerators.end(),
        [value](const Enumerator& enumerator) { return enumerator.value == value; });
    return found->name;
}
} // namespace

TEST(WindowsEnumerations, NamesAndValuesAreThoseOfTheCompiler)
{
    const auto legend = Kor_Legend::GetInstance();
    std::size_t enumerators = 0;
    for (const Enumeration& enumeration : enumerations())
    {
        ASSERT_TRUE(legend->Register(enumeration.declaration)) << enumeration.declaration;
        for (const Enumerator& enumerator : enumeration.enumerators)
        {
            const Kor_EnumResult exact = legend->ToEnum(enumeration.name, enumerator.name, false);
            EXPECT_TRUE(exact.found) << enumeration.name << ' ' << enumerator.name;
            EXPECT_EQ(exact.value, enumerator.value) << enumeration.name << ' ' << enumerator.name;
            const Kor_EnumResult any_case = legend->ToEnum(enumeration.name, lower_case(enumerator.name), true);
            EXPECT_EQ(any_case.value, enumerator.value) << enumeration.name << ' ' << enumerator.name;
            EXPECT_EQ(
                legend->ToString(std::string("enum ") + enumeration.name, enumerator.value),
                name_of(enumeration, enumerator.value));
            ++enumerators;
        }
    }
    // Far fewer would mean that the headers were not read.
    EXPECT_GE(enumerations().size(), 500u);
    EXPECT_GE(enumerators, 3500u);
    RecordProperty("enumerations", static_cast<int>(enumerations().size()));
    RecordProperty("enumerators", static_cast<int>(enumerators));
}
