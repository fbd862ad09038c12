// The dictionary of enumerations.

#include "Kor_Legend.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <iterator>
#include <random>
#include <stdexcept>
#include <type_traits>

#include "Kor_LogFile.h"
#include "bounded.h"
#include "import_hook.h"
#include "log_directory.h"

namespace
{
KOR_IMPORT(malloc);

static_assert(offsetof(Kor_EnumResult, found) == 0 && offsetof(Kor_EnumResult, value) == 4);
static_assert(std::is_copy_assignable_v<Kor_EnumResult> && std::is_nothrow_move_assignable_v<Kor_EnumResult>);

Kor_Legend& legend() { return *Kor_Legend::GetInstance(); }

/// "name=value" for what was found, else "none".
std::string found(const std::string& family, const std::string& name, bool ignore_case = false)
{
    const Kor_EnumResult result = legend().ToEnum(family, name, ignore_case);
    if (!result.found)
        return result.value == INT_MIN ? "none" : "none, with a value";
    return name + '=' + std::to_string(result.value);
}
} // namespace

// Registration -------------------------------------------------------------------
TEST(Legend, ADeclarationGivesNamesAndValues)
{
    EXPECT_TRUE(legend().Register("enum Color { RED, GREEN = 5, BLUE };"));
    EXPECT_EQ(found("Color", "RED"), "RED=0");
    EXPECT_EQ(found("Color", "GREEN"), "GREEN=5");
    EXPECT_EQ(found("Color", "BLUE"), "BLUE=6");
    EXPECT_EQ(legend().ToString("enum Color", 0), "RED");
    EXPECT_EQ(legend().ToString("enum Color", 5), "GREEN");
    EXPECT_EQ(legend().ToString("enum Color", 6), "BLUE");
}

TEST(Legend, AScopedEnumerationIsRegisteredUnderItsName)
{
    EXPECT_TRUE(legend().Register("enum class Mode { A, B };"));
    EXPECT_EQ(found("Mode", "A"), "A=0");
    EXPECT_EQ(found("Mode", "B"), "B=1");
    EXPECT_EQ(legend().ToString("enum Mode", 1), "B");
}

TEST(Legend, AnEmptyEntryIsPassedOverAndCountsNothing)
{
    EXPECT_TRUE(legend().Register("enum E { X = 3, , Y };"));
    EXPECT_EQ(found("E", "X"), "X=3");
    EXPECT_EQ(found("E", "Y"), "Y=4");
    EXPECT_EQ(legend().ToString("enum E", 5), "");

    EXPECT_TRUE(legend().Register("enum F {,,A,\t ,B,};"));
    EXPECT_EQ(found("F", "A"), "A=0");
    EXPECT_EQ(found("F", "B"), "B=1");
}

TEST(Legend, ANameOfBlanksStaysAsItIs)
{
    EXPECT_TRUE(legend().Register("enum E {A,  =7,=8};"));
    EXPECT_EQ(found("E", "  "), "  =7");
    EXPECT_EQ(found("E", ""), "=8");
    EXPECT_EQ(legend().ToString("enum E", 7), "  ");
}

TEST(Legend, RegisteringAFamilyAgainChangesNothing)
{
    EXPECT_TRUE(legend().Register("enum Color { RED, GREEN };"));
    EXPECT_FALSE(legend().Register("enum Color { RED = 7, BLUE };"));
    EXPECT_FALSE(legend().Register("enum class Color { BLUE };"));
    EXPECT_EQ(found("Color", "RED"), "RED=0");
    EXPECT_EQ(found("Color", "BLUE"), "none");
}

TEST(Legend, ATextWithoutEnumIsRefused)
{
    EXPECT_FALSE(legend().Register(""));
    EXPECT_FALSE(legend().Register("struct Color { RED };"));
}

TEST(Legend, TheFirstOfTwoEqualEntriesCounts)
{
    EXPECT_TRUE(legend().Register("enum E { A = 1, B = 1, A = 2, a = 3 };"));
    EXPECT_EQ(legend().ToString("enum E", 1), "A");
    EXPECT_EQ(found("E", "A"), "A=1");
    EXPECT_EQ(found("E", "B"), "B=1");
    EXPECT_EQ(found("E", "a"), "a=3");
    EXPECT_EQ(found("E", "a", true), "a=1");
    EXPECT_EQ(legend().ToString("enum E", 2), "A");
}

TEST(Legend, AValueWithoutANumberThrowsAndKeepsTheEntriesInFront)
{
    try
    {
        legend().Register("enum E { A, B, C = x, D };");
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const std::invalid_argument& error)
    {
        EXPECT_STREQ(error.what(), "invalid stoi argument");
    }
    EXPECT_EQ(found("E", "B"), "B=1");
    EXPECT_EQ(found("E", "C"), "none");
    EXPECT_EQ(found("E", "D"), "none");
    EXPECT_FALSE(legend().Register("enum E { A };")); // it is there
}

TEST(Legend, AValueBeyondAnIntThrowsAndKeepsTheEntriesInFront)
{
    try
    {
        legend().Register("enum E { A, B = 2147483648 };");
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const std::out_of_range& error)
    {
        EXPECT_STREQ(error.what(), "stoi argument out of range");
    }
    EXPECT_EQ(found("E", "A"), "A=0");
    EXPECT_EQ(found("E", "B"), "none");
}

TEST(Legend, ValuesGoToBothEndsOfInt)
{
    EXPECT_TRUE(legend().Register("enum E { A = -2147483648, B, C = 2147483647, D };"));
    EXPECT_EQ(found("E", "A"), "A=-2147483648");
    EXPECT_EQ(found("E", "B"), "B=-2147483647");
    EXPECT_EQ(found("E", "C"), "C=2147483647");
    EXPECT_EQ(found("E", "D"), "D=-2147483648"); // found, though it is the value of a failed search
    EXPECT_EQ(legend().ToString("enum E", INT_MIN), "A");
}

TEST(Legend, OddDeclarationsAreTakenAsTheyStand)
{
    EXPECT_TRUE(legend().Register("enum"));
    EXPECT_FALSE(legend().Register("enum { A }")); // another without a name
    EXPECT_TRUE(legend().Register("enum Empty {};"));
    EXPECT_EQ(legend().ToString("enum Empty", 0), "");
    EXPECT_TRUE(legend().Register("enum Lines {\nA,\n B\n};"));
    EXPECT_EQ(found("Lines", "\nA"), "\nA=0");
    EXPECT_EQ(found("Lines", "\n B\n"), "\n B\n=1");
}

TEST(Legend, AnyTextIsRegisteredOrRefusedOrThrowsOneOfTheTwoExceptions)
{
    const std::string pieces[] = {
        "enum",
        "class",
        " ",
        "{",
        "}",
        ";",
        ",",
        "=",
        "A",
        "b",
        "5",
        "-",
        "2147483648",
        "\n",
        "\t",
        "::",
        "enum class ",
        "enum X",
        std::string(1, '\0')};
    std::mt19937 random(11);
    int registered = 0, refused = 0, no_number = 0, out_of_range = 0;
    for (int i = 0; i < 20000; ++i)
    {
        std::string text = random() % 3 != 0 ? "enum E" + std::to_string(i) + " {" : "";
        for (unsigned count = random() % 12; count > 0; --count)
            text += pieces[random() % std::size(pieces)];
        try
        {
            ++(legend().Register(text) ? registered : refused);
        }
        catch (const std::invalid_argument&)
        {
            ++no_number;
        }
        catch (const std::out_of_range&)
        {
            ++out_of_range;
        }
        legend().ToString(text, 0);
        legend().ToEnum(text, text, true);
    }
    EXPECT_GT(registered, 1000);
    EXPECT_GT(refused, 1000);
    EXPECT_GT(no_number, 100);
    EXPECT_GT(out_of_range, 100);
}

TEST(Legend, AMegabyteOfCommasTakesNoMoreMemoryThanItsText)
{
    std::string declaration = "enum Commas {" + std::string(1 << 20, ',') + "};";
    Kor_Legend& instance = legend();
    std::size_t taken = 0;
    Hook<mallocImport>* mallocs = nullptr;
    Hook<mallocImport> hook(
        [&](std::size_t size)
        {
            taken += size;
            return mallocs->original(size);
        });
    mallocs = &hook;
    ASSERT_TRUE(hook.installed());
    EXPECT_TRUE(instance.Register(std::move(declaration)));
    EXPECT_LT(taken, 1u << 20);
    EXPECT_EQ(found("Commas", ""), "none");
}

TEST(Legend, AHundredThousandEntriesAreAllFound)
{
    std::string declaration = "enum Large { ";
    for (int i = 0; i < 100000; ++i)
        declaration += "ENTRY_" + std::to_string(i) + ", ";
    EXPECT_TRUE(legend().Register(declaration + "};"));
    for (int i = 0; i < 100000; i += 997)
    {
        EXPECT_EQ(found("Large", "ENTRY_" + std::to_string(i)), "ENTRY_" + std::to_string(i) + '=' + std::to_string(i));
        EXPECT_EQ(legend().ToString("enum Large", i), "ENTRY_" + std::to_string(i));
    }
}

TEST(Legend, ADeclarationThatIsReadOtherwiseThanByACompilerIsRegisteredWithALine)
{
    struct Row
    {
        const char* declaration;
        const char* family;
        const char* name; ///< the first that is none
    };
    const Row rows[] = {
        {"enum class R1 : int {A, B}", "R1", ": int {A"},
        {"enum R2 : int {A}", "R2", ": int {A"},
        {"enum  R3 {A}", "", ""},
        {"enum struct R4 {A}", "struct", "R4 {A"},
        {"enum R5\n{A}", "R5", "\n{A"},
        {"typedef enum R6 {A} R6", "R6", "enum R6 {A} R6"},
        {"enum Ns::R7 {A}", "Ns::R7", "Ns::R7"},
        {"enum R8 {A, /* last */ B, C-}", "R8", "/* last */ B"},
    };
    const LogDirectory directory;
    KorGLog.Open("test.log", "viewer", false);
    std::size_t read = 0;
    for (const Row& row : rows)
    {
        EXPECT_TRUE(legend().Register(row.declaration)) << row.declaration;
        const std::string text = directory.text().substr(read);
        read += text.size();
        EXPECT_NE(text.find(" WARNING (106) viewer ("), std::string::npos) << text;
        EXPECT_EQ(
            text.substr(std::min(text.find(" -> "), text.size())),
            std::string(" -> Enumeration [") + row.family + "] is registered with the name [" + row.name +
                "], which is none. A declaration begins with \"enum\" or \"enum class\" and one blank, has no base "
                "type, "
                "and stands on one line.\n");
    }
}

TEST(Legend, ADeclarationThatIsReadAsByACompilerIsRegisteredWithoutALine)
{
    const LogDirectory directory;
    KorGLog.Open("test.log", "viewer", false);
    for (const char* declaration : {"enum S1 {}", "enum S2{A}", "enum class S3 { A = 3, , _b, };", "enum\tS4 {A}"})
        EXPECT_TRUE(legend().Register(declaration)) << declaration;
    EXPECT_EQ(directory.text(), "");
}

TEST(Legend, WithoutMemoryADeclarationIsRefusedWithALine)
{
    const LogDirectory directory;
    KorGLog.Open("test.log", "viewer", false);
    const std::string declaration = "enum Large { " + std::string(100000, 'x') + " };";
    {
        Hook<mallocImport>* mallocs = nullptr;
        Hook<mallocImport> hook([&](std::size_t size) { return size > 90000 ? nullptr : mallocs->original(size); });
        mallocs = &hook;
        ASSERT_TRUE(hook.installed());
        Kor_Legend& instance = legend();
        EXPECT_FALSE(instance.Register(declaration));
    }
    const std::vector<std::string> lines = directory.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(
        lines[0].substr(lines[0].find(" -> ")),
        " -> No memory to register an enumeration: " + declaration.substr(0, 200));
    EXPECT_EQ(lines[0].rfind("<time> ERROR   (106) viewer (<pid>,<tid>)  Kor_Legend(", 0), 0u);
}

TEST(Legend, ADeclarationThatRanOutOfMemoryAnywhereCanBeRegisteredLater)
{
    const LogDirectory directory;
    KorGLog.Open("test.log", "viewer", false);
    Kor_Legend& instance = legend();
    const DWORD self = ::GetCurrentThreadId();
    bool registered = false;
    int refused = 0;
    for (int failing = 1; !registered; ++failing)
    {
        ASSERT_LT(failing, 200);
        const std::string name = "Family_" + std::to_string(failing);
        const std::string declaration = "enum " + name + " { A_LONG_ENUMERATOR_NAME, B_LONG_ENUMERATOR_NAME };";
        {
            int allocations = 0;
            Hook<mallocImport>* mallocs = nullptr;
            Hook<mallocImport> hook(
                [&](std::size_t size) {
                    return ::GetCurrentThreadId() == self && ++allocations == failing ? nullptr
                                                                                      : mallocs->original(size);
                });
            mallocs = &hook;
            ASSERT_TRUE(hook.installed());
            registered = instance.Register(declaration) && allocations < failing; // got by without it
        }
        if (!registered)
            refused += instance.Register(declaration) ? 1 : 0;
        EXPECT_EQ(found(name, "B_LONG_ENUMERATOR_NAME"), "B_LONG_ENUMERATOR_NAME=1") << failing;
        EXPECT_EQ(instance.ToString("enum " + name, 0), "A_LONG_ENUMERATOR_NAME") << failing;
    }
    EXPECT_GE(refused, 10);
}

TEST(Legend, TheMapsHaveRoomForAllEntriesFromTheStart)
{
    std::string declaration = "enum Table { A0"; // 1,010 entries: 1,009 buckets would be one too few
    for (int i = 1; i < 1010; ++i)
        declaration += ",A" + std::to_string(i);
    Kor_Legend& instance = legend();
    int tables = 0;
    int others = 0;
    Hook<mallocImport>* mallocs = nullptr;
    Hook<mallocImport> hook(
        [&](std::size_t size)
        {
            tables += size >= 2003 * sizeof(void*) ? 1 : 0;
            others += size > 500 && size < 2003 * sizeof(void*) ? 1 : 0;
            return mallocs->original(size);
        });
    mallocs = &hook;
    ASSERT_TRUE(hook.installed());
    EXPECT_TRUE(instance.Register(std::move(declaration)));
    EXPECT_EQ(tables, 3);
    EXPECT_EQ(others, 0);
}

// Looking up ---------------------------------------------------------------------
TEST(Legend, NamesAreFoundInAnyCaseOnRequestOnly)
{
    legend().Register("enum Color { Red, GREEN_2 };");
    EXPECT_EQ(found("Color", "Red"), "Red=0");
    EXPECT_EQ(found("Color", "RED"), "none");
    EXPECT_EQ(found("Color", "red"), "none");
    EXPECT_EQ(found("Color", "RED", true), "RED=0");
    EXPECT_EQ(found("Color", "red", true), "red=0");
    EXPECT_EQ(found("Color", "green_2", true), "green_2=1");
    EXPECT_EQ(found("Color", "green", true), "none");
}

TEST(Legend, WhatIsNotThereIsNotFound)
{
    legend().Register("enum Color { RED };");
    legend().Register("enum { NAMELESS };");
    EXPECT_EQ(found("Color", "GREEN"), "none");
    EXPECT_EQ(found("Color", ""), "none");
    EXPECT_EQ(found("color", "RED"), "none");
    EXPECT_EQ(found("enum Color", "RED"), "none");
    EXPECT_EQ(found("", "NAMELESS"), "none"); // no family without a name is looked at
    EXPECT_EQ(found("Colour", "RED", true), "none");
}

TEST(Legend, AValueThatTheFamilyDoesNotHaveIsAnEmptyText)
{
    legend().Register("enum Color { RED, GREEN = 5, BLUE };");
    EXPECT_EQ(legend().ToString("enum Color", 7), "");
    EXPECT_EQ(legend().ToString("enum Color", 7), "");
    EXPECT_EQ(legend().ToString("enum Color", -1), "");
}

TEST(Legend, WithoutAFamilyTheValueIsWrittenInDigits)
{
    legend().Register("enum Color { RED, GREEN, BLUE };");
    EXPECT_EQ(legend().ToString("enum Colour", 7), "7");
    EXPECT_EQ(legend().ToString("enum Colour", -7), "-7");
    EXPECT_EQ(legend().ToString("enum Colour", INT_MIN), "-2147483648");
    EXPECT_EQ(legend().ToString("Color", 1), "1"); // no "enum" in it
    EXPECT_EQ(legend().ToString("", 1), "1");
    EXPECT_EQ(legend().ToString("enum", 1), "1");
    EXPECT_EQ(legend().ToString("enum ", 1), "1");
}

TEST(Legend, TheFamilysNameFollowsTheFirstScopeOrTheKeyword)
{
    legend().Register("enum Color { RED };");
    legend().Register("enum B::C { X };");
    EXPECT_EQ(legend().ToString("enum Color", 0), "RED");
    EXPECT_EQ(legend().ToString("enum Ns::Color", 0), "RED");
    EXPECT_EQ(legend().ToString("enum A::B::C", 0), "X");
    EXPECT_EQ(legend().ToString("enum A::B::Color", 0), "0");
    EXPECT_EQ(legend().ToString("12345Color and enum", 0), "0");
    EXPECT_EQ(legend().ToString("my_enum::Color", 0), "RED"); // the keyword may be anywhere in front
    EXPECT_EQ(legend().ToString(std::string("enum Color"), 0), "RED");
}

TEST(Legend, ANullTypeNameIsAnEmptyOne)
{
    const char* volatile none = nullptr;
    EXPECT_EQ(legend().ToString(none, 7), "7");
}

TEST(Legend, WithoutMemoryForALongNameTheValueIsWrittenInDigits)
{
    Kor_Legend& instance = legend();
    instance.Register("enum E { A, " + std::string(100, 'n') + " };");
    std::string type = "enum E";
    Hook<mallocImport>* mallocs = nullptr;
    Hook<mallocImport> hook([&](std::size_t size) { return size == 101 ? nullptr : mallocs->original(size); });
    mallocs = &hook;
    ASSERT_TRUE(hook.installed());
    EXPECT_EQ(instance.ToString(std::move(type), 1), "1");
}

TEST(Legend, TextsWithNulsAreJustTexts)
{
    const std::string name("A\0B", 3);
    EXPECT_TRUE(legend().Register("enum E { " + name + " };"));
    EXPECT_EQ(found("E", name), name + "=0");
    EXPECT_EQ(found("E", "A"), "none");
}

// Fixed words --------------------------------------------------------------------
TEST(LegendWords, BooleansHaveThreePairsOfWords)
{
    EXPECT_STREQ(Kor_Legend::ToString(false, Kor_Legend::FORMAT_TRUE), "false");
    EXPECT_STREQ(Kor_Legend::ToString(true, Kor_Legend::FORMAT_TRUE), "true");
    EXPECT_STREQ(Kor_Legend::ToString(false, Kor_Legend::FORMAT_ENABLED), "disabled");
    EXPECT_STREQ(Kor_Legend::ToString(true, Kor_Legend::FORMAT_ENABLED), "enabled");
    EXPECT_STREQ(Kor_Legend::ToString(false, Kor_Legend::FORMAT_ON), "off");
    EXPECT_STREQ(Kor_Legend::ToString(true, Kor_Legend::FORMAT_ON), "on");
    EXPECT_STREQ(Kor_Legend::ToString(true, 2), "on");
}

TEST(LegendWords, AFormatThatThereIsNotCountsAsTheFirst)
{
    EXPECT_STREQ(Kor_Legend::ToString(true, 9), "true");
    EXPECT_STREQ(Kor_Legend::ToString(false, 3), "false");
    EXPECT_STREQ(Kor_Legend::ToString(true, -1), "true");
    EXPECT_STREQ(Kor_Legend::ToString(true, INT_MAX), "true");
    EXPECT_STREQ(Kor_Legend::ToString(true, static_cast<Kor_Legend::OutputFormat>(UINT_MAX)), "true");
}

TEST(LegendWords, OnlyOneIsTrue)
{
    EXPECT_STREQ(Kor_Legend::T_BoolToString(1), "TRUE");
    for (const int v : {0, 2, -1, INT_MAX, INT_MIN})
        EXPECT_STREQ(Kor_Legend::T_BoolToString(v), "FALSE");
}

TEST(LegendWords, OnlyZeroIsSuccess)
{
    EXPECT_STREQ(Kor_Legend::T_StatusToString(0), "SUCCESS");
    for (const int v : {1, -1, INT_MAX, INT_MIN})
        EXPECT_STREQ(Kor_Legend::T_StatusToString(v), "FAILURE");
}

TEST(LegendWords, SizesComeFromTheTable)
{
    EXPECT_EQ(Kor_Legend::GetNextPrimeInPrimesArr(114), 131);
    EXPECT_EQ(Kor_Legend::GetNextPrimeInPrimesArr(10007), 10007);
    EXPECT_EQ(Kor_Legend::GetNextPrimeInPrimesArr(10008), 20011);
}

// The instance -------------------------------------------------------------------
TEST(LegendInstance, ManyThreadsThatAskAtOnceGetTheSame)
{
    std::atomic<int> ready{0};
    std::atomic<bool> go{false};
    std::shared_ptr<Kor_Legend> instances[8];
    run_on_threads(
        8,
        [&](int number)
        {
            if (++ready == 8)
                go = true;
            while (!go)
                ::SwitchToThread();
            instances[number] = Kor_Legend::GetInstance();
        });
    for (const auto& instance : instances)
        EXPECT_EQ(instance, instances[0]);
    ASSERT_NE(instances[0], nullptr);
    EXPECT_GE(instances[0].use_count(), 9); // the process holds one
}

TEST(LegendInstance, ASecondThreadWaitsUntilTheFirstHasMadeIt)
{
    const NamedEvent making(unique_name("making"));
    std::shared_ptr<Kor_Legend> first, second;
    std::atomic<int> made{0};
    Hook<mallocImport>* mallocs = nullptr;
    Hook<mallocImport> hook(
        [&](std::size_t size)
        {
            if (size == sizeof(Kor_Legend))
            {
                ++made;
                making.set();
                ::Sleep(50); // time for a thread that does not wait to make another
            }
            return mallocs->original(size);
        });
    mallocs = &hook;
    ASSERT_TRUE(hook.installed());
    BoundedThread maker([&] { first = Kor_Legend::GetInstance(); });
    ASSERT_TRUE(making.wait());
    on_another_thread([&] { second = Kor_Legend::GetInstance(); });
    maker.join();
    EXPECT_EQ(made, 1);
    EXPECT_EQ(first, second);
}

TEST(LegendInstance, ManyThreadsLookThingsUpAtOnce)
{
    legend().Register("enum Color { RED, GREEN = 5, BLUE };");
    std::atomic<int> wrong{0};
    run_on_threads(
        4,
        [&](int)
        {
            Kor_Legend& shared = legend();
            for (int i = 0; i < 20000; ++i)
            {
                // Values that it does not have among them: they, too, are only looked for.
                const std::string expected = i == 0 ? "RED" : i == 5 ? "GREEN" : i == 6 ? "BLUE" : "";
                if (shared.ToString("enum Color", i) != expected || shared.ToEnum("Color", "blue", true).value != 6)
                    ++wrong;
            }
        });
    EXPECT_EQ(wrong, 0);
}

TEST(LegendInstance, WithoutMemoryThereIsNoneAndTheNextCallMakesIt)
{
    {
        Hook<mallocImport>* mallocs = nullptr;
        Hook<mallocImport> hook([&](std::size_t size)
                                { return size == sizeof(Kor_Legend) ? nullptr : mallocs->original(size); });
        mallocs = &hook;
        ASSERT_TRUE(hook.installed());
        EXPECT_EQ(Kor_Legend::GetInstance(), nullptr);
    }
    EXPECT_NE(Kor_Legend::GetInstance(), nullptr);
}
