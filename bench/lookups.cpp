// The last error of a thread beside a bare slot of the system, and the legend beside the standard library's
// maps with the same keys.

#include <windows.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "Kor_Error.h"
#include "Kor_Legend.h"
#include "bench_log.h"

namespace
{
// Errors ------------------------------------------------------------------------------------------------
void error_set(benchmark::State& state)
{
    unsigned long code = 30000;
    for (auto _ : state)
        KorGError.Set(++code);
    if (KorGError.Get() != code)
        fail("the error is not what was set");
}

void error_get(benchmark::State& state)
{
    KorGError.Set(30012);
    unsigned long sum = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(sum += KorGError.Get());
}

DWORD slot = TLS_OUT_OF_INDEXES;

void slot_set(benchmark::State& state)
{
    std::size_t code = 30000;
    for (auto _ : state)
        ::TlsSetValue(slot, reinterpret_cast<void*>(++code));
}

void slot_get(benchmark::State& state)
{
    std::size_t sum = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(sum += reinterpret_cast<std::size_t>(::TlsGetValue(slot)));
}

void error_set_text(benchmark::State& state)
{
    for (auto _ : state)
        KorGError.SetLogMsg("%s ends after %d rows", "front.png", 17);
}

// Names -------------------------------------------------------------------------------------------------
constexpr int FAMILIES = 20;
constexpr int ENUMERATORS = 30;

std::string family_name(int family) { return "PaperSize_" + std::to_string(family); }
std::string enumerator_name(int family, int value)
{
    return "FAMILY_" + std::to_string(family) + "_VALUE_" + std::to_string(value);
}

using Values = std::unordered_map<std::string, int>;
using Names = std::unordered_map<int, std::string>;
std::unordered_map<std::string, Values> values_by_family;
std::unordered_map<std::string, Names> names_by_type;

void register_families()
{
    for (int family = 0; family < FAMILIES; ++family)
    {
        std::string list;
        for (int value = 0; value < ENUMERATORS; ++value)
        {
            const std::string name = enumerator_name(family, value);
            list += (list.empty() ? "" : ", ") + name;
            values_by_family[family_name(family)].emplace(name, value);
            names_by_type["enum " + family_name(family)].emplace(value, name);
        }
        if (!Kor_Legend::GetInstance()->Register("enum " + family_name(family) + " { " + list + " };"))
            fail("the legend refused a family");
    }
}

/// The keys of all lookups, in an order of their own.
struct Keys
{
    Keys()
    {
        for (int i = 0; i < FAMILIES * ENUMERATORS; ++i)
        {
            const int number = i * 97 % (FAMILIES * ENUMERATORS);
            families.push_back(family_name(number / ENUMERATORS));
            types.push_back("enum " + families.back());
            names.push_back(enumerator_name(number / ENUMERATORS, number % ENUMERATORS));
            values.push_back(number % ENUMERATORS);
        }
    }
    std::size_t count() const { return families.size(); }

    std::vector<std::string> families, types, names;
    std::vector<int> values;
};

template <class Lookup>
void look_up(benchmark::State& state, Lookup lookup)
{
    static const Keys keys;
    std::size_t i = 0;
    for (auto _ : state)
    {
        if (!lookup(keys, i))
            fail("a lookup found something else");
        i = i + 1 == keys.count() ? 0 : i + 1;
    }
}

void legend_to_enum(benchmark::State& state)
{
    const auto legend = Kor_Legend::GetInstance();
    look_up(
        state, [&](const Keys& keys, std::size_t i)
        { return legend->ToEnum(keys.families[i], keys.names[i], false).value == keys.values[i]; });
}

void legend_to_enum_any_case(benchmark::State& state)
{
    const auto legend = Kor_Legend::GetInstance();
    look_up(
        state, [&](const Keys& keys, std::size_t i)
        { return legend->ToEnum(keys.families[i], keys.names[i], true).value == keys.values[i]; });
}

void legend_to_string(benchmark::State& state)
{
    const auto legend = Kor_Legend::GetInstance();
    look_up(
        state, [&](const Keys& keys, std::size_t i)
        { return legend->ToString(keys.types[i], keys.values[i]).size() == keys.names[i].size(); });
}

/// As a program of its own would do it: a function that takes its texts by value too.
bool map_to_enum(std::string family, std::string name, int& value)
{
    const auto known = values_by_family.find(family);
    if (known == values_by_family.end())
        return false;
    const auto found = known->second.find(name);
    if (found == known->second.end())
        return false;
    value = found->second;
    return true;
}

std::string map_to_string(std::string type, int value)
{
    const auto known = names_by_type.find(type);
    if (known == names_by_type.end())
        return std::to_string(value);
    const auto found = known->second.find(value);
    return found == known->second.end() ? std::string() : found->second;
}

void maps_to_enum(benchmark::State& state)
{
    look_up(
        state,
        [](const Keys& keys, std::size_t i)
        {
            int value = -1;
            return map_to_enum(keys.families[i], keys.names[i], value) && value == keys.values[i];
        });
}

void maps_to_string(benchmark::State& state)
{
    look_up(
        state, [](const Keys& keys, std::size_t i)
        { return map_to_string(keys.types[i], keys.values[i]).size() == keys.names[i].size(); });
}
} // namespace

int main(int argc, char** argv)
{
    slot = ::TlsAlloc();
    register_families();
    benchmark::RegisterBenchmark("error/set", &error_set);
    benchmark::RegisterBenchmark("error/get", &error_get);
    benchmark::RegisterBenchmark("error/text", &error_set_text);
    benchmark::RegisterBenchmark("slot/set", &slot_set);
    benchmark::RegisterBenchmark("slot/get", &slot_get);
    benchmark::RegisterBenchmark("legend/to-enum", &legend_to_enum);
    benchmark::RegisterBenchmark("legend/any-case", &legend_to_enum_any_case);
    benchmark::RegisterBenchmark("legend/to-string", &legend_to_string);
    benchmark::RegisterBenchmark("maps/to-enum", &maps_to_enum);
    benchmark::RegisterBenchmark("maps/to-string", &maps_to_string);
    run_benchmarks(argc, argv);
    return 0;
}
