// location_prefix.cpp - any bytes as the text of a Java message: what is read of its prefix, and its line number.

#include "core/location_prefix.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>

#include "require.h"

using kor::core::LocatedText;

namespace
{
/// The number as the C library reads it, whose rules are the same but for the number of bits.
void check_line_number(std::string_view field)
{
    const std::string text(field);
    if (text.find('\0') != std::string::npos)
        return; // the C library would stop there
    char* end = nullptr;
    errno = 0;
    const long long expected = std::strtoll(text.c_str(), &end, 0);
    const bool whole = *end == '\0' && errno == 0 && expected <= std::numeric_limits<std::int32_t>::max() &&
                       expected >= std::numeric_limits<std::int32_t>::min();
    std::int32_t line = -1;
    require(kor::core::read_line_number(field, line) == whole);
    require(line == (whole ? expected : 0));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    check_line_number(text);

    const LocatedText located = kor::core::read_location(text);
    require(is_inside(located.body, text));
    require(located.body.data() + located.body.size() == text.data() + text.size());
    if (!located.has_prefix)
    {
        require(located.body == text && located.line == 0);
        return 0;
    }
    // The parts stand in this order, one separator apart, and none holds its own end.
    require(located.thread.data()[-1] == '<' && located.thread.find(',') == std::string_view::npos);
    require(located.thread.data() + located.thread.size() + 1 == located.class_name.data());
    require(located.class_name.find('.') == std::string_view::npos);
    require(located.class_name.data() + located.class_name.size() + 1 == located.function.data());
    require(located.function.find(':') == std::string_view::npos && is_inside(located.function, text));
    if (located.body.size() == text.size())
    {
        require(located.line == 0);
        return 0;
    }
    require(located.body.data()[-1] == '>');
    const char* const field = located.function.data() + located.function.size() + 1;
    check_line_number({field, static_cast<std::size_t>(located.body.data() - 1 - field)});
    return 0;
}
