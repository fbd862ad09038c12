// lumlog.hpp with std::format, for this machine: the functions of the DLL are stand-ins here, which keep what they are
// given. Built where a compiler has that header; ends with the number of the first line that is not as it should be.

#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <format>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "lumlog.hpp"

#if !defined(__cpp_lib_format) || !defined(__cpp_char8_t)
#error "this compiler has no std::format or no char8_t, and this program proves nothing"
#endif

namespace
{
std::vector<std::string> written;

struct Broken
{
};

int failed_line = 0;
void check(bool holds, int line)
{
    if (!holds && failed_line == 0)
        failed_line = line;
}

void check_written(std::string_view text, int line)
{
    const bool is_it = written.size() == 1 && written[0] == text;
    if (!is_it)
        std::fprintf(stderr, "line %d: [%s]\n", line, written.empty() ? "" : written[0].c_str());
    check(is_it, line);
    written.clear();
}
} // namespace

template <>
struct std::formatter<Broken>
{
    constexpr auto parse(std::format_parse_context& context) { return context.begin(); }

    template <class Context>
    typename Context::iterator format(const Broken&, Context&) const
    {
        throw std::runtime_error("it is broken");
    }
};

// Stand-ins. Levels from 1 to 6 are wanted; the gate decides nothing.
namespace
{
const lum_uint64 stamp = 2;
const lum_uint64 seen = 1;
const volatile lum_uint64* const volatile stamp_place = &stamp;
const unsigned short generation = 0;
const unsigned short levels[LUM_PACKAGE_COUNT] = {};
} // namespace

extern "C"
{
    const lum_gate lum_process_gate = {sizeof(lum_gate), LUM_PACKAGE_COUNT, nullptr, &seen,
                                       nullptr,          &generation,       levels,  &stamp_place};

    int LUM_CALL lum_wants(int level, int) { return level <= 6 ? 1 : 0; }

    void LUM_CALL lum_write(const lum_site*, int, int, const char* text, size_t length)
    {
        written.emplace_back(text, length == LUM_ZT ? std::string_view(text).size() : length);
    }

    void LUM_CALL lum_writef(const lum_site*, int, int, const char* format, ...)
    {
        char text[2048];
        va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(text, sizeof text, format, arguments);
        va_end(arguments);
        written.emplace_back(text);
    }
}

int main()
{
    constexpr char WORDS[] = "Gr\xC3\xBC\xC3\x9F"
                             "e";
    int evaluated = 0;

    LUM_LOG_FORMAT(LUM_WARNING, 310, "{} has {:.1f} MB, {:>5}", "front.png", 211.5, 12);
    check_written("front.png has 211.5 MB,    12", __LINE__);
    LUM_LOG_FORMAT(7, 310, "{}", ++evaluated);
    check(evaluated == 0 && written.empty(), __LINE__);

    LUM_LOG_FORMAT(LUM_WARNING, 310, "{}", u8"Gr\u00fc\u00dfe");
    check_written(WORDS, __LINE__);
    LUM_LOG_FORMAT(LUM_WARNING, 310, "{:>8}.", std::u8string(u8"front"));
    check_written("   front.", __LINE__);
    LUM_LOG_FORMAT(LUM_WARNING, 310, "{} {} {}", L"Gr\u00fc\u00dfe", u"Gr\u00fc\u00dfe", std::filesystem::path("a/b"));
    check_written(std::string(WORDS) + ' ' + WORDS + " a/b", __LINE__);

    LUM_LOG_TEXT(LUM_WARNING, 310, u8"Gr\u00fc\u00dfe");
    check_written(WORDS, __LINE__);
    LUM_LOG_TEXT(LUM_WARNING, 310, std::u8string_view(u8"front.png and more", 9));
    check_written("front.png", __LINE__);
    check(lum::utf8(u8"front") == "front", __LINE__);
    check(lum::utf8(static_cast<const char8_t*>(nullptr)) == "(null)", __LINE__);

    const std::string large(5000, 'x');
    LUM_LOG_FORMAT(LUM_WARNING, 310, "{}!", large);
    check_written(large + '!', __LINE__);
    LUM_LOG_FORMAT(LUM_WARNING, 310, "{}", Broken());
    check_written("!!! ERROR !!! Cannot format this message: it is broken", __LINE__);

    const int limit = 2;
    for (int i = 0; i < 5; ++i)
        LUM_LOG_FORMAT_FIRST_N(limit, LUM_WARNING, 310, "{}", i);
    check(written == std::vector<std::string>{"0", "1"}, __LINE__);
#if defined(DOES_NOT_COMPILE)
    LUM_LOG_FORMAT(LUM_WARNING, 310, "{:d}", "no number");
#endif
    return failed_line;
}
