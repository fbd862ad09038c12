// facts.h - what this machine is, and what the library does on it that cannot be seen everywhere.

#ifndef KOR_TESTS_KIT_FACTS_H
#define KOR_TESTS_KIT_FACTS_H

#include <string>

namespace kit
{
/// Lines "name: value". Nothing here passes or fails: it is what a person compares with docs/platforms.md.
std::string facts(const std::wstring& kit);
} // namespace kit

#endif // KOR_TESTS_KIT_FACTS_H
