// The configuration as a flat table for tools.

#include <algorithm>
#include <cstring>
#include <iterator>

#include "Kor_LogConf.h"
#include "core/fixed_text.h"

using kor::core::copy_cut;

// LoggerTableEntry ----------------------------------------------------------------------------------
LoggerTableEntry::LoggerTableEntry() noexcept : flag(false) {} // NOLINT: tools fill the rest, see the header

LoggerTableEntry::LoggerTableEntry(int number, const char* text, int level, const char*) noexcept // NOLINT
    : flag(false), index(number), defaultLogLevel(level)
{
    SetName(text);
}

LoggerTableEntry& LoggerTableEntry::operator=(const LoggerTableEntry& other) noexcept
{
    index = other.index;
    std::memcpy(name, other.name, sizeof name);
    defaultLogLevel = other.defaultLogLevel;
    std::memcpy(rule, other.rule, sizeof rule);
    return *this;
}

int LoggerTableEntry::Index() const noexcept { return index; }

void LoggerTableEntry::SetIndex(int number) noexcept { index = number; }

const char* LoggerTableEntry::Name() const noexcept { return name; }

void LoggerTableEntry::SetName(const char* text) noexcept { copy_cut(name, text); }

int LoggerTableEntry::DefaultLogLevel() const noexcept { return defaultLogLevel; }

void LoggerTableEntry::SetDefaultLogLevel(int level) noexcept { defaultLogLevel = level; }

const char* LoggerTableEntry::GetRule() const noexcept { return rule; }

void LoggerTableEntry::SetRule(const char* text) noexcept { copy_cut(rule, text); }

void LoggerTableEntry::SetFlag() noexcept { flag = true; }

void LoggerTableEntry::ResetFlag() noexcept { flag = false; }

namespace
{
const LoggerTableEntry& entry_behind(const void* argument) noexcept
{
    return **static_cast<const LoggerTableEntry* const*>(argument);
}

/// first - second, which wraps where it does not fit.
int difference(std::int32_t first, std::int32_t second) noexcept
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(first) - static_cast<std::uint32_t>(second));
}
} // namespace

int LoggerTableEntry::CompareByIndex(const void* first, const void* second) noexcept
{
    return difference(entry_behind(first).index, entry_behind(second).index);
}

int LoggerTableEntry::CompareByLevel(const void* first, const void* second) noexcept
{
    return difference(entry_behind(first).defaultLogLevel, entry_behind(second).defaultLogLevel);
}

int LoggerTableEntry::CompareByName(const void* first, const void* second) noexcept
{
    const int order = std::strcmp(entry_behind(first).name, entry_behind(second).name); // by unsigned bytes
    return order < 0 ? -1 : static_cast<int>(order > 0);
}

// LoggerTable ---------------------------------------------------------------------------------------
LoggerTable::LoggerTable() noexcept : tableEntries(0), lastEntryIndex(-1), output(0) {}

LoggerTable::LoggerTable(const LoggerTable& other) noexcept { *this = other; }

LoggerTable& LoggerTable::operator=(const LoggerTable& other) noexcept
{
    std::copy(std::begin(other.entries), std::end(other.entries), entries);
    tableEntries = other.tableEntries;
    lastEntryIndex = other.lastEntryIndex;
    output = other.output;
    std::copy(std::begin(other.reserve), std::end(other.reserve), reserve);
    return *this;
}

void LoggerTable::AddEntry(int index, char* name, int defaultLogLevel, char* rule) noexcept
{
    if (tableEntries < 0 || tableEntries >= PACKAGE_COUNT)
        return;
    LoggerTableEntry& row = entries[tableEntries];
    row.SetIndex(index);
    row.SetName(name);
    row.SetDefaultLogLevel(defaultLogLevel);
    row.SetRule(rule);
    ++tableEntries;
    ++lastEntryIndex;
}

int LoggerTable::GetTableEntries() const noexcept { return tableEntries; }

int LoggerTable::GetLastEntryIndex() const noexcept { return lastEntryIndex; }

short LoggerTable::GetOutput() const noexcept { return output; }

void LoggerTable::SetOutput(short kind) noexcept { output = kind; }
