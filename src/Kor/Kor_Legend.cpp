#include "Kor_Legend.h"

#include <algorithm>
#include <limits>
#include <new>
#include <string_view>

#include "Kor_LogFile.h"
#include "core/enum_declaration.h"

using kor::core::EnumValueError;

namespace
{
constexpr std::size_t FIRST_BUCKETS = 8;
constexpr std::string_view ENUM_KEYWORD = "enum";

const Kor_EnumResult NOT_FOUND(std::numeric_limits<int>::min(), false);

void report_missing_memory(const std::string& declaration)
{
    constexpr int LEVEL_ERROR = 3;
    if (KorGLog.StoreParams("Kor_Legend", "Kor_Legend::Register", __LINE__, LEVEL_ERROR, KOR_PACKAGE_LIBRARY) != 0)
        KorGLog.Log("No memory to register an enumeration: %.200s\n", declaration.c_str());
}

/// Such a declaration is registered all the same, under names that nobody will ask for.
void report_misread_name(std::string_view name, std::string_view family)
{
    constexpr int LEVEL_WARNING = 4;
    if (KorGLog.StoreParams("Kor_Legend", "Kor_Legend::Register", __LINE__, LEVEL_WARNING, KOR_PACKAGE_LIBRARY) == 0)
        return;
    constexpr std::size_t SHOWN = 100;
    KorGLog.Log(
        "Enumeration [%.*s] is registered with the name [%.*s], which is none. A declaration begins with \"enum\" "
        "or \"enum class\" and one blank, has no base type, and stands on one line.\n",
        static_cast<int>(std::min(family.size(), SHOWN)), family.data(), static_cast<int>(std::min(name.size(), SHOWN)),
        name.data());
}
} // namespace

/// One enumeration. Where a key comes twice, the first entry stays.
struct Kor_Legend::Family
{
    explicit Family(std::size_t buckets) : names(FIRST_BUCKETS), values(FIRST_BUCKETS), lower_case_values(FIRST_BUCKETS)
    {
        names.rehash(buckets);
        values.rehash(buckets);
        lower_case_values.rehash(buckets);
    }

    void add(std::string_view text, int value)
    {
        std::string name(text);
        names.emplace(value, name);
        values.emplace(name, value);
        kor::core::make_lower_case(name);
        lower_case_values.emplace(std::move(name), value);
    }

    std::unordered_map<int, std::string> names;
    std::unordered_map<std::string, int> values;
    std::unordered_map<std::string, int> lower_case_values;
};

const char* const Kor_Legend::sm_OutputFormat_array[6] = {"false", "true", "disabled", "enabled", "off", "on"};
Mutex Kor_Legend::sm_mutex;
std::atomic<bool> Kor_Legend::sm_isInit{false};

namespace
{
// The pointer itself is never destroyed: hosts that unload in another order may still ask for the legend.
alignas(std::shared_ptr<Kor_Legend>) unsigned char instance_place[sizeof(std::shared_ptr<Kor_Legend>)];
} // namespace

std::shared_ptr<Kor_Legend>& Kor_Legend::sm_instance = *new (instance_place) std::shared_ptr<Kor_Legend>;

/// Gives the legend back when the library goes. Who asks later gets a new one.
struct Kor_Legend::Release
{
    ~Release()
    {
        sm_isInit = false;
        sm_instance.reset();
    }
};

const Kor_Legend::Release Kor_Legend::sm_release;

Kor_Legend::Kor_Legend() : m_families(FIRST_BUCKETS) {}

Kor_Legend::~Kor_Legend() = default;

std::shared_ptr<Kor_Legend> Kor_Legend::GetInstance()
{
    if (sm_isInit.load(std::memory_order_acquire))
        return sm_instance;
    sm_mutex.Lock();
    std::shared_ptr<Kor_Legend> instance;
    try
    {
        if (!sm_isInit.load(std::memory_order_relaxed))
            sm_instance.reset(new Kor_Legend);
        sm_isInit.store(true, std::memory_order_release);
        instance = sm_instance;
    }
    catch (const std::bad_alloc&) // the next call tries again
    {
    }
    sm_mutex.Unlock();
    return instance;
}

Kor_Legend::Outcome Kor_Legend::register_family(const std::string& declaration)
{
    std::string_view name;
    if (!kor::core::parse_family_name(declaration, name))
        return Outcome::Refused;
    try
    {
        std::string key(name);
        if (m_families.find(key) != m_families.end())
            return Outcome::Refused;
        return process_enums(kor::core::find_enum_list(declaration, name), std::move(key));
    }
    catch (const std::bad_alloc&)
    {
        // Half a family would stand in the way of the whole one.
        forget_family(name);
        report_missing_memory(declaration);
        return Outcome::Refused;
    }
}

/// Needs no memory.
void Kor_Legend::forget_family(std::string_view name) noexcept
{
    const auto found =
        std::find_if(m_families.begin(), m_families.end(), [name](const auto& family) { return family.first == name; });
    if (found != m_families.end())
        m_families.erase(found);
}

Kor_Legend::Outcome Kor_Legend::process_enums(std::string_view list, std::string name)
{
    const auto entries = std::count(list.begin(), list.end(), ',') + 1;
    const int buckets =
        GetNextPrimeInPrimesArr(static_cast<int>(std::min<std::ptrdiff_t>(entries, std::numeric_limits<int>::max())));
    const auto entry = m_families.insert_or_assign(std::move(name), std::make_unique<Family>(buckets)).first;
    Family& family = *entry->second;

    kor::core::EnumPieces pieces(list);
    std::string_view piece;
    int value = 0;
    bool is_misread = !kor::core::is_identifier(entry->first);
    if (is_misread)
        report_misread_name(entry->first, entry->first);
    while (pieces.next(piece))
    {
        if (kor::core::is_empty_piece(piece))
            continue;
        const EnumValueError error = kor::core::parse_enum_value(piece, value);
        if (error != EnumValueError::NONE)
            return error == EnumValueError::NOT_A_NUMBER ? Outcome::NotANumber : Outcome::OutOfRange;
        piece = kor::core::trim_enum_spaces(piece);
        family.add(piece, value);
        if (!is_misread && !kor::core::is_identifier(piece))
        {
            is_misread = true;
            report_misread_name(piece, entry->first);
        }
        value = kor::core::next_enum_value(value);
    }
    return Outcome::Registered;
}

Kor_EnumResult Kor_Legend::ToEnum(std::string family, std::string name, bool ignoreCase)
{
    const auto known = m_families.find(family);
    if (family.empty() || known == m_families.end())
        return NOT_FOUND;
    if (ignoreCase)
        kor::core::make_lower_case(name);
    const auto& values = ignoreCase ? known->second->lower_case_values : known->second->values;
    const auto found = values.find(name);
    return found == values.end() ? NOT_FOUND : Kor_EnumResult(found->second, true);
}

std::string Kor_Legend::ToString(std::string typeName, int value)
{
    try
    {
        return find_name(std::move(typeName), value);
    }
    catch (const std::bad_alloc&) // for a long name; digits need none
    {
        return std::to_string(value);
    }
}

std::string Kor_Legend::find_name(std::string typeName, int value) const
{
    if (typeName.find(ENUM_KEYWORD) == std::string::npos)
        return std::to_string(value);
    const std::size_t scope = typeName.find("::");
    typeName.erase(0, scope == std::string::npos ? ENUM_KEYWORD.size() + 1 : scope + 2);
    const auto known = m_families.find(typeName);
    if (known == m_families.end())
        return std::to_string(value);
    // Only looked at: an entry left behind here would change a map that other threads are looking at.
    const auto found = known->second->names.find(value);
    return found == known->second->names.end() ? std::string() : found->second;
}

const char* Kor_Legend::ToString(bool b, OutputFormat format)
{
    const std::size_t pair = format > FORMAT_ON ? FORMAT_TRUE : format;
    return sm_OutputFormat_array[2 * pair + (b ? 1 : 0)];
}

const char* Kor_Legend::T_BoolToString(int v) { return v == 1 ? "TRUE" : "FALSE"; }

const char* Kor_Legend::T_StatusToString(int v) { return v == 0 ? "SUCCESS" : "FAILURE"; }

int Kor_Legend::GetNextPrimeInPrimesArr(int n) { return kor::core::next_table_size(n); }
