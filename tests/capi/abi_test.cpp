// The edge of the DLL, as programs were built against it: names, sizes and offsets.

#include "lumlog.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cstddef>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "import_hook.h"

namespace
{
/// The lines of abi.txt, by their first word.
std::multimap<std::string, std::string> abi()
{
    std::multimap<std::string, std::string> entries;
    std::ifstream file(LUMLOG_ABI_FILE);
    if (!file)
        file.open("abi.txt"); // on a machine without the sources, where it lies beside the program
    for (std::string kind, rest; file >> kind && std::getline(file >> std::ws, rest);)
        entries.emplace(kind, rest);
    return entries;
}

std::vector<std::string> entries_of(const std::string& kind)
{
    std::vector<std::string> entries;
    const auto all = abi();
    const auto [begin, end] = all.equal_range(kind);
    for (auto entry = begin; entry != end; ++entry)
        entries.push_back(entry->second.substr(0, entry->second.find_last_not_of("\r") + 1));
    return entries;
}

#define LUM_TEST_FIELD(structure, field) #structure "." #field " " + std::to_string(offsetof(structure, field))
} // namespace

// Fields may be added behind these: a structure begins with its size. None may move.
TEST(Abi, EveryFieldIsWhereProgramsExpectIt)
{
    const std::vector<std::string> fields = {
        LUM_TEST_FIELD(lum_site, size),           LUM_TEST_FIELD(lum_site, line),
        LUM_TEST_FIELD(lum_site, file),           LUM_TEST_FIELD(lum_site, function),
        LUM_TEST_FIELD(lum_gate, size),           LUM_TEST_FIELD(lum_gate, package_count),
        LUM_TEST_FIELD(lum_gate, block),          LUM_TEST_FIELD(lum_gate, seen),
        LUM_TEST_FIELD(lum_gate, local),          LUM_TEST_FIELD(lum_gate, generation),
        LUM_TEST_FIELD(lum_gate, levels),         LUM_TEST_FIELD(lum_gate, stamp),
        LUM_TEST_FIELD(lum_message, size),        LUM_TEST_FIELD(lum_message, level),
        LUM_TEST_FIELD(lum_message, package),     LUM_TEST_FIELD(lum_message, line),
        LUM_TEST_FIELD(lum_message, file),        LUM_TEST_FIELD(lum_message, function),
        LUM_TEST_FIELD(lum_message, headline),    LUM_TEST_FIELD(lum_message, text),
        LUM_TEST_FIELD(lum_message, length),      LUM_TEST_FIELD(lum_message, headline_length),
        LUM_TEST_FIELD(lum_message, bare),        LUM_TEST_FIELD(lum_message, thread),
        LUM_TEST_FIELD(lum_message, year),        LUM_TEST_FIELD(lum_message, month),
        LUM_TEST_FIELD(lum_message, day),         LUM_TEST_FIELD(lum_message, hour),
        LUM_TEST_FIELD(lum_message, minute),      LUM_TEST_FIELD(lum_message, second),
        LUM_TEST_FIELD(lum_message, millisecond), LUM_TEST_FIELD(lum_message, zone_minutes),
    };
    EXPECT_EQ(entries_of("field"), fields);
}

TEST(Abi, NoStructureIsSmallerThanItWas)
{
    const std::map<std::string, std::size_t> sizes = {
        {"lum_site", sizeof(lum_site)},
        {"lum_gate", sizeof(lum_gate)},
        {"lum_message", sizeof(lum_message)},
    };
    const std::vector<std::string> known = entries_of("size");
    ASSERT_EQ(known.size(), sizes.size());
    for (const std::string& entry : known)
    {
        const std::string name = entry.substr(0, entry.find(' '));
        ASSERT_EQ(sizes.count(name), 1u) << name;
        EXPECT_GE(sizes.at(name), std::stoul(entry.substr(entry.find(' ')))) << name;
    }
}

TEST(Abi, EveryFunctionIsThereUnderItsName)
{
    const std::vector<std::string> names = entries_of("name");
    EXPECT_GE(names.size(), 89u);
    for (const std::string& name : names)
        EXPECT_NE(::GetProcAddress(library_module(), name.c_str()), nullptr) << name;
}

TEST(Abi, ConstantsHaveTheValuesThatProgramsWereBuiltWith)
{
    const std::vector<std::string> constants = {
        "LUM_OK " + std::to_string(LUM_OK),
        "LUM_FAILED " + std::to_string(LUM_FAILED),
        "LUM_SEVERE " + std::to_string(LUM_SEVERE),
        "LUM_CRITICAL " + std::to_string(LUM_CRITICAL),
        "LUM_ERROR " + std::to_string(LUM_ERROR),
        "LUM_WARNING " + std::to_string(LUM_WARNING),
        "LUM_NOTICE " + std::to_string(LUM_NOTICE),
        "LUM_INFO " + std::to_string(LUM_INFO),
        "LUM_DEBUG " + std::to_string(LUM_DEBUG),
        "LUM_PACKAGE_COUNT " + std::to_string(LUM_PACKAGE_COUNT),
        "LUM_STAMP_OFFSET " + std::to_string(LUM_STAMP_OFFSET),
        "LUM_PACKAGE_RANGE " + std::to_string(LUM_PACKAGE_RANGE),
        "LUM_TO_STDERR " + std::to_string(LUM_TO_STDERR),
        "LUM_TO_EVENT_LOG " + std::to_string(LUM_TO_EVENT_LOG),
        "LUM_TO_FILE " + std::to_string(LUM_TO_FILE),
        "LUM_NO_BANNERS " + std::to_string(LUM_NO_BANNERS),
        "LUM_SESSION_CRASHES " + std::to_string(LUM_SESSION_CRASHES),
        "LUM_SESSION_SYSTEM " + std::to_string(LUM_SESSION_SYSTEM),
        "LUM_EVENT_STATE " + std::to_string(LUM_EVENT_STATE),
        "LUM_EVENT_STATE_OF_TYPE " + std::to_string(LUM_EVENT_STATE_OF_TYPE),
        "LUM_EVENT_HIDDEN " + std::to_string(LUM_EVENT_HIDDEN),
        "LUM_EVENT_CONFIGURATION " + std::to_string(LUM_EVENT_CONFIGURATION),
        "LUM_EVENT_COUNTED " + std::to_string(LUM_EVENT_COUNTED),
        "LUM_EVENT_BEGIN " + std::to_string(LUM_EVENT_BEGIN),
        "LUM_EVENT_END " + std::to_string(LUM_EVENT_END),
    };
    EXPECT_EQ(entries_of("constant"), constants);
}
